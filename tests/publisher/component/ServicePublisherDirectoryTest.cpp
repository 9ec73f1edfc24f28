// The publisher's side of an exchange's directory: its subscription and what the notifications
// do, and the removal of expired duplicates, against a real exchange and its directory.

#include "ServicePublisherFixture.h"

#include "support/ContainerSupport.h"
#include "support/WaitFor.h"

#include "agent/directory/DirectoryCore.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"
#include "agent/nanomsgtransport/Exchange.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/uuid/uuid.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace publishertest {
namespace {

using agent::directory::DirectoryServiceClient;
using agent::directoryinterfaces::ServiceInstanceInfo;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

const std::string kEndpoint = "ipc:///nowhere/exchange";

class DirectoryTest : public ServicePublisherFixture {
protected:
    void SetUp() override {
        ServicePublisherFixture::SetUp();
        static std::atomic<int> counter{0};
        url = exchange.listen("inproc://publisher-directory-test-" + std::to_string(counter++));
        container = testsupport::makeContainer(url);
        client = std::make_unique<DirectoryServiceClient>(
            container->createContext(container->generateServiceInstance()), std::chrono::milliseconds(5000));
    }

    void TearDown() override {
        client.reset();
        container->disconnectTransport();
        ServicePublisherFixture::TearDown();
    }

    // Enters an instance into the exchange's directory, as its service would.
    boost::uuids::uuid enter(const std::string& name, std::map<std::string, std::string> metadata = {}) {
        ServiceInstanceInfo info;
        info.name = name;
        info.instance = testsupport::randomId();
        info.metadata = std::move(metadata);
        exchange.directory()->registerInstance(info);
        return info.instance;
    }

    std::set<boost::uuids::uuid> listed(const std::string& name) const {
        const auto ids = exchange.directory()->queryByName(name);
        return std::set<boost::uuids::uuid>(ids.begin(), ids.end());
    }

    bool logged(const std::string& line) const {
        return capture->waitFor(
            [this, &line](const foundation::log::record& record) {
                std::ostringstream text;
                text << "0x" << std::hex << record.severity << " " << record.text;
                return text.str() == line;
            },
            std::chrono::steady_clock::now() + kDeadline);
    }

    void removeDuplicates(const std::string& name, const std::map<std::string, std::string>& marks,
                          unsigned int major) {
        boost::property_tree::ptree metadata;
        for (const auto& [key, value] : marks) {
            metadata.put(key, value);  // the keys hold no '.', the path separator
        }
        ServicePublisherTestAccess::removeExpiredDuplicateServicesIfRequired(*publisher, *client, name, metadata,
                                                                             major);
    }

