#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"
#include "agent/spf/legacyservicewrapper/LegacyServiceBuilder.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/serialisation/avro/Avro.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"
#include "agent/spf/threadpoolprovider/ThreadPoolProvider.h"

#include "support/ContainerSupport.h"
#include "support/FrameworkFixture.h"

#include "cppmicroservices/ServiceReference.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <shared_mutex>

namespace agent::spf {
namespace {

using namespace testsupport;
using Publisher = servicepublisher::InvokablePublisher<core::Invokable>;

// The exact names other bundles look these services up by.
const std::string kThreadPoolProvider = "agent::spf::threadpoolprovider::ThreadPoolProvider";
const std::string kInProcessDiscovery = "agent::spf::inprocessdiscovery::InProcessDiscovery";
const std::string kSerialisationCatalogue = "agent::spf::serialisation::SerialisationCatalogue";
const std::string kInvokablePublisher = "agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>";

class PlatformBundlesTest : public testsupport::FrameworkFixture {
protected:
    // Installs and starts lib<name>.so from the build's library folder.
    cppmicroservices::Bundle start(const std::string& name) {
        auto bundle = Install(std::string(SPF_BUNDLE_DIR) + "/lib" + name + ".so");
        EXPECT_EQ(bundle.GetSymbolicName(), name);
        bundle.Start();
        return bundle;
    }

