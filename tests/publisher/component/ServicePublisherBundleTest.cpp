// The real bundle in a framework with Declarative Services and Configuration Admin, its three
// references offered by the SPF platform bundles.

#include "ServicePublisherFixture.h"

#include "support/FrameworkFixture.h"
#include "support/WaitFor.h"

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Constants.h>
#include <cppmicroservices/ServiceReference.h>
#include <cppmicroservices/cm/ConfigurationAdmin.hpp>

#include <dlfcn.h>

#include <future>
#include <string>
#include <vector>

namespace publishertest {
namespace {

using PublisherService = agent::spf::servicepublisher::ServicePublisher;
using cppmicroservices::service::cm::ManagedServiceFactory;

std::string bundlePath(const std::string& target) {
    return std::string(PUBLISHER_TEST_BUNDLE_DIR) + "/lib" + target + ".so";
}

class BundleTest : public testsupport::FrameworkFixture {
protected:
    void SetUp() override {
        foundation::log::removeSink(foundation::log::defaultStderrSink());
        FrameworkFixture::SetUp();
        for (const auto* runtime : {"DeclarativeServices", "ConfigurationAdmin"}) {
            Install(bundlePath(runtime)).Start();
        }
        publisherBundle = Install(bundlePath("agentspflegacyservicepublisher"));
        publisherBundle.Start();
    }

    void TearDown() override {
        FrameworkFixture::TearDown();
        foundation::log::addSink(foundation::log::defaultStderrSink());
    }

    cppmicroservices::Bundle startPlatformBundle(const std::string& target) {
        auto bundle = Install(bundlePath(target));
        bundle.Start();
        return bundle;
    }

    void startAllPlatformBundles() {
        for (const auto* target : {"spf_invokablepublisher", "spf_serialisationcatalogue", "spf_threadpoolprovider"}) {
            platformBundles.push_back(startPlatformBundle(target));
        }
    }

    bool publisherRegistered() { return static_cast<bool>(context.GetServiceReference<PublisherService>()); }

    // The component object behind the registered service.
    std::shared_ptr<ServicePublisher> component() {
        auto reference = context.GetServiceReference<ManagedServiceFactory>();
        if (!reference) {
            return nullptr;
        }
        return std::dynamic_pointer_cast<ServicePublisher>(context.GetService(reference));
    }