    agent::nanomsgtransport::Exchange exchange;
    std::string url;
    std::shared_ptr<agent::core::container::ServiceContainer> container;
    std::unique_ptr<DirectoryServiceClient> client;
};

TEST_F(DirectoryTest, RunningAndLaterServicesAreReportedAsStartedAndWakeTheWorkThread) {
    activate();
    ASSERT_TRUE(recorder->waitForCount(1));
    enter("Before");

    EXPECT_FALSE(ServicePublisherTestAccess::registerForCallbacks(*publisher, kEndpoint, *client).is_nil());
    EXPECT_TRUE(logged("0x4 Service started notification for Before on endpoint " + kEndpoint));
    EXPECT_TRUE(logged("0x4 Service started notification for directory on endpoint " + kEndpoint));
    // None of them has an invokable factory yet: each wakes the work thread.
    EXPECT_TRUE(recorder->waitFor([](const std::vector<PassReport>& passes) {
        return std::any_of(passes.begin() + 1, passes.end(), [](const PassReport& pass) { return pass.woken; });
    }));

    enter("After");
    EXPECT_TRUE(logged("0x4 Service started notification for After on endpoint " + kEndpoint));
}

TEST_F(DirectoryTest, AStoppedServiceIsReportedAndTheDirectorysOwnStopForcesTeardownOfItsEndpoint) {
    activate();
    ASSERT_TRUE(recorder->waitForCount(1));
    const auto leaving = enter("Leaving");
    ASSERT_FALSE(ServicePublisherTestAccess::registerForCallbacks(*publisher, kEndpoint, *client).is_nil());
    ASSERT_TRUE(logged("0x4 Service started notification for Leaving on endpoint " + kEndpoint));

    exchange.directory()->deregisterInstance(leaving);
    EXPECT_TRUE(logged("0x4 Service stopped notification for Leaving on endpoint " + kEndpoint));

    // An exchange that shuts down tells its subscribers that its directory stopped.
    exchange.close();
    EXPECT_TRUE(logged("0x4 Service stopped notification for directory on endpoint " + kEndpoint));
    EXPECT_TRUE(logged("0x4 Forcing teardown of exchange endpoint: " + kEndpoint));
    const auto passes = recorder->passes();
    const auto forced = std::count_if(passes.begin(), passes.end(),
                                      [](const PassReport& pass) { return !pass.forcedEndpoints.empty(); });
    EXPECT_EQ(1, forced) << "only the directory's stop forces a teardown";
}

TEST_F(DirectoryTest, OnlyTheStopOfTheServiceNamedExactlyDirectoryQueuesATeardown) {
    // Not activated: nothing takes the queue away.
    ServicePublisherTestAccess::serviceStopped(*publisher, kEndpoint, "Directory", testsupport::randomId());
    ServicePublisherTestAccess::serviceStopped(*publisher, kEndpoint, "directoryService", testsupport::randomId());
    EXPECT_THAT(ServicePublisherTestAccess::endpointsToForceTeardown(*publisher), IsEmpty());

    // Never reported as started, and still its stop counts.
    ServicePublisherTestAccess::serviceStopped(*publisher, kEndpoint, "directory", testsupport::randomId());
    ServicePublisherTestAccess::serviceStopped(*publisher, "inprocess", "directory", testsupport::randomId());
    EXPECT_THAT(ServicePublisherTestAccess::endpointsToForceTeardown(*publisher),
                UnorderedElementsAre(kEndpoint, "inprocess"));
}

TEST_F(DirectoryTest, ExpiredDuplicatesCarryTheSameNameMarkAndMajorVersionAndOnlyTheyLeave) {
    const auto expired = enter("Store", {{"generation", "old"}, {"spf::servicemajor", "2"}, {"other", "x"}});
    const auto alsoExpired = enter("Store", {{"generation", "old"}, {"spf::servicemajor", "2"}});
    const auto otherMajor = enter("Store", {{"generation", "old"}, {"spf::servicemajor", "3"}});
    const auto otherMark = enter("Store", {{"generation", "new"}, {"spf::servicemajor", "2"}});
    const auto unmarked = enter("Store", {{"spf::servicemajor", "2"}});
    const auto otherName = enter("Stores", {{"generation", "old"}, {"spf::servicemajor", "2"}});

    removeDuplicates("Store",
                     {{"spf::legacyservicepublisher::replaceMatchingKey", "generation"},
                      {"spf::legacyservicepublisher::replaceMatchingValue", "old"}},
                     2);

    EXPECT_THAT(listed("Store"), UnorderedElementsAre(otherMajor, otherMark, unmarked));
    EXPECT_THAT(listed("Stores"), ElementsAre(otherName));
    EXPECT_EQ(0u, listed("Store").count(expired) + listed("Store").count(alsoExpired));
    EXPECT_THAT(logLines(), IsEmpty());

    // Major version 0 is asked for as "0".
    const auto zero = enter("Store", {{"generation", "old"}, {"spf::servicemajor", "0"}});
    removeDuplicates("Store",
                     {{"spf::legacyservicepublisher::replaceMatchingKey", "generation"},
                      {"spf::legacyservicepublisher::replaceMatchingValue", "old"}},
                     0);
    EXPECT_EQ(0u, listed("Store").count(zero));
    EXPECT_EQ(1u, listed("Store").count(otherMajor));
}

TEST_F(DirectoryTest, WithoutBothReplaceMarksNothingLeavesAndOnlyAMissingValueIsLogged) {
    const auto kept = enter("Store", {{"generation", "old"}, {"spf::servicemajor", "1"}});

    removeDuplicates("Store", {{"spf::legacyservicepublisher::replaceMatchingValue", "old"}}, 1);
    removeDuplicates("Store", {}, 1);
    EXPECT_THAT(logLines(), IsEmpty());

    removeDuplicates("Store", {{"spf::legacyservicepublisher::replaceMatchingKey", "generation"}}, 1);
    EXPECT_THAT(logLines(), ElementsAre("0x100 replaceMatchingKey specified but no value provided"));
    EXPECT_THAT(listed("Store"), ElementsAre(kept));
}

TEST_F(DirectoryTest, AnUnreachableDirectoryIsLoggedAndNothingEscapes) {
    exchange.close();
    ASSERT_TRUE(testsupport::WaitFor([this] { return !container->getTransport()->isConnected(); }));

    removeDuplicates("Store",
                     {{"spf::legacyservicepublisher::replaceMatchingKey", "generation"},
                      {"spf::legacyservicepublisher::replaceMatchingValue", "old"}},
                     1);
    EXPECT_TRUE(ServicePublisherTestAccess::registerForCallbacks(*publisher, kEndpoint, *client).is_nil());

    const auto lines = logLines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ("0x100 Failed to remove expired services", lines[0]);
    EXPECT_THAT(lines[1], StartsWith("0x10 Exception caught: Directory service request failed: "));
    EXPECT_EQ("0x100 Failed to register for directory notifications on endpoint " + kEndpoint, lines[2]);
    EXPECT_THAT(lines[3], StartsWith("0x10 Exception caught: "));
}

}  // namespace
}  // namespace publishertest
