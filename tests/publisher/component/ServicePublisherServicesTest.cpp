// Publishing and withdrawing service interfaces (the deliberate wait for the first
// configuration, the builder chosen from the metadata, concurrent publishers) and the configured
// services they run on the in-process exchange, through the component's own entry points, with
// the real in-process discovery in a framework and the services in its directory.

#include "ServicePublisherFixture.h"

#include "agent/directory/DirectoryServiceClient.h"
#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"
#include "agent/spf/legacyservicepublisher/DeclarativeServicesServiceBuilder.h"
#include "agent/spf/legacyservicepublisher/LibraryLoadingServiceBuilder.h"
#include "agent/spf/legacyservicepublisher/MicroServicesServiceBuilder.h"

#include <future>
#include <stdexcept>

namespace publishertest {
namespace {

using agent::spf::core::APIVersion;
using agent::spf::core::ServiceInterface;
using agent::spf::inprocessdiscovery::InProcessDiscovery;
using namespace agent::spf::legacyservicepublisher;

class ServicesTest : public ServicePublisherFixture {
protected:
    void SetUp() override {
        ServicePublisherFixture::SetUp();
        registration = context.RegisterService<InProcessDiscovery>(discovery);
        activate();
        lister = discovery->getFrameworkDiscoveryService(0);
    }
    void TearDown() override {
        deactivate();    // stops every service and ends the in-process connection
        lister.reset();  // clients go before their discovery service
        ServicePublisherFixture::TearDown();
    }

    // Configuration `name` on "inprocess", asking for `serviceName` (none if empty) of a major.
    void configure(const std::string& name, const std::string& serviceName = "", int major = 1,
                   const AnyMap& requestedProperties = {}) {
        auto map = service(serviceName, "one");
        map["version"] = Any(AnyMap{{"major", Any(major)}, {"minor", Any(5)}});
        map["requestedProperties"] = Any(requestedProperties);
        const auto services = serviceName.empty() ? std::vector<Any>{} : std::vector<Any>{map};
        publisher->Updated("qz.spf.legacyservicepublisher~" + name, configuration(1, {"inprocess"}, services));
    }
    boost::uuids::uuid publish(const std::string& name, const APIVersion& version,
                               ServiceInterface::Metadata metadata = {}) {
        return publisher->publishService(ServiceInterface(name, version, std::move(metadata)));
    }
    std::future<boost::uuids::uuid> publishAsync() {  // on a thread of its own
        return std::async(std::launch::async, [this] { return publish("Greeter", APIVersion(1)); });
    }
    // The versions of the instances named `name` in the in-process exchange's directory.
    std::multiset<std::string> versionsOf(const std::string& name) const {
        std::multiset<std::string> versions;
        for (const auto& id : lister->queryDirectoryForServiceUUIDs(name)) {
            if (const auto stub = lister->lookupServiceInstance(id, agent::core::serviceutils::APIVersion(0))) {
                versions.insert(stub.getVersion().toString());
            }
        }
        return versions;
    }
    bool eventuallyRunning(const std::string& name, const std::multiset<std::string>& versions) const {
        return testsupport::WaitFor([&] { return versionsOf(name) == versions; });
    }

