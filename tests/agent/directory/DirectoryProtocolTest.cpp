#include "support/Thrown.h"
#include "directory/DirectoryProtocol.h"

#include "agent/directory/DirectoryTestSupport.h"

#include <boost/optional/optional_io.hpp>
#include <gtest/gtest.h>

#include <vector>

namespace agent::directory::protocol {
namespace {

using core::transport::Message;
using testing::randomId;

Message bytes(std::vector<std::uint8_t> b) {
    return Message(std::move(b));
}

std::vector<std::uint8_t> plus(std::vector<std::uint8_t> head, std::size_t zeros) {
    head.insert(head.end(), zeros, 0);
    return head;
}

// The refusal's text, or "no exception".
const auto failure = [](auto&& decode) { return testsupport::ThrownText<DirectoryProtocolError>(decode); };

TEST(DirectoryProtocolTest, MalformedRequestsAreRefusedWithExactTexts) {
    struct Row { std::vector<std::uint8_t> input; std::string error; };
    const std::vector<Row> rows = {
        {{}, "Directory message is truncated"},
        {{1}, "Directory message is truncated"},
        {{2, 1}, "Directory message has version 2; this directory speaks version 1"},
        {{1, 99}, "Directory message has unknown kind 99"},
        {{1, 64, 1}, "Directory message has unknown kind 64"},  // a reply is no request
        {plus({1, 2}, 15), "Directory message is truncated"},
        {plus({1, 2}, 17), "Directory message has 1 bytes after its end"},
        {{1, 3, 0xff, 0xff, 0xff, 0xff}, "Directory message is truncated"},
        {{1, 3, 0, 0, 0, 0, 2}, "Directory message has a flag byte of 2"},
        {{1, 3, 0, 0, 0, 0, 1, 0xff, 0xff, 0xff, 0xff},
         "Directory message claims 4294967295 entries, more than its bytes can hold"},
        {{1, 3, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0},
         "Directory message claims 2 entries, more than its bytes can hold"},
        // Register: name "", uuid, version, no metadata, a million methods.
        {plus(plus({1, 1, 0, 0, 0, 0}, 16 + 16 + 4), 0) , "Directory message is truncated"},
        {[] { auto b = plus({1, 1, 0, 0, 0, 0}, 16 + 16 + 4);
              b.insert(b.end(), {0, 0x10, 0, 0});
              return plus(b, 64); }(),
         "Directory message claims 1048576 entries, more than its bytes can hold"},
        {plus({1, 5}, 32), "Directory message is truncated"},
        {[] { auto b = plus({1, 5}, 32); b.push_back(3); return b; }(), "Directory message has a flag byte of 3"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(failure([&] { decodeRequest(bytes(row.input)); }), row.error) << ::testing::PrintToString(row.input);
    }
}

TEST(DirectoryProtocolTest, MalformedRepliesAndNotificationsAreRefusedWithExactTexts) {
    struct Row { std::vector<std::uint8_t> input; std::string error; };
    const std::vector<Row> replies = {
        {{1, 1}, "Directory message has unknown kind 1"},
        {{1, 64}, "Directory message is truncated"},
        {{1, 64, 7}, "Directory message has a flag byte of 7"},
        {plus({1, 65, 0, 0, 0x03, 0xe8}, 16), "Directory message claims 1000 entries, more than its bytes can hold"},
        {plus({1, 65, 0, 0, 0, 1}, 16), "no exception"},
        {{1, 66, 1}, "Directory message is truncated"},
        {plus({1, 67}, 20), "Directory message has 4 bytes after its end"},
    };
    for (const auto& row : replies) {
        EXPECT_EQ(failure([&] { decodeReply(bytes(row.input)); }), row.error) << ::testing::PrintToString(row.input);
    }
    EXPECT_EQ(failure([] { decodeNotification(bytes({1, 5})); }), "Directory message has unknown kind 5");
    EXPECT_EQ(failure([] { decodeNotification(bytes(plus({1, 7}, 24))); }), "Directory message is truncated");
}

// Most fields lost on the way show in calls through a real exchange (DirectoryServiceClientTest,
// tests/e2e); here the registration, whose four-part version those never use, and what nothing
// there reads: a subscriber's node and the answer that nothing was found.
TEST(DirectoryProtocolTest, RegistrationsSubscriberNodesAndEmptyLookupsSurviveTheRoundTrip) {
    directoryinterfaces::ServiceInstanceInfo info = testing::instance("KeyValue", {{"spf.wireFormat", "avro"}}, randomId());
    info.version = core::serviceutils::APIVersion(2, 1, 3, 4);
    info.methods["get"] = core::transport::Address(randomId());

    auto registered = boost::get<RegisterRequest>(decodeRequest(encode(Request(RegisterRequest{info})))).instance;
    EXPECT_EQ(registered.name, info.name);
    EXPECT_EQ(registered.instance, info.instance);
    EXPECT_EQ(registered.version, info.version);
    EXPECT_EQ(registered.metadata, info.metadata);
    EXPECT_EQ(registered.methods, info.methods);
    EXPECT_EQ(registered.node, info.node);

    SubscribeRequest subscribe{core::transport::Address(randomId()), randomId(), true, boost::none, boost::none};
    EXPECT_EQ(boost::get<SubscribeRequest>(decodeRequest(encode(Request(subscribe)))).node, subscribe.node);
    EXPECT_FALSE(boost::get<FoundReply>(decodeReply(encode(Reply(FoundReply{})))).instance);
    EXPECT_EQ(boost::get<FoundReply>(decodeReply(encode(Reply(FoundReply{info})))).instance->methods, info.methods);
}

TEST(DirectoryProtocolTest, EveryTruncationOfAValidMessageIsRefused) {
    directoryinterfaces::ServiceInstanceInfo info = testing::instance("KeyValue", {{"k", "v"}}, randomId());
    info.methods["get"] = core::transport::Address(randomId());
    const auto whole = encode(Request(RegisterRequest{info}));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        Message cut(whole.data(), size);
        EXPECT_NE(failure([&] { decodeRequest(cut); }), "no exception") << size;
    }
}

}  // namespace
}  // namespace agent::directory::protocol
