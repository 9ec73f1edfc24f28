#include "support/Thrown.h"
#include "agent/directory/DirectoryCore.h"
#include "agent/directory/NamePattern.h"

#include "agent/directory/DirectoryTestSupport.h"
#include "support/NotificationLog.h"

#include <gtest/gtest.h>

namespace agent::directory {
namespace {

using core::serviceutils::APIVersion;
using directoryinterfaces::ServiceInstanceInfo;
using directoryinterfaces::ServiceNotification;
using testing::instance;
using testing::randomId;

// Records what a subscription was told, checking the sequence numbers count up without gaps.
struct Recorder {
    testsupport::NotificationLog log;
    std::atomic<std::uint64_t> lastSequence{0};
    std::atomic<bool> gap{false};

    DirectoryCore::Sink sink() {
        return [this, record = log.callback()](const auto&, const ServiceNotification& n, std::uint64_t sequence) {
            gap = gap || lastSequence.exchange(sequence) + 1 != sequence;
            record(n);
        };
    }
    std::vector<std::string> taken() {
        EXPECT_FALSE(gap);
        return testsupport::NotificationLog::lines(log.waitFor(0));
    }
};

TEST(NamePatternTest, StarsMatchRunsOfCharacters) {
    struct Row { const char* pattern; const char* name; bool matches; };
    const Row rows[] = {
        {"*", "anything", true},          {"**", "x", true},
        {"Key", "Key", true},             {"Key", "KeyValue", false},
        {"Key*", "KeyValue", true},       {"Key*", "Key", true},
        {"Key*", "key", false},           {"*Store", "KeyStore", true},
        {"*Store", "StoreKey", false},    {"a*b*c", "axxbyyc", true},
        {"a*b*c", "axxbyy", false},       {"a*c", "abcbc", true},
        {"", "", true},                   {"", "x", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(NamePattern(row.pattern).matches(row.name), row.matches) << row.pattern << " / " << row.name;
    }
}

TEST(DirectoryCoreTest, QueriesByPatternAndByEveryMetadataPair) {
    DirectoryCore directory;
    auto a = instance("KeyValue", {{"spf.wireFormat", "avro"}, {"tier", "gold"}});
    auto b = instance("KeyValueMirror", {{"spf.wireFormat", "avro"}, {"tier", "silver"}});
    auto c = instance("Clock", {{"spf.wireFormat", "avro"}});
    for (const auto& i : {a, b, c}) {
        directory.registerInstance(i);
    }
    EXPECT_EQ(directory.queryByName("KeyValue"), std::vector<boost::uuids::uuid>{a.instance});
    EXPECT_EQ(directory.queryByName("KeyValue*").size(), 2u);
    EXPECT_EQ(directory.queryByName("*Mirror"), std::vector<boost::uuids::uuid>{b.instance});
    EXPECT_TRUE(directory.queryByName("Nothing").empty());
    EXPECT_EQ(directory.queryByMetadata("*", {{"spf.wireFormat", "avro"}, {"tier", "gold"}}),
              std::vector<boost::uuids::uuid>{a.instance});
    EXPECT_TRUE(directory.queryByMetadata("Clock", {{"tier", "gold"}}).empty());
}

// It lists itself at the well-known address and cannot be removed; once shut down it takes no entry.
TEST(DirectoryCoreTest, ListsItselfAndRefusesItsOwnRemovalAndDuplicateAndNilInstances) {
    DirectoryCore directory;
    const auto self = core::transport::getWellKnowAddressFor(1);
    EXPECT_EQ(directory.queryByName("directory"), std::vector<boost::uuids::uuid>{self.getUUID()});
    EXPECT_EQ(directory.lookup(self.getUUID(), APIVersion(0))->methods.at("request"), self);
    EXPECT_THROW(directory.deregisterInstance(self.getUUID()), std::invalid_argument);
    auto a = instance("KeyValue");
    directory.registerInstance(a);
    EXPECT_EQ(testsupport::ThrownText<std::invalid_argument>([&] { directory.registerInstance(a); }),
              "Service instance " + boost::uuids::to_string(a.instance) + " is already registered");
    auto nil = instance("X");
    nil.instance = {};
    EXPECT_THROW(directory.registerInstance(nil), std::invalid_argument);
    EXPECT_EQ(directory.size(), 2u);
    directory.shutDown();
    EXPECT_THROW(directory.registerInstance(instance("late")), std::invalid_argument);
}

TEST(DirectoryCoreTest, LookupHonoursMajorVersionsAndTreatsZeroAsAny) {
    DirectoryCore directory;
    auto v2 = instance("Versioned");
    v2.version = APIVersion(2, 3);
    auto unversioned = instance("Old");
    directory.registerInstance(v2);
    directory.registerInstance(unversioned);

    EXPECT_EQ(directory.lookup(v2.instance, APIVersion(0))->version, APIVersion(2, 3));
    EXPECT_EQ(directory.lookup(v2.instance, APIVersion(2))->version, APIVersion(2, 3));
    EXPECT_TRUE(directory.lookup(v2.instance, APIVersion(2, 3)));
    EXPECT_FALSE(directory.lookup(v2.instance, APIVersion(2, 4)));
    EXPECT_FALSE(directory.lookup(v2.instance, APIVersion(1)));
    EXPECT_FALSE(directory.lookup(v2.instance, APIVersion(3)));
    // The consumer's second attempt after getting version 0 back.
    EXPECT_EQ(directory.lookup(unversioned.instance, APIVersion(0))->version, APIVersion(0));
    EXPECT_EQ(directory.lookup(unversioned.instance, APIVersion(1))->version, APIVersion(1));
    EXPECT_FALSE(directory.lookup(randomId(), APIVersion(0)));
}

TEST(DirectoryCoreTest, NodeGoneRemovesExactlyItsInstancesAndSubscriptions) {
    DirectoryCore directory;
    const auto node = randomId();
    auto mine1 = instance("Mine", {}, node);
    auto mine2 = instance("Mine", {}, node);
    auto other = instance("Other");
    Recorder watcher, nodesOwn;
    directory.subscribe({}, false, watcher.sink());
    directory.subscribe({}, false, nodesOwn.sink(), node);
    for (const auto& i : {mine1, mine2, other}) {
        directory.registerInstance(i);
    }
    auto removed = directory.deregisterNode(node);
    EXPECT_EQ(removed.size(), 2u);
    EXPECT_EQ(directory.queryByName("*").size(), 2u);
    EXPECT_EQ(directory.subscriptionCount(), 1u);
    EXPECT_EQ(watcher.taken(), (std::vector<std::string>{"started Mine", "started Mine", "started Other",
                                                         "stopped Mine", "stopped Mine"}));
    EXPECT_EQ(nodesOwn.taken().size(), 3u);  // it left before its own instances went
    EXPECT_TRUE(directory.deregisterNode(node).empty());
}

TEST(DirectoryCoreTest, SinkMayCallBackIntoTheDirectory) {
    DirectoryCore directory;
    Recorder later;
    boost::uuids::uuid own{};
    own = directory.subscribe({std::string("Trigger"), boost::none}, false,
                              [&](const boost::uuids::uuid&, const ServiceNotification&, std::uint64_t) {
                                  directory.registerInstance(instance("Echo"));
                                  directory.unsubscribe(own);
                              });
    directory.subscribe({}, false, later.sink());
    directory.registerInstance(instance("Trigger"));
    EXPECT_EQ(later.taken(), (std::vector<std::string>{"started Trigger", "started Echo"}));
    EXPECT_EQ(directory.subscriptionCount(), 1u);
}

}  // namespace
}  // namespace agent::directory
