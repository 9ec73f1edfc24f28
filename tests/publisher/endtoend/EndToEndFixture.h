#pragma once

// A framework running what a host runs: Declarative Services, Configuration Admin, the four
// platform bundles and the publisher bundle. Tests drive it as users do: configurations through
// Configuration Admin, interfaces through the publisher service, calls through the invokable
// publisher.

#include "support/Barrier.h"
#include "support/FrameworkFixture.h"
#include "support/Gate.h"
#include "support/WaitFor.h"

#include "agent/directory/DirectoryServiceClient.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/spf/core/Invokable.h"
#include "agent/spf/core/ServiceInterface.h"
#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/servicepublisher/InvokableCall.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"
#include "agent/spf/servicepublisher/ServicePublisher.h"

#include "foundation/log/Sink.h"

#include <cppmicroservices/Any.h>
#include <cppmicroservices/cm/ConfigurationAdmin.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace publishertest {

inline constexpr std::chrono::seconds kDeadline{20};
inline constexpr std::chrono::milliseconds kCallTimeout{10000};

using testsupport::Gate;

class EndToEndFixture : public testsupport::FrameworkFixture {
protected:
    using InvokablePublisher = agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>;
    // A configured service.
    struct ServiceRequest {
        std::string name;
        int major = 0;
        std::string uniqueID;
        cppmicroservices::AnyMap requestedProperties{cppmicroservices::AnyMap::UNORDERED_MAP};
        int minor = 0;
    };

    void SetUp() override {
        foundation::log::removeSink(foundation::log::defaultStderrSink());
        // nng's own threads live as long as the process once started: start them before counting.
        agent::nanomsgtransport::Exchange().listen("inproc://publisher-end-to-end-warm-up");
        threadsBeforeTheFramework = threadCount();
        FrameworkFixture::SetUp();
        for (const auto* bundle : {"DeclarativeServices", "ConfigurationAdmin", "spf_invokablepublisher",
                                   "spf_serialisationcatalogue", "spf_threadpoolprovider", "spf_inprocessdiscovery",
                                   "agentspflegacyservicepublisher"}) {
            Install(std::string(PUBLISHER_TEST_BUNDLE_DIR) + "/lib" + bundle + ".so").Start();
        }
        ASSERT_TRUE(testsupport::WaitFor([this] { return publisherService() != nullptr; }, kDeadline));
        auto discovery = service<agent::spf::inprocessdiscovery::InProcessDiscovery>();
        ASSERT_NE(nullptr, discovery);
        lister = discovery->getFrameworkDiscoveryService(0);
    }

    void TearDown() override {
        lister.reset();
        FrameworkFixture::TearDown();
        foundation::log::addSink(foundation::log::defaultStderrSink());
    }

    static std::size_t threadCount() {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
    }

    void stopThePublisher() {
        for (auto& bundle : context.GetBundles()) {
            if (bundle.GetSymbolicName() == "com_norbridge_agentspflegacyservicepublisher") bundle.Stop();
        }
    }

    template <class S>
    std::shared_ptr<S> service() {
        auto reference = context.GetServiceReference<S>();
        return reference ? context.GetService(reference) : nullptr;
    }
    std::shared_ptr<agent::spf::servicepublisher::ServicePublisher> publisherService() {
        return service<agent::spf::servicepublisher::ServicePublisher>();
    }
    std::shared_ptr<InvokablePublisher> invokablePublisher() { return service<InvokablePublisher>(); }

    // Creates or changes publisher configuration `name` and waits until it was delivered.
    void configure(const std::string& name, const std::vector<std::string>& endpoints,
                   const std::vector<ServiceRequest>& services) {
        using cppmicroservices::Any;
        using cppmicroservices::AnyMap;
        const std::vector<Any> endpointList(endpoints.begin(), endpoints.end());
        std::vector<Any> serviceList;
        for (const auto& requested : services) {
            serviceList.emplace_back(
                AnyMap{{"name", Any(requested.name)},
                       {"version", Any(AnyMap{{"major", Any(requested.major)}, {"minor", Any(requested.minor)}})},
                       {"requestedProperties", Any(requested.requestedProperties)},
                       {"uniqueID", Any(requested.uniqueID)}});
        }
        const AnyMap properties{{"modificationCount", Any(++modificationCount)},
                                {"config", Any(AnyMap{{"endpointsToConnectTo", Any(endpointList)}})},
                                {"serviceConfigurations", Any(serviceList)}};
        auto update = configurationNamed(name)->Update(properties);
        ASSERT_EQ(std::future_status::ready, update.wait_for(kDeadline));
    }

    void removeConfiguration(const std::string& name) {
        ASSERT_EQ(std::future_status::ready, configurationNamed(name)->Remove().wait_for(kDeadline));
    }

    // Waits until exactly `count` factories of that name and major version are published.
    bool waitForFactories(const std::string& name, std::uint32_t major, std::size_t count) {
        return testsupport::WaitFor(
            [&] { return invokablePublisher()->findInvokableFactories(name, major).size() == count; }, kDeadline);
    }

    std::shared_ptr<agent::spf::core::Invokable> getInvokable(const std::string& name, std::uint32_t major) {
        const auto factories = invokablePublisher()->findInvokableFactories(name, major);
        return factories.empty() ? nullptr : invokablePublisher()->getInvokable(factories.front().handle);
    }

    // The uuids of the instances of that name in the in-process exchange's directory.
    std::vector<boost::uuids::uuid> directoryLists(const std::string& name) const {
        return lister->queryDirectoryForServiceUUIDs(name);
    }

    std::unique_ptr<agent::directory::DirectoryServiceClient> lister;
    std::size_t threadsBeforeTheFramework = 0;

private:
    std::shared_ptr<cppmicroservices::service::cm::Configuration> configurationNamed(const std::string& name) {
        return service<cppmicroservices::service::cm::ConfigurationAdmin>()->GetFactoryConfiguration(
            "qz.spf.legacyservicepublisher", name);
    }

    int modificationCount = 0;
};

}  // namespace publishertest
