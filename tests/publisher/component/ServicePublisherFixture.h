#pragma once

#include "ServicePublisher/PassObserver.h"
#include "support/FrameworkFixture.h"
#include "support/WaitFor.h"

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"
#include "agent/spf/threadpoolprovider/ExecutorThreadPoolProvider.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <condition_variable>
#include <sstream>

namespace agent::spf::legacyservicepublisher {

// Reads, seeds and calls into a publisher under the locks the publisher itself uses there.
class ServicePublisherTestAccess {
    using Lock = std::lock_guard<std::mutex>;
    using P = ServicePublisher;
    using S = const std::string&;

public:
    static auto configurations(P& p) { Lock l(p.connectionsMutex); return p.publisherConfigurations; }
    static auto failed(P& p) { Lock l(p.connectionsMutex); return p.failedAgentConnections; }
    static void markFailed(P& p, S e) { Lock l(p.connectionsMutex); p.failedAgentConnections.insert(e); }
    static bool pending(P& p, S e) { Lock l(p.connectionsMutex); return p.pendingAgentConnections.count(e); }
    static auto connectionTaskGroup(const P& p) { return p.connectionTaskGroup; }
    static bool hasInProcess(const P& p) { return p.hasInProcess(); }
    // As a directory reporting its own stop queues its endpoint.
    static void queueForcedTeardown(P& p, S e) { Lock l(p.workMutex); p.endpointsToForceTeardown.insert(e); }
    static auto forcedTeardowns(P& p) { Lock l(p.workMutex); return p.endpointsToForceTeardown; }
    // Files a real connection to `e`, made as the work thread makes it, or `connection`.
    static void connect(P& p, S e) { addConnection(p, e, *p.createNewAgentConnection(e)); }
    static void addConnection(P& p, S e, P::AgentConnection connection) {
        Lock l(p.connectionsMutex);
        p.agentConnections.emplace(e, std::move(connection));
    }
    // The invokable-factory step of a pass, and the directory query failures it counts.
    static bool publishInvokables(P& p) { Lock l(p.connectionsMutex); return p.ensureAllKnownServicesHaveInvokables(); }
    static auto queryFailures(P& p) { Lock l(p.connectionsMutex); return p.directoryQueryFailures; }
    static void setQueryFailures(P& p, S e, unsigned n) { Lock l(p.connectionsMutex); p.directoryQueryFailures[e] = n; }
};

}  // namespace agent::spf::legacyservicepublisher

namespace publishertest {

using Access = agent::spf::legacyservicepublisher::ServicePublisherTestAccess;
using agent::spf::legacyservicepublisher::PassReport;
using agent::spf::legacyservicepublisher::ServicePublisher;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using ForceCleanup = ServicePublisher::ForceCleanup;
using Passes = std::vector<PassReport>;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

inline constexpr std::chrono::seconds kDeadline{20};
inline const std::string kPid = "qz.spf.legacyservicepublisher~demo";

// The component context Declarative Services would pass: only the bundle context matters here.
struct TestComponentContext : cppmicroservices::service::component::ComponentContext {
    using Reference = cppmicroservices::ServiceReferenceBase;
    explicit TestComponentContext(cppmicroservices::BundleContext context) : context(std::move(context)) {}
    std::unordered_map<std::string, Any> GetProperties() const override { return {}; }
    cppmicroservices::BundleContext GetBundleContext() const override { return context; }
    cppmicroservices::Bundle GetUsingBundle() const override { return {}; }
    void EnableComponent(const std::string&) override {}
    void DisableComponent(const std::string&) override {}
    Reference GetServiceReference() const override { return cppmicroservices::ServiceReferenceU(); }
    std::shared_ptr<void> LocateService(const std::string&, const std::string&) const override { return {}; }
    std::shared_ptr<void> LocateService(const std::string&, const Reference&) const override { return {}; }
    std::vector<std::shared_ptr<void>> LocateServices(const std::string&, const std::string&) const override {
        return {};
    }
    const cppmicroservices::BundleContext context;
};

// A publisher constructed directly on real collaborators (an invokable publisher, a catalogue, a
// thread-pool provider) inside a running framework, every pass recorded and the component logger
// captured instead of written to stderr. TearDown deactivates it, which ends what a test left
// running and is harmless on a publisher never activated or already deactivated.
class ServicePublisherFixture : public testsupport::FrameworkFixture {
protected:
    void SetUp() override {
        foundation::log::removeSink(foundation::log::defaultStderrSink());
        foundation::log::addSink(capture);
        FrameworkFixture::SetUp();
        componentContext = std::make_shared<TestComponentContext>(context);
        agent::spf::legacyservicepublisher::PassObserver::set([this](const PassReport& pass) {
            std::lock_guard<std::mutex> lock(passesMutex);
            passes.push_back(pass);
            passAdded.notify_all();
        });
    }
    void TearDown() override {
        deactivate();
        agent::spf::legacyservicepublisher::PassObserver::set(nullptr);
        publisher.reset();
        FrameworkFixture::TearDown();
        threadpoolProvider->shutDown();
        foundation::log::removeSink(capture);
        foundation::log::addSink(foundation::log::defaultStderrSink());
    }