    cppmicroservices::Bundle publisherBundle;
    std::vector<cppmicroservices::Bundle> platformBundles;
};

TEST_F(BundleTest, TheManifestDescribesTheBundleAndItsOneComponent) {
    const auto& headers = publisherBundle.GetHeaders();
    EXPECT_EQ("com_norbridge_agentspflegacyservicepublisher", publisherBundle.GetSymbolicName());
    EXPECT_FALSE(cppmicroservices::any_cast<bool>(headers.at("bundle.activator")));
    EXPECT_EQ("src/agent/spf/legacyservicepublisher",
              cppmicroservices::any_cast<std::string>(headers.at("qz.clientdir")));
    EXPECT_EQ("released", cppmicroservices::any_cast<std::string>(headers.at("qz.component.attributes")));
    EXPECT_EQ("agent/spf/legacyservicepublisher", cppmicroservices::any_cast<std::string>(headers.at("qz.component.name")));
    EXPECT_EQ("software", cppmicroservices::any_cast<std::string>(headers.at("qz.component.type")));
    const auto installPath = cppmicroservices::any_cast<std::string>(headers.at("qz.installpath"));
    const auto moduleName = cppmicroservices::any_cast<std::string>(headers.at("qz.module.name"));
    EXPECT_EQ(0u, installPath.find("bin/"));
    EXPECT_NE(std::string::npos, installPath.find("/spf/servicepublishers/agent/spf/legacyservicepublisher/"));
    EXPECT_EQ(installPath.size() - (moduleName.size() + 3), installPath.rfind(moduleName + ".so"));
    EXPECT_EQ(1, cppmicroservices::any_cast<int>(headers.AtCompoundKey("scr.version")));
    const auto& components =
        cppmicroservices::ref_any_cast<std::vector<Any>>(headers.AtCompoundKey("scr.components"));
    ASSERT_EQ(1u, components.size());
    const auto& component = cppmicroservices::ref_any_cast<AnyMap>(components[0]);
    EXPECT_EQ("agent::spf::legacyservicepublisher::ServicePublisher",
              cppmicroservices::any_cast<std::string>(component.at("implementation-class")));
    EXPECT_TRUE(cppmicroservices::any_cast<bool>(component.at("inject-references")));
    const auto& references = cppmicroservices::ref_any_cast<std::vector<Any>>(component.at("references"));
    ASSERT_EQ(3u, references.size());
    const std::pair<std::string, std::string> expected[] = {
        {"InvokablePublisher", "agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>"},
        {"SerialisationCatalogue", "agent::spf::serialisation::SerialisationCatalogue"},
        {"ThreadpoolProvider", "agent::spf::threadpoolprovider::ThreadPoolProvider"},
    };
    for (std::size_t i = 0; i < references.size(); ++i) {
        const auto& reference = cppmicroservices::ref_any_cast<AnyMap>(references[i]);
        EXPECT_EQ(expected[i].first, cppmicroservices::any_cast<std::string>(reference.at("name")));
        EXPECT_EQ(expected[i].second, cppmicroservices::any_cast<std::string>(reference.at("interface")));
        EXPECT_EQ(2u, reference.size()) << "no cardinality or policy: the defaults hold";
    }
    EXPECT_EQ("singleton", cppmicroservices::any_cast<std::string>(component.AtCompoundKey("service.scope")));
}

TEST_F(BundleTest, TheComponentIsCreatedOnlyWhenAllThreeReferencesAreThereAndOffersBothInterfaces) {
    platformBundles.push_back(startPlatformBundle("spf_invokablepublisher"));
    platformBundles.push_back(startPlatformBundle("spf_serialisationcatalogue"));
    EXPECT_FALSE(publisherRegistered());
    EXPECT_FALSE(context.GetServiceReference<ManagedServiceFactory>());

    platformBundles.push_back(startPlatformBundle("spf_threadpoolprovider"));
    ASSERT_TRUE(testsupport::WaitFor([this] { return publisherRegistered(); }));

    const auto reference = context.GetServiceReference<PublisherService>();
    const auto string = [&reference](const std::string& key) {
        return cppmicroservices::any_cast<std::string>(reference.GetProperty(key));
    };
    EXPECT_EQ("ServicePublisher which wraps nanomsg, legacy DirectoryService, etc.", string("Service.description"));
    EXPECT_EQ("Norbridge", string("Service.vendor"));
    EXPECT_EQ("qz.spf.legacyservicepublisher", string("service.pid"));
    EXPECT_EQ("legacyservicepublisher", string("spf.servicepublisher.name"));
    EXPECT_EQ("singleton", string(cppmicroservices::Constants::SERVICE_SCOPE));
    const auto classes = cppmicroservices::any_cast<std::vector<std::string>>(
        reference.GetProperty(cppmicroservices::Constants::OBJECTCLASS));
    EXPECT_EQ((std::vector<std::string>{"agent::spf::servicepublisher::ServicePublisher",
                                        "cppmicroservices::service::cm::ManagedServiceFactory"}),
              classes);

    // Both interfaces are one object, the component.
    const auto publisherService = context.GetService(reference);
    const auto factory = context.GetService(context.GetServiceReference<ManagedServiceFactory>());
    ASSERT_NE(nullptr, publisherService);
    ASSERT_NE(nullptr, factory);
    EXPECT_EQ(dynamic_cast<ServicePublisher*>(publisherService.get()), dynamic_cast<ServicePublisher*>(factory.get()));
}

TEST_F(BundleTest, TheEntryPointsAndTheContextGlueAreExportedUnmangled) {
    startAllPlatformBundles();
    ASSERT_TRUE(testsupport::WaitFor([this] { return component() != nullptr; }));

    // The framework has loaded the library by now; this only finds it.
    void* library = dlopen(bundlePath("agentspflegacyservicepublisher").c_str(), RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(nullptr, library);
    for (const auto* symbol : {"NewInstance_agent_spf_legacyservicepublisher_ServicePublisher",
                               "DeleteInstance_agent_spf_legacyservicepublisher_ServicePublisher",
                               "_us_set_bundle_context_instance_com_norbridge_agentspflegacyservicepublisher"}) {
        EXPECT_NE(nullptr, dlsym(library, symbol)) << symbol;
    }
    using GetContext = void* (*)();
    const auto getContext = reinterpret_cast<GetContext>(
        dlsym(library, "_us_get_bundle_context_instance_com_norbridge_agentspflegacyservicepublisher"));
    ASSERT_NE(nullptr, getContext);
    EXPECT_NE(nullptr, getContext()) << "the framework set the context of the started bundle";
    dlclose(library);
}

TEST_F(BundleTest, LosingAReferenceTearsTheComponentDownAndItsReturnMakesANewOne) {
    startAllPlatformBundles();
    ASSERT_TRUE(testsupport::WaitFor([this] { return component() != nullptr; }));
    // Each component draws a random task group: it tells the instances apart.
    const auto first = ServicePublisherTestAccess::connectionTaskGroup(*component());

    platformBundles.back().Stop();  // the thread-pool provider
    ASSERT_TRUE(testsupport::WaitFor([this] { return !publisherRegistered(); }));

    platformBundles.back().Start();
    ASSERT_TRUE(testsupport::WaitFor([this] { return component() != nullptr; }));
    EXPECT_NE(first, ServicePublisherTestAccess::connectionTaskGroup(*component()));
}

TEST_F(BundleTest, AFactoryConfigurationMadeThroughConfigurationAdminReachesUpdatedUnderItsInstanceName) {
    startAllPlatformBundles();
    ASSERT_TRUE(testsupport::WaitFor([this] { return component() != nullptr; }));
    const auto publisher = component();

    auto admin = context.GetService(context.GetServiceReference<cppmicroservices::service::cm::ConfigurationAdmin>());
    ASSERT_NE(nullptr, admin);
    auto configuration = admin->GetFactoryConfiguration("qz.spf.legacyservicepublisher", "demo");
    AnyMap properties{{"modificationCount", Any(1)},
                      {"config", Any(AnyMap{{"endpointsToConnectTo", Any(std::vector<Any>{Any(std::string("inprocess"))})}})},
                      {"serviceConfigurations",
                       Any(std::vector<Any>{Any(AnyMap{{"name", Any(std::string("Greeter"))},
                                                       {"requestedProperties", Any(AnyMap{})},
                                                       {"uniqueID", Any(std::string("one"))}})})}};
    ASSERT_EQ(std::future_status::ready, configuration->Update(properties).wait_for(kDeadline));

    const auto configurations = ServicePublisherTestAccess::configurations(*publisher);
    ASSERT_EQ(1u, configurations.size());
    const auto& stored = configurations.begin()->second;
    EXPECT_EQ("demo", configurations.begin()->first);
    EXPECT_EQ((std::set<std::string>{"inprocess"}), stored.endpoints);
    ASSERT_EQ(1u, stored.serviceConfigurations.size());
    EXPECT_EQ("Greeter", stored.serviceConfigurations[0].name);

    // A publisher that waited for this configuration now gets through.
    auto publisherService = context.GetService(context.GetServiceReference<PublisherService>());
    agent::spf::core::ServiceInterface greeter("Greeter", agent::spf::core::APIVersion(1));
    const auto id = publisherService->publishService(greeter);
    EXPECT_TRUE(publisherService->unpublishService(id));

    ASSERT_EQ(std::future_status::ready, configuration->Remove().wait_for(kDeadline));
    EXPECT_TRUE(ServicePublisherTestAccess::configurations(*publisher).empty());
}

}  // namespace
}  // namespace publishertest
