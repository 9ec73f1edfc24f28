// The in-process exchange: which discovery service the publisher uses, and the "inprocess"
// connection made through it, with the real in-process discovery registered in a framework.

#include "ServicePublisherFixture.h"

#include "support/WaitFor.h"

#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"
#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"

#include <cppmicroservices/ServiceRegistration.h>

#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace publishertest {
namespace {

using Access = ServicePublisherTestAccess;
using agent::spf::inprocessdiscovery::InProcessDiscovery;
using agent::spf::inprocessdiscovery::InProcessExchangeDiscovery;
using ForceCleanup = ServicePublisher::ForceCleanup;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

// A discovery service that cannot hand out clients.
class RefusingDiscovery final : public InProcessDiscovery {
public:
    std::unique_ptr<agent::directory::DirectoryServiceClient> getFrameworkDiscoveryService(unsigned int) const override {
        throw std::runtime_error("no exchange here");
    }
};

class InProcessTest : public ServicePublisherFixture {
protected:
    void SetUp() override {
        ServicePublisherFixture::SetUp();
        activate();  // opens the tracker
        ASSERT_TRUE(recorder->waitForCount(1));
    }

    cppmicroservices::ServiceRegistration<InProcessDiscovery> offer(std::shared_ptr<InProcessDiscovery> discovery,
                                                                   cppmicroservices::ServiceProperties properties = {}) {
        return context.RegisterService<InProcessDiscovery>(std::move(discovery), properties);
    }

    bool inUse(const std::shared_ptr<InProcessDiscovery>& discovery) {
        return testsupport::WaitFor([&] { return Access::inProcessDiscoveryInUse(*publisher) == discovery; });
    }
};

TEST_F(InProcessTest, TheFirstDiscoveryServiceStaysInUseUntilItGoesAndAnotherMustComeAnew) {
    auto first = std::make_shared<InProcessExchangeDiscovery>();
    auto second = std::make_shared<InProcessExchangeDiscovery>();
    auto firstRegistration = offer(first);
    ASSERT_TRUE(inUse(first));
    EXPECT_TRUE(Access::hasInProcess(*publisher));

    auto secondRegistration = offer(second);
    secondRegistration.Unregister();
    EXPECT_EQ(first, Access::inProcessDiscoveryInUse(*publisher)) << "the second was never used";

    secondRegistration = offer(second);
    firstRegistration.Unregister();
    EXPECT_FALSE(Access::hasInProcess(*publisher)) << "a service already tracked does not take over";
    auto third = std::make_shared<InProcessExchangeDiscovery>();
    auto thirdRegistration = offer(third);
    EXPECT_TRUE(inUse(third));
}

TEST_F(InProcessTest, ADiscoveryServiceMarkedAsSelfPublishedIsIgnoredWhateverTheMarksValue) {
    auto own = std::make_shared<InProcessExchangeDiscovery>();
    auto registration = offer(own, {{"spf::legacyservicepublisher::selfPublished", cppmicroservices::Any(false)}});
    auto other = std::make_shared<InProcessExchangeDiscovery>();
    auto otherRegistration = offer(other);
    // Tracker callbacks come in order: once the later one is in use, the marked one was seen.
    EXPECT_TRUE(inUse(other));
}

TEST_F(InProcessTest, TheInProcessConnectionWatchesTheExchangeAndGivesEachServiceAFreshContext) {
    // Asked for, so that the work thread keeps it while the discovery service is there.
    publisher->Updated("qz.spf.legacyservicepublisher~demo",
                       configuration(1, {Any(std::string("inprocess"))}, {}));
    auto discovery = std::make_shared<InProcessExchangeDiscovery>();
    auto registration = offer(discovery);
    ASSERT_TRUE(inUse(discovery));

    Access::addInProcessExchangeEndpoint(*publisher);
    const auto subscription = Access::subscriptionOf(*publisher, "inprocess");
    ASSERT_FALSE(subscription.is_nil());
    EXPECT_THAT(logLines(), Contains("0x4 Found inprocess discovery service"));
    EXPECT_TRUE(testsupport::WaitFor([this] {
        const auto lines = logLines();
        return std::find(lines.begin(), lines.end(),
                         "0x4 Service started notification for directory on endpoint inprocess") != lines.end();
    }));
    {
        const auto first = Access::contextOn(*publisher, "inprocess", 2);
        const auto second = Access::contextOn(*publisher, "inprocess", 2);
        EXPECT_TRUE(first.isValid());
        EXPECT_NE(first.getServiceInstance(), second.getServiceInstance());
    }

    // A second call leaves the connection there alone.
    Access::addInProcessExchangeEndpoint(*publisher);
    EXPECT_EQ(subscription, Access::subscriptionOf(*publisher, "inprocess"));

    // The service going: no longer in use at once; the connection keeps it alive until the
    // work thread has torn the connection down.
    std::weak_ptr<InProcessDiscovery> watched = discovery;
    registration.Unregister();
    registration = {};  // a registration keeps its service object even when unregistered
    discovery.reset();
    EXPECT_FALSE(Access::hasInProcess(*publisher));
    EXPECT_TRUE(testsupport::WaitFor([this] { return Access::connectedEndpoints(*publisher).empty(); }));
    EXPECT_THAT(logLines(), Contains("0x4 Had inprocess discovery, but it has gone away, cleaning up"));
    EXPECT_TRUE(watched.expired());
}

TEST_F(InProcessTest, ADiscoveryServiceThatRefusesGivesNoConnectionAndSaysWhy) {
    auto refusing = std::make_shared<RefusingDiscovery>();
    auto registration = offer(refusing);
    ASSERT_TRUE(inUse(refusing));
    capture->clear();

    Access::addInProcessExchangeEndpoint(*publisher);
    EXPECT_THAT(Access::connectedEndpoints(*publisher), IsEmpty());
    EXPECT_THAT(logLines(), ElementsAre("0x4 Found inprocess discovery service",
                                        "0x4 Obtaining a FrameworkDiscoveryService threw an exception",
                                        "0x10 Exception caught: no exchange here"));
}

}  // namespace
}  // namespace publishertest