    std::shared_ptr<InProcessDiscovery> discovery =
        std::make_shared<agent::spf::inprocessdiscovery::InProcessExchangeDiscovery>();
    cppmicroservices::ServiceRegistration<InProcessDiscovery> registration;
    std::unique_ptr<agent::directory::DirectoryServiceClient> lister;
};

TEST_F(ServicesTest, PublishersWaitForTheFirstConfigurationThenEachGetsAnEntryThatIsWithdrawnOnce) {
    constexpr std::size_t kPublishers = 8;
    std::vector<std::future<boost::uuids::uuid>> published;
    for (std::size_t i = 0; i < kPublishers; ++i) {
        published.push_back(publishAsync());
    }
    // Held back deliberately: nothing may come back while there is no configuration.
    EXPECT_EQ(std::future_status::timeout, published.front().wait_for(std::chrono::milliseconds(200)));
    EXPECT_EQ(0u, Access::interfaceCount(*publisher));
    configure("holder");
    std::set<boost::uuids::uuid> ids;
    for (auto& result : published) {
        ASSERT_EQ(std::future_status::ready, result.wait_for(kDeadline));
        ids.insert(result.get());
    }
    EXPECT_EQ(kPublishers, ids.size());
    EXPECT_EQ(kPublishers, Access::interfaceCount(*publisher));

    for (const auto& id : ids) {
        EXPECT_TRUE(publisher->unpublishService(id));
        EXPECT_FALSE(publisher->unpublishService(id)) << "withdrawn once";
    }
    EXPECT_FALSE(publisher->unpublishService(boost::uuids::uuid{}));
    EXPECT_EQ(0u, Access::interfaceCount(*publisher));
}

TEST_F(ServicesTest, DeactivationReleasesEveryWaitingPublisherAndRefusesLaterOnes) {
    std::vector<std::future<boost::uuids::uuid>> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.push_back(publishAsync());
    }
    deactivate();
    for (auto& published : waiting) {
        ASSERT_EQ(std::future_status::ready, published.wait_for(kDeadline));
        EXPECT_EQ("Unable to publish service", failureOf([&] { published.get(); }));
    }
    configure("holder");
    EXPECT_EQ("Unable to publish service", failureOf([this] { publish("Greeter", APIVersion(1)); }))
        << "configured or not";
}

TEST_F(ServicesTest, TheBuilderIsChosenFromTheMetadataARefusedInterfaceIsNotKeptAndDeactivateEmptiesAll) {
    configure("holder");
    enum class Builder { DeclarativeServices, MicroServices, LibraryLoading, None };
    const std::string kBuilder = "spf.legacy.servicebuilder", kBundle = "spf.legacy.bundleid",
                      kLibrary = "spf.legacy.servicebuilderlibrary";
    const struct {
        ServiceInterface::Metadata metadata;
        Builder builder;
        std::string failure;
    } rows[] = {
        {{}, Builder::DeclarativeServices, ""},
        {{{kBuilder, "True"}, {kBundle, "0"}}, Builder::DeclarativeServices, ""},
        {{{kBuilder, "1"}, {kLibrary, "libx"}}, Builder::DeclarativeServices, ""},
        {{{kBuilder, "true "}}, Builder::DeclarativeServices, ""},
        {{{kBuilder, "true"}, {kBundle, "0"}}, Builder::MicroServices, ""},
        {{{kBuilder, "true"}, {kBundle, "0"}, {kLibrary, "libx"}}, Builder::MicroServices, ""},  // a bundle id wins
        {{{kBuilder, "true"}, {kLibrary, "libnotloadedyet"}}, Builder::LibraryLoading, ""},
        {{{kBuilder, "true"}}, Builder::None,
         "Unable to obtain library name for legacy library based ServiceInterface"},
        {{{kBuilder, "true"}, {kBundle, "4711"}}, Builder::None,
         "Unable to obtain valid Bundle for legacy bundle based ServiceInterface"},
        {{{kBuilder, "true"}, {kBundle, "zero"}}, Builder::None,
         std::string("(") + typeid(std::invalid_argument).name() + ") stol"},
    };
    const auto kindOf = [](const std::shared_ptr<agent::core::service::ServiceBuilderBase>& builder) {
        return dynamic_cast<DeclarativeServicesServiceBuilder*>(builder.get()) ? Builder::DeclarativeServices
               : dynamic_cast<MicroServicesServiceBuilder*>(builder.get())     ? Builder::MicroServices
               : dynamic_cast<LibraryLoadingServiceBuilder*>(builder.get())    ? Builder::LibraryLoading
                                                                                : Builder::None;
    };
    std::size_t kept = 0;
    for (const auto& row : rows) {
        boost::uuids::uuid id{};
        EXPECT_EQ(row.failure, failureOf([&] { id = publish("Greeter", APIVersion(1), row.metadata); }));
        kept += id.is_nil() ? 0 : 1;
        EXPECT_EQ(row.builder, id.is_nil() ? Builder::None : kindOf(Access::builderOf(*publisher, id))) << row.failure;
        EXPECT_EQ(kept, Access::interfaceCount(*publisher)) << "a refused interface is not kept";
    }
    deactivate();
    EXPECT_EQ(0u, Access::interfaceCount(*publisher));
}

TEST_F(ServicesTest, EachConfigurationRunsTheHighestInterfaceOfItsMajorThatHasItsRequestedProperties) {
    configure("holder");  // lets interfaces in
    for (const auto& version : {APIVersion(1, 9), APIVersion(3), APIVersion(2), APIVersion(2, 9, 1)}) {
        publish("Greeter", version);
    }
    publish("Store", APIVersion(1, 0), {{"flavour", "plain"}});
    publish("Store", APIVersion(1, 5));
    configure("first", "Greeter", 2);  // 2.5: any 2.x
    configure("second", "Greeter", 2);
    configure("store", "Store", 1, AnyMap{{"flavour", Any(std::string("plain"))}});
    EXPECT_EQ((std::multiset<std::string>{"2.9.1.0", "2.9.1.0"}), versionsOf("Greeter")) << "started at once";
    EXPECT_EQ((std::multiset<std::string>{"1.0.0.0"}), versionsOf("Store")) << "1.5 lacks the property";
    publisher->Removed("qz.spf.legacyservicepublisher~first");
    EXPECT_TRUE(eventuallyRunning("Greeter", {"2.9.1.0"})) << "the next pass stops it";
}

TEST_F(ServicesTest, AWithdrawnInterfacesInstancesStopAndAnotherFittingInterfaceTakesOver) {
    configure("demo", "Greeter");
    const auto older = publish("Greeter", APIVersion(1, 0));
    publish("Greeter", APIVersion(1, 2));
    EXPECT_EQ((std::multiset<std::string>{"1.0.0.0"}), versionsOf("Greeter")) << "a running instance stays";
    // Its interface gone, the instance stops; made anew, it takes the highest that is left.
    EXPECT_TRUE(publisher->unpublishService(older));
    EXPECT_TRUE(eventuallyRunning("Greeter", {"1.2.0.0"}));
}

TEST_F(ServicesTest, AnInstanceThatCannotBeMadeIsLoggedAndItsInterfaceIsRefused) {
    configure("demo", "Broken");
    capture->clear();
    EXPECT_THROW(publish("Broken", APIVersion(1), {{"spf.legacy.servicebuilder", "true"},
                                                   {"spf.legacy.servicebuilderlibrary", "libnowhere.so"}}),
                 std::runtime_error);
    EXPECT_EQ(0u, Access::interfaceCount(*publisher)) << "the registry is as it was";
    EXPECT_THAT(logLines(), Contains("0x100 Unable to create Service instance for PID: demo with uniqueID: one on "
                                     "exchange endpoint: inprocess"));
    EXPECT_THAT(versionsOf("Broken"), IsEmpty());
}

TEST_F(ServicesTest, TheInProcessConnectionGivesFreshContextsAndKeepsItsDiscoveryServiceUntilTornDown) {
    configure("demo");  // asked for, so that the work thread keeps it while the service is there
    ASSERT_TRUE(testsupport::WaitFor([this] { return !Access::connectedEndpoints(*publisher).empty(); }));
    EXPECT_TRUE(eventuallyLogged("0x4 Service started notification for directory on endpoint inprocess"));
    {
        const auto first = Access::contextOn(*publisher, "inprocess");
        EXPECT_TRUE(first.isValid());
        EXPECT_NE(first.getServiceInstance(), Access::contextOn(*publisher, "inprocess").getServiceInstance());
    }
    // The service going is seen at once; the connection keeps it alive until the work thread has
    // torn the connection down.
    std::weak_ptr<InProcessDiscovery> watched = discovery;
    lister.reset();  // clients go before their discovery service
    registration.Unregister();
    registration = {};  // a registration keeps its service object even when unregistered
    discovery.reset();
    EXPECT_FALSE(Access::hasInProcess(*publisher));
    EXPECT_TRUE(testsupport::WaitFor([this] { return Access::connectedEndpoints(*publisher).empty(); }));
    EXPECT_THAT(logLines(), Contains("0x4 Had inprocess discovery, but it has gone away, cleaning up"));
    EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace publishertest
