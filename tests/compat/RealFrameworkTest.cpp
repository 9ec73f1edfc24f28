// The platform bundles and the publisher bundle in an installed CppMicroServices framework, run
// by its own Declarative Services and Configuration Admin (linked into the bundle folder by the
// build): the component appears once its three references exist, a factory configuration runs a
// legacy service on the in-process exchange, an SPF client calls it through the published
// invokable, and stopping the publisher bundle withdraws all of it.

#include "support/FrameworkFixture.h"
#include "support/WaitFor.h"

#include "agent/spf/core/APIVersion.h"
#include "agent/spf/core/Invokable.h"
#include "agent/spf/core/ServiceInterface.h"
#include "agent/spf/servicepublisher/InvokableCall.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"
#include "agent/spf/servicepublisher/ServicePublisher.h"

#include <cppmicroservices/Any.h>
#include <cppmicroservices/cm/ConfigurationAdmin.hpp>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using agent::spf::core::APIVersion;
using agent::spf::core::ServiceInterface;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using InvokablePublisher = agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>;

constexpr std::chrono::seconds kDeadline{20};
constexpr std::chrono::milliseconds kCallTimeout{10000};

// The publisher's three references, each from a bundle of its own.
const std::vector<std::string> kReferenceBundles = {"spf_invokablepublisher", "spf_serialisationcatalogue",
                                                    "spf_threadpoolprovider"};

class RealFrameworkTest : public testsupport::FrameworkFixture {
protected:
    void SetUp() override {
        FrameworkFixture::SetUp();
        for (const auto* name : {"DeclarativeServices", "ConfigurationAdmin", "spf_inprocessdiscovery",
                                 "agentspflegacyservicepublisher", "spf_invokablepublisher",
                                 "spf_serialisationcatalogue", "spf_threadpoolprovider"}) {
            bundles[name] = Install(std::string(COMPAT_BUNDLE_DIR) + "/lib" + name + ".so");
        }
        for (const auto* name : {"DeclarativeServices", "ConfigurationAdmin", "spf_inprocessdiscovery",
                                 "agentspflegacyservicepublisher"}) {
            bundles[name].Start();
        }
    }

    void startTheReferenceBundles() {
        for (const auto& name : kReferenceBundles) bundles[name].Start();
        ASSERT_TRUE(testsupport::WaitFor([this] { return publisher() != nullptr; }, kDeadline));
    }

    template <class S>
    std::shared_ptr<S> service() {
        auto reference = context.GetServiceReference<S>();
        return reference ? context.GetService(reference) : nullptr;
    }
    std::shared_ptr<agent::spf::servicepublisher::ServicePublisher> publisher() {
        return service<agent::spf::servicepublisher::ServicePublisher>();
    }

    // The publisher configuration as Configuration Admin's factory configuration.
    void configure(const std::string& serviceName) {
        const AnyMap request{{"name", Any(serviceName)},
                             {"version", Any(AnyMap{{"major", Any(1)}, {"minor", Any(0)}})},
                             {"requestedProperties", Any(AnyMap(AnyMap::UNORDERED_MAP))},
                             {"uniqueID", Any(std::string("compat"))}};
        const AnyMap properties{
            {"modificationCount", Any(1)},
            {"config", Any(AnyMap{{"endpointsToConnectTo", Any(std::vector<Any>{Any(std::string("inprocess"))})}})},
            {"serviceConfigurations", Any(std::vector<Any>{Any(request)})}};
        auto admin = service<cppmicroservices::service::cm::ConfigurationAdmin>();
        ASSERT_NE(nullptr, admin);
        auto update = admin->GetFactoryConfiguration("qz.spf.legacyservicepublisher", "compat")->Update(properties);
        ASSERT_EQ(std::future_status::ready, update.wait_for(kDeadline));
    }

    std::size_t factoryCount(const std::string& name) {
        auto invokables = service<InvokablePublisher>();
        return invokables ? invokables->findInvokableFactories(name, 1).size() : 0;
    }

    std::map<std::string, cppmicroservices::Bundle> bundles;
};

// Whichever reference comes last, Declarative Services creates the component only then.
TEST_F(RealFrameworkTest, TheComponentIsCreatedOnlyOnceAllThreeReferencesExist) {
    for (const auto& last : kReferenceBundles) {
        SCOPED_TRACE(last);
        for (const auto& name : kReferenceBundles) {
            if (name != last) bundles[name].Start();
        }
        EXPECT_FALSE(testsupport::WaitFor([this] { return publisher() != nullptr; }, std::chrono::milliseconds(200)));
        bundles[last].Start();
        EXPECT_TRUE(testsupport::WaitFor([this] { return publisher() != nullptr; }, kDeadline));
        for (const auto& name : kReferenceBundles) bundles[name].Stop();
        EXPECT_TRUE(testsupport::WaitFor([this] { return publisher() == nullptr; }, kDeadline));
    }
}

// Every method takes two strings, so that one table drives them all.
ServiceInterface textService() {
    ServiceInterface text("compat.Text", APIVersion(1, 0, 0, 0));
    text.addMethod("join", [](std::string a, std::string b) { return a + b; })
        .addMethod("first", [](std::string a, std::string) { return a; })
        .addMethod("refuse", [](std::string a, std::string) -> std::string { throw std::runtime_error(a); });
    return text;
}

TEST_F(RealFrameworkTest, AConfiguredLegacyServiceIsCalledThroughItsInvokableUntilThePublisherStops) {
    startTheReferenceBundles();
    configure("compat.Text");
    publisher()->publishService(textService());
    ASSERT_TRUE(testsupport::WaitFor([this] { return factoryCount("compat.Text") == 1; }, kDeadline));
    auto invokables = service<InvokablePublisher>();
    auto invokable = invokables->getInvokable(invokables->findInvokableFactories("compat.Text", 1).front().handle);
    ASSERT_NE(nullptr, invokable);

    struct Call {
        std::string method, a, b, result, error;
    };
    for (const auto& row : std::vector<Call>{{"join", "in ", "process", "in process", ""},
                                             {"first", "one", "two", "one", ""},
                                             {"refuse", "No, thanks", "", "", "No, thanks"},
                                             {"absent", "", "", "", "bad_function_call"}}) {
        SCOPED_TRACE(row.method);
        auto answer = agent::spf::servicepublisher::call<std::string>(*invokable, row.method, kCallTimeout, row.a, row.b);
        ASSERT_EQ(std::future_status::ready, answer.wait_for(kDeadline));
        try {
            EXPECT_EQ(row.result, answer.get());
            EXPECT_EQ("", row.error);
        } catch (const std::exception& e) {
            EXPECT_EQ(row.error, e.what());
        }
    }

    invokable.reset();
    bundles["agentspflegacyservicepublisher"].Stop();
    EXPECT_EQ(cppmicroservices::Bundle::STATE_RESOLVED, bundles["agentspflegacyservicepublisher"].GetState());
    EXPECT_EQ(nullptr, publisher());
    EXPECT_TRUE(testsupport::WaitFor([this] { return factoryCount("compat.Text") == 0; }, kDeadline));
}

}  // namespace