    // The one service registered under `interfaceId`, which must come from `bundle`.
    cppmicroservices::ServiceReferenceU onlyService(const std::string& interfaceId,
                                                    const cppmicroservices::Bundle& bundle) {
        auto references = context.GetServiceReferences(interfaceId);
        EXPECT_EQ(references.size(), 1u) << interfaceId;
        if (references.empty()) {
            return {};
        }
        EXPECT_EQ(references.front().GetBundle(), bundle);
        return references.front();
    }
};

TEST_F(PlatformBundlesTest, ThreadPoolProviderIsOfferedWhileActiveAndItsPoolShutsDownWithTheBundle) {
    auto bundle = start("spf_threadpoolprovider");
    ASSERT_TRUE(onlyService(kThreadPoolProvider, bundle));

    auto reference = context.GetServiceReference<threadpoolprovider::ThreadPoolProvider>();
    auto provider = context.GetService(reference);
    ASSERT_NE(provider, nullptr);
    auto executor = provider->getExecutor();
    std::promise<void> ran;
    executor->postWork(randomId(), [&ran](foundation::concurrent::threadpool::stop_token) { ran.set_value(); },
                       false);
    EXPECT_EQ(ran.get_future().wait_until(deadline()), std::future_status::ready);

    bundle.Stop();
    EXPECT_FALSE(context.GetServiceReference<threadpoolprovider::ThreadPoolProvider>());
    std::shared_lock<std::shared_mutex> lock(executor->shutdownMutex());
    EXPECT_TRUE(executor->isShutDown());
}

TEST_F(PlatformBundlesTest, InProcessDiscoveryIsOfferedAndItsExchangeOutlivesTheBundleForItsUsers) {
    auto bundle = start("spf_inprocessdiscovery");
    ASSERT_TRUE(onlyService(kInProcessDiscovery, bundle));

    auto discovery = context.GetService(context.GetServiceReference<inprocessdiscovery::InProcessDiscovery>());
    ASSERT_NE(discovery, nullptr);

    auto client = discovery->getFrameworkDiscoveryService(3);
    directoryinterfaces::ServiceInstanceInfo info;
    info.name = "Registered";
    info.instance = randomId();
    client->registerServiceInstance(info);

    bundle.Stop();
    EXPECT_FALSE(context.GetServiceReference<inprocessdiscovery::InProcessDiscovery>());
    // A user that still holds the service keeps a working exchange.
    EXPECT_EQ(client->queryDirectoryForServiceUUIDs("Registered"), std::vector<boost::uuids::uuid>{info.instance});
    client.reset();
}

TEST_F(PlatformBundlesTest, SerialisationCatalogueIsOfferedWithTheAvroTypes) {
    auto bundle = start("spf_serialisationcatalogue");
    ASSERT_TRUE(onlyService(kSerialisationCatalogue, bundle));
    auto catalogue = context.GetService(context.GetServiceReference<serialisation::SerialisationCatalogue>());
    ASSERT_NE(catalogue, nullptr);
    for (const std::type_index type : {std::type_index(typeid(bool)), std::type_index(typeid(std::int32_t)),
                                       std::type_index(typeid(std::string)),
                                       std::type_index(typeid(std::vector<std::uint8_t>))}) {
        EXPECT_TRUE(catalogue->hasSerialiser(serialisation::avroContentType, type)) << core::typeName(type);
        EXPECT_TRUE(catalogue->hasDeserialiser(serialisation::avroContentType, type)) << core::typeName(type);
    }
    bundle.Stop();
    EXPECT_FALSE(context.GetServiceReference<serialisation::SerialisationCatalogue>());
}

TEST_F(PlatformBundlesTest, InvokablePublisherIsOfferedAndHandsOutRegisteredFactories) {
    auto bundle = start("spf_invokablepublisher");
    ASSERT_TRUE(onlyService(kInvokablePublisher, bundle));
    auto publisher = context.GetService(context.GetServiceReference<Publisher>());
    ASSERT_NE(publisher, nullptr);
    const auto handle = publisher->registerInvokableFactory(
        [] { return std::shared_ptr<core::Invokable>(); }, [](std::shared_ptr<core::Invokable>) {}, "Probe",
        randomId(), core::APIVersion(1, 2), {}, {});
    const auto found = publisher->findInvokableFactories("Probe", 1);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found.front().handle, handle);
    publisher->withdrawInvokableFactory(handle);
    bundle.Stop();
    EXPECT_FALSE(context.GetServiceReference<Publisher>());
}

// A host is a framework that installs the bundles: with all four active, an SPF interface
// runs as a legacy service on the in-process exchange, serialised by the shared catalogue.
TEST_F(PlatformBundlesTest, AllFourBundlesTogetherRunAnInterfaceOnTheInProcessExchange) {
    std::vector<cppmicroservices::Bundle> bundles;
    for (const auto* name :
         {"spf_threadpoolprovider", "spf_inprocessdiscovery", "spf_serialisationcatalogue", "spf_invokablepublisher"}) {
        bundles.push_back(start(name));
    }
    for (const auto& id : {kThreadPoolProvider, kInProcessDiscovery, kSerialisationCatalogue, kInvokablePublisher}) {
        EXPECT_EQ(context.GetServiceReferences(id).size(), 1u) << id;
    }

    auto catalogue = context.GetService(context.GetServiceReference<serialisation::SerialisationCatalogue>());
    auto discovery = context.GetService(context.GetServiceReference<inprocessdiscovery::InProcessDiscovery>());
    ASSERT_TRUE(catalogue && discovery);

    core::ServiceInterface shouter("Shouter", core::APIVersion(3, 1));
    shouter.addMethod("shout", [](const std::string& s) { return s + "!"; });
    auto builder = legacyservicewrapper::LegacyServiceBuilder::make_shared(shouter, catalogue);
    auto service = builder->create();
    {
        auto serviceClient = discovery->getFrameworkDiscoveryService(3);
        ASSERT_TRUE(service->start({{}, serviceClient->getAssociatedContext()}));
    }

    auto caller = discovery->getFrameworkDiscoveryService(3);
    const auto ids = caller->queryDirectoryForServicesMatchingMetadata("Shouter", {{"spf::servicemajor", "3"}});
    ASSERT_EQ(ids.size(), 1u);
    auto stub = caller->lookupServiceInstance(ids.front(), agent::core::serviceutils::APIVersion(3));
    const auto argument = serialisation::avroEncode(std::string("hey"));
    agent::core::transport::Message request;
    const std::uint8_t size[8] = {0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(argument.size())};
    request.append(size, sizeof size);
    request.append(argument.data(), argument.size());
    const auto reply = outcome(stub.getMethod("shout")(request));
    ASSERT_GT(reply.size(), 8u) << reply;
    EXPECT_EQ(serialisation::avroDecode<std::string>(reinterpret_cast<const std::uint8_t*>(reply.data()) + 8,
                                                     reply.size() - 8),
              "hey!");
    service->stop();
}

}  // namespace
}  // namespace agent::spf