    void activate() { publisher->Activate(componentContext); }
    void deactivate() { publisher->Deactivate(componentContext); }

    // Waits until condition(passes) holds or the deadline passes; returns whether it held.
    bool waitForPasses(const std::function<bool(const Passes&)>& condition) const {
        std::unique_lock<std::mutex> lock(passesMutex);
        return passAdded.wait_for(lock, kDeadline, [&] { return condition(passes); });
    }
    bool waitForMorePasses(std::size_t n) const {
        std::unique_lock<std::mutex> lock(passesMutex);
        const auto target = passes.size() + n;
        return passAdded.wait_for(lock, kDeadline, [&] { return passes.size() >= target; });
    }

    // Records as "0x100 text": severity and text.
    std::vector<std::string> logLines() const {
        std::vector<std::string> lines;
        for (const auto& record : capture->records()) {
            std::ostringstream line;
            line << "0x" << std::hex << record.severity << " " << record.text;
            lines.push_back(line.str());
        }
        return lines;
    }
    std::size_t linesStartingWith(const std::string& prefix) const {
        const auto lines = logLines();
        return std::count_if(lines.begin(), lines.end(), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; });
    }
    bool eventuallyLogged(const std::string& prefix) const {
        return testsupport::WaitFor([&] { return linesStartingWith(prefix) > 0; }, kDeadline);
    }

    // A factory configuration with the given endpoints and service maps.
    static AnyMap configuration(int modificationCount, const std::vector<std::string>& endpoints,
                                std::vector<Any> services = {}) {
        const AnyMap config{{"endpointsToConnectTo", Any(std::vector<Any>(endpoints.begin(), endpoints.end()))}};
        return AnyMap{{"modificationCount", Any(modificationCount)}, {"config", Any(config)},
                      {"serviceConfigurations", Any(std::move(services))}};
    }
    // A connection record whose cleanup only calls `cleanup`.
    static ServicePublisher::AgentConnection fakeConnection(std::function<void(ForceCleanup)> cleanup) {
        return {[](unsigned int) { return agent::core::serviceutils::Context(); }, std::move(cleanup), nullptr, {}};
    }

    std::shared_ptr<foundation::log::capture_sink> capture =
        std::make_shared<foundation::log::capture_sink>("agent::spf::legacyservicepublisher");
    std::shared_ptr<agent::spf::threadpoolprovider::ExecutorThreadPoolProvider> threadpoolProvider =
        std::make_shared<agent::spf::threadpoolprovider::ExecutorThreadPoolProvider>();
    std::shared_ptr<ServicePublisher> publisher = std::make_shared<ServicePublisher>(
        std::make_shared<ServicePublisher::InvokablePublisherType>(),
        std::make_shared<agent::spf::serialisation::SerialisationCatalogue>(), threadpoolProvider);
    std::shared_ptr<TestComponentContext> componentContext;
    mutable std::mutex passesMutex;  // guards passes, in the order they ended
    mutable std::condition_variable passAdded;
    Passes passes;
};

}  // namespace publishertest
