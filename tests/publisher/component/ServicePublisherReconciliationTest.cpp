// Configured services started and stopped on the in-process exchange, through the component's
// own entry points (Updated, Removed, publishService, unpublishService), with the real
// in-process discovery in a framework and the interfaces' own services in its directory.

#include "ServicePublisherFixture.h"

#include "support/WaitFor.h"

#include "agent/core/serviceutils/APIVersion.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/spf/core/ServiceInterface.h"
#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"
#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"

#include <cppmicroservices/ServiceRegistration.h>

#include <gmock/gmock.h>

#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace publishertest {
namespace {

using agent::spf::core::APIVersion;
using agent::spf::core::ServiceInterface;
using agent::spf::inprocessdiscovery::InProcessDiscovery;
using agent::spf::inprocessdiscovery::InProcessExchangeDiscovery;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string kFactoryPid = "qz.spf.legacyservicepublisher~";

class ReconciliationTest : public ServicePublisherFixture {
protected:
    void SetUp() override {
        ServicePublisherFixture::SetUp();
        registration = context.RegisterService<InProcessDiscovery>(discovery);
        activate();
        lister = discovery->getFrameworkDiscoveryService(0);
    }

    void TearDown() override {
        deactivate();  // stops every service and ends the in-process connection
        lister.reset();  // clients go before their discovery service
        registration.Unregister();
        registration = {};
        ServicePublisherFixture::TearDown();
    }

    // The versions of the instances named `name` in the in-process exchange's directory.
    std::multiset<std::string> versionsOf(const std::string& name) const {
        std::multiset<std::string> versions;
        for (const auto& id : lister->queryDirectoryForServiceUUIDs(name)) {
            const auto stub = lister->lookupServiceInstance(id, agent::core::serviceutils::APIVersion(0));
            if (stub) {
                versions.insert(stub.getVersion().toString());
            }
        }
        return versions;
    }

    bool eventuallyRunning(const std::string& name, const std::multiset<std::string>& versions) const {
        return testsupport::WaitFor([&] { return versionsOf(name) == versions; });
    }

    // Configuration `name` on "inprocess" asking for the services (name, uniqueID, major).
    void configure(const std::string& name, int modificationCount,
                   const std::vector<std::tuple<std::string, std::string, int>>& services,
                   const AnyMap& requestedProperties = {}) {
        std::vector<Any> maps;
        for (const auto& [serviceName, uniqueID, major] : services) {
            auto map = service(serviceName, uniqueID);
            map["version"] = Any(AnyMap{{"major", Any(major)}, {"minor", Any(5)}});
            map["requestedProperties"] = Any(requestedProperties);
            maps.emplace_back(std::move(map));
        }
        publisher->Updated(kFactoryPid + name,
                           configuration(modificationCount, {Any(std::string("inprocess"))}, std::move(maps)));
    }

    boost::uuids::uuid publish(const std::string& name, const APIVersion& version,
                               ServiceInterface::Metadata metadata = {}) {
        return publisher->publishService(ServiceInterface(name, version, std::move(metadata)));
    }

