#pragma once

#include "ServicePublisher/PassObserver.h"
#include "ServicePublisherTestAccess.h"
#include "support/FrameworkFixture.h"
#include "support/WaitFor.h"

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/threadpoolprovider/ExecutorThreadPoolProvider.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <cppmicroservices/servicecomponent/ComponentContext.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace publishertest {

using Access = agent::spf::legacyservicepublisher::ServicePublisherTestAccess;
using agent::spf::legacyservicepublisher::PassReport;
using agent::spf::legacyservicepublisher::ServicePublisher;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using Passes = std::vector<PassReport>;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

inline constexpr std::chrono::seconds kDeadline{20};
inline const std::string kPid = "qz.spf.legacyservicepublisher~demo";

// The message of what `call` throws, with its type unless it is std::runtime_error; "" when it returns.
inline std::string failureOf(const std::function<void()>& call) {
    try {
        call();
        return "";
    } catch (const std::exception& e) {
        return typeid(e) == typeid(std::runtime_error) ? e.what()
                                                       : std::string("(") + typeid(e).name() + ") " + e.what();
    }
}

// The component context Declarative Services would pass: only the bundle context matters here.
class TestComponentContext : public cppmicroservices::service::component::ComponentContext {
public:
    explicit TestComponentContext(cppmicroservices::BundleContext context) : context(std::move(context)) {}
    std::unordered_map<std::string, Any> GetProperties() const override { return {}; }
    cppmicroservices::BundleContext GetBundleContext() const override { return context; }
    cppmicroservices::Bundle GetUsingBundle() const override { return {}; }
    void EnableComponent(const std::string&) override {}
    void DisableComponent(const std::string&) override {}
    cppmicroservices::ServiceReferenceBase GetServiceReference() const override {
        return cppmicroservices::ServiceReferenceU();
    }
    std::shared_ptr<void> LocateService(const std::string&, const std::string&) const override { return {}; }
    std::shared_ptr<void> LocateService(const std::string&,
                                        const cppmicroservices::ServiceReferenceBase&) const override {
        return {};
    }
    std::vector<std::shared_ptr<void>> LocateServices(const std::string&, const std::string&) const override {
        return {};
    }

    const cppmicroservices::BundleContext context;
};

// Publishers constructed directly on real collaborators (an invokable publisher, a catalogue, a
// thread-pool provider) inside a running framework, their passes recorded and the component
// logger captured instead of written to stderr. TearDown deactivates each, which ends what a test
// left running and is harmless on a publisher never activated or already deactivated.
class ServicePublisherFixture : public testsupport::FrameworkFixture {
protected:
    void SetUp() override {
        foundation::log::removeSink(foundation::log::defaultStderrSink());
        foundation::log::addSink(capture);
        FrameworkFixture::SetUp();
        componentContext = std::make_shared<TestComponentContext>(context);
        publisher = another();
        agent::spf::legacyservicepublisher::PassObserver::set([this](const PassReport& pass) {
            std::lock_guard<std::mutex> lock(passesMutex);
            recordedPasses.push_back(pass);
            passAdded.notify_all();
        });
    }
    void TearDown() override {
        for (const auto& each : publishers) {
            each->Deactivate(componentContext);
        }
        agent::spf::legacyservicepublisher::PassObserver::set(nullptr);
        publishers.clear();
        publisher.reset();
        FrameworkFixture::TearDown();
        threadpoolProvider->shutDown();
        foundation::log::removeSink(capture);
        foundation::log::addSink(foundation::log::defaultStderrSink());
    }

    std::shared_ptr<ServicePublisher> another() {
        publishers.push_back(std::make_shared<ServicePublisher>(invokablePublisher, catalogue, threadpoolProvider));
        return publishers.back();
    }
    // Activates the publisher and waits for the pass that activation asks for.
    void activate() {
        publisher->Activate(componentContext);
        ASSERT_TRUE(waitForPasses([p = publisher.get()](const Passes& all) {
            return std::any_of(all.begin(), all.end(), [p](const PassReport& pass) { return pass.publisher == p; });
        }));
    }
    void deactivate() { publisher->Deactivate(componentContext); }

    Passes recorded() const {
        std::lock_guard<std::mutex> lock(passesMutex);
        return recordedPasses;
    }
    // Waits until condition(passes) holds or the deadline passes; returns whether it held.
    bool waitForPasses(const std::function<bool(const Passes&)>& condition,
                       std::chrono::seconds timeout = kDeadline) const {
        std::unique_lock<std::mutex> lock(passesMutex);
        return passAdded.wait_for(lock, timeout, [&] { return condition(recordedPasses); });
    }
    bool waitForMorePasses(std::size_t n) const {
        const auto target = recorded().size() + n;
        return waitForPasses([target](const Passes& all) { return all.size() >= target; });
    }
    // A record as "0x100 text": severity and text.
    static std::string lineOf(const foundation::log::record& record) {
        std::ostringstream line;
        line << "0x" << std::hex << record.severity << " " << record.text;
        return line.str();
    }
    std::vector<std::string> logLines() const {
        std::vector<std::string> lines;
        for (const auto& record : capture->records()) {
            lines.push_back(lineOf(record));
        }
        return lines;
    }
    static std::function<bool(const foundation::log::record&)> startingWith(const std::string& prefix) {
        return [prefix](const foundation::log::record& record) { return lineOf(record).rfind(prefix, 0) == 0; };
    }
    std::size_t linesStartingWith(const std::string& prefix) const { return capture->count(startingWith(prefix)); }
    bool eventuallyLogged(const std::string& prefix) const {
        return capture->waitFor(startingWith(prefix), std::chrono::steady_clock::now() + kDeadline);
    }

    // A factory configuration with the given endpoints and service maps.
    static AnyMap configuration(int modificationCount, const std::vector<std::string>& endpoints,
                                std::vector<Any> services) {
        const std::vector<Any> listed(endpoints.begin(), endpoints.end());
        return AnyMap{{"modificationCount", Any(modificationCount)},
                      {"config", Any(AnyMap{{"endpointsToConnectTo", Any(listed)}})},
                      {"serviceConfigurations", Any(std::move(services))}};
    }
    // One service map with name, uniqueID and empty requested properties.
    static AnyMap service(const std::string& name, const std::string& uniqueID) {
        return AnyMap{{"name", Any(name)}, {"requestedProperties", Any(AnyMap{})}, {"uniqueID", Any(uniqueID)}};
    }

    std::shared_ptr<foundation::log::capture_sink> capture =
        std::make_shared<foundation::log::capture_sink>("agent::spf::legacyservicepublisher");
    std::shared_ptr<ServicePublisher::InvokablePublisherType> invokablePublisher =
        std::make_shared<ServicePublisher::InvokablePublisherType>();
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue =
        std::make_shared<agent::spf::serialisation::SerialisationCatalogue>();
    std::shared_ptr<agent::spf::threadpoolprovider::ExecutorThreadPoolProvider> threadpoolProvider =
        std::make_shared<agent::spf::threadpoolprovider::ExecutorThreadPoolProvider>();
    mutable std::mutex passesMutex;  // guards recordedPasses: every publisher's, in the order they ended
    mutable std::condition_variable passAdded;
    Passes recordedPasses;
    std::vector<std::shared_ptr<ServicePublisher>> publishers;
    std::shared_ptr<ServicePublisher> publisher;
    std::shared_ptr<TestComponentContext> componentContext;
};

}  // namespace publishertest
