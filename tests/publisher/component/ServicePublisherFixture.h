#pragma once

#include "ServicePublisher/PassObserver.h"
#include "ServicePublisherTestAccess.h"
#include "support/FrameworkFixture.h"

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/threadpoolprovider/ExecutorThreadPoolProvider.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <cppmicroservices/Any.h>
#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/servicecomponent/ComponentContext.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

namespace publishertest {

using agent::spf::legacyservicepublisher::PassReport;
using agent::spf::legacyservicepublisher::ServicePublisher;
using agent::spf::legacyservicepublisher::ServicePublisherTestAccess;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;

inline constexpr std::chrono::seconds kDeadline{20};

// The component context Declarative Services would pass: only the bundle context matters here.
class TestComponentContext : public cppmicroservices::service::component::ComponentContext {
public:
    explicit TestComponentContext(cppmicroservices::BundleContext context) : context_(std::move(context)) {}

    std::unordered_map<std::string, Any> GetProperties() const override { return {}; }
    cppmicroservices::BundleContext GetBundleContext() const override { return context_; }
    cppmicroservices::Bundle GetUsingBundle() const override { return {}; }
    void EnableComponent(const std::string&) override {}
    void DisableComponent(const std::string&) override {}
    cppmicroservices::ServiceReferenceBase GetServiceReference() const override {
        return cppmicroservices::ServiceReferenceU();
    }

protected:
    std::shared_ptr<void> LocateService(const std::string&, const std::string&) const override { return nullptr; }
    std::shared_ptr<void> LocateService(const std::string&, const cppmicroservices::ServiceReferenceBase&) const override {
        return nullptr;
    }
    std::vector<std::shared_ptr<void>> LocateServices(const std::string&, const std::string&) const override {
        return {};
    }

private:
    cppmicroservices::BundleContext context_;
};

// Keeps the pass reports of one publisher, in order, and lets tests wait for them.
class PassRecorder {
public:
    explicit PassRecorder(const ServicePublisher* publisher) : publisher_(publisher) {}

    void add(const PassReport& pass) {
        if (pass.publisher != publisher_) {
            return;
        }
        std::lock_guard<std::mutex> lock(passesMutex_);
        passes_.push_back(pass);
        added_.notify_all();
    }

    std::vector<PassReport> passes() const {
        std::lock_guard<std::mutex> lock(passesMutex_);
        return passes_;
    }

    std::size_t count() const { return passes().size(); }

    // Waits until condition(passes) holds or the deadline passes; returns whether it held.
    bool waitFor(const std::function<bool(const std::vector<PassReport>&)>& condition,
                 std::chrono::steady_clock::duration timeout = kDeadline) const {
        std::unique_lock<std::mutex> lock(passesMutex_);
        return added_.wait_for(lock, timeout, [&] { return condition(passes_); });
    }

    bool waitForCount(std::size_t n) const {
        return waitFor([n](const std::vector<PassReport>& passes) { return passes.size() >= n; });
    }

private:
    const ServicePublisher* const publisher_;
    mutable std::mutex passesMutex_;  // guards passes_
    mutable std::condition_variable added_;
    std::vector<PassReport> passes_;
};

// A publisher constructed directly on real collaborators (an invokable publisher, a catalogue,
// a thread-pool provider) inside a running framework, with its passes recorded and the
// component logger captured. Stderr logging is off while a test runs.
class ServicePublisherFixture : public testsupport::FrameworkFixture {
protected:
    void SetUp() override {
        foundation::log::removeSink(foundation::log::defaultStderrSink());
        foundation::log::addSink(capture);
        FrameworkFixture::SetUp();
        publisher = std::make_shared<ServicePublisher>(invokablePublisher, catalogue, threadpoolProvider);
        recorder = std::make_shared<PassRecorder>(publisher.get());
        agent::spf::legacyservicepublisher::PassObserver::set(
            [recorder = recorder](const PassReport& pass) { recorder->add(pass); });
        componentContext = std::make_shared<TestComponentContext>(context);
    }

    void TearDown() override {
        if (active) {
            publisher->Deactivate(componentContext);
        }
        agent::spf::legacyservicepublisher::PassObserver::set(nullptr);
        publisher.reset();
        FrameworkFixture::TearDown();
        threadpoolProvider->shutDown();
        foundation::log::removeSink(capture);
        foundation::log::addSink(foundation::log::defaultStderrSink());
    }

    void activate() {
        publisher->Activate(componentContext);
        active = true;
    }

    void deactivate() {
        active = false;
        publisher->Deactivate(componentContext);
    }

    // The texts of the captured records, in order.
    std::vector<std::string> logTexts() const { return capture->texts(); }

    // Severity and text of each captured record, "0x100 text".
    std::vector<std::string> logLines() const {
        std::vector<std::string> lines;
        for (const auto& record : capture->records()) {
            std::ostringstream line;
            line << "0x" << std::hex << record.severity << " " << record.text;
            lines.push_back(line.str());
        }
        return lines;
    }

    // How many captured records, written as logLines() writes them, start with `prefix`.
    std::size_t linesStartingWith(const std::string& prefix) const {
        const auto lines = logLines();
        return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&prefix](const std::string& line) {
            return line.rfind(prefix, 0) == 0;
        }));
    }

    // A factory configuration with the given endpoints and service maps.
    static AnyMap configuration(int modificationCount, std::vector<Any> endpoints, std::vector<Any> services) {
        AnyMap properties{{"modificationCount", Any(modificationCount)},
                          {"config", Any(AnyMap{{"endpointsToConnectTo", Any(std::move(endpoints))}})},
                          {"serviceConfigurations", Any(std::move(services))}};
        return properties;
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
    std::shared_ptr<ServicePublisher> publisher;
    std::shared_ptr<PassRecorder> recorder;
    std::shared_ptr<TestComponentContext> componentContext;
    bool active = false;
};

}  // namespace publishertest