    std::shared_ptr<InProcessExchangeDiscovery> discovery = std::make_shared<InProcessExchangeDiscovery>();
    cppmicroservices::ServiceRegistration<InProcessDiscovery> registration;
    std::unique_ptr<agent::directory::DirectoryServiceClient> lister;
};

TEST_F(ReconciliationTest, AConfiguredServiceStartsWithItsInterfaceAndStopsWhenItsConfigurationGoes) {
    configure("demo", 1, {{"Greeter", "one", 1}});
    EXPECT_THAT(versionsOf("Greeter"), IsEmpty()) << "no interface yet";

    publish("Greeter", APIVersion(1, 0, 0, 0));
    EXPECT_EQ((std::multiset<std::string>{"1.0.0.0"}), versionsOf("Greeter")) << "started at once";

    publisher->Removed(kFactoryPid + "demo");
    EXPECT_TRUE(eventuallyRunning("Greeter", {})) << "the next pass stops it";
}

TEST_F(ReconciliationTest, TheHighestInterfaceOfTheRequestedMajorThatHasTheRequestedPropertiesServes) {
    configure("holder", 1, {});  // lets interfaces in
    for (const auto& version : {APIVersion(1, 9), APIVersion(3), APIVersion(2), APIVersion(2, 9, 1)}) {
        publish("Greeter", version);
    }
    publish("Store", APIVersion(1, 0), {{"flavour", "plain"}});
    publish("Store", APIVersion(1, 5));

    configure("greeter", 1, {{"Greeter", "one", 2}});  // 2.5: any 2.x
    configure("store", 1, {{"Store", "one", 1}}, AnyMap{{"flavour", Any(std::string("plain"))}});
    EXPECT_EQ((std::multiset<std::string>{"2.9.1.0"}), versionsOf("Greeter"));
    EXPECT_EQ((std::multiset<std::string>{"1.0.0.0"}), versionsOf("Store")) << "1.5 lacks the property";
}

TEST_F(ReconciliationTest, AWithdrawnInterfacesInstancesStopAndAnotherFittingInterfaceTakesOver) {
    configure("demo", 1, {{"Greeter", "one", 1}});
    const auto older = publish("Greeter", APIVersion(1, 0));
    publish("Greeter", APIVersion(1, 2));
    EXPECT_EQ((std::multiset<std::string>{"1.0.0.0"}), versionsOf("Greeter")) << "a running instance stays";

    // Its interface gone, the instance stops; made anew, it takes the highest that is left.
    EXPECT_TRUE(publisher->unpublishService(older));
    EXPECT_TRUE(eventuallyRunning("Greeter", {"1.2.0.0"}));
}

TEST_F(ReconciliationTest, EachConfigurationRunsItsOwnInstanceOfTheSameUniqueId) {
    configure("first", 1, {{"Greeter", "same", 1}});
    configure("second", 1, {{"Greeter", "same", 1}});
    publish("Greeter", APIVersion(1));
    EXPECT_EQ((std::multiset<std::string>{"1.0.0.0", "1.0.0.0"}), versionsOf("Greeter"));

    publisher->Removed(kFactoryPid + "first");
    EXPECT_TRUE(eventuallyRunning("Greeter", {"1.0.0.0"}));
}

TEST_F(ReconciliationTest, AnInstanceThatCannotBeMadeIsLoggedAndItsInterfaceIsRefused) {
    configure("demo", 1, {{"Broken", "one", 1}});
    capture->clear();
    EXPECT_THROW(publish("Broken", APIVersion(1), {{"spf.legacy.servicebuilder", "true"},
                                                   {"spf.legacy.servicebuilderlibrary", "libnowhere.so"}}),
                 std::runtime_error);
    EXPECT_EQ(0u, ServicePublisherTestAccess::interfaceCount(*publisher)) << "the registry is as it was";
    const auto lines = logLines();
    EXPECT_THAT(lines, Contains("0x100 Unable to create Service instance for PID: demo with uniqueID: one on "
                                "exchange endpoint: inprocess"));
    EXPECT_THAT(versionsOf("Broken"), IsEmpty());
}

TEST_F(ReconciliationTest, WithoutAnInProcessDiscoveryServiceInprocessSelectsNothing) {
    registration.Unregister();
    ASSERT_FALSE(ServicePublisherTestAccess::hasInProcess(*publisher));
    configure("demo", 1, {{"Greeter", "one", 1}});
    publish("Greeter", APIVersion(1));
    EXPECT_THAT(ServicePublisherTestAccess::connectedEndpoints(*publisher), IsEmpty());
    EXPECT_THAT(versionsOf("Greeter"), IsEmpty());
    registration = context.RegisterService<InProcessDiscovery>(discovery);  // for TearDown
}

}  // namespace
}  // namespace publishertest
