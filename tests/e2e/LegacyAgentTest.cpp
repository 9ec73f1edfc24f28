// legacy-agent as a process on a real agent-exchange: what clients find in the directory
// and call (Avro values in parts, or raw bytes), what subscribers are told as it comes and
// goes, and how it survives a restart of the exchange.

#include "ProcessFixture.h"

#include "support/Barrier.h"
#include "support/WaitFor.h"

#include "agent/spf/serialisation/avro/Avro.h"

#include <gmock/gmock.h>

#include <boost/optional/optional_io.hpp>

#include <string.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <regex>

namespace e2e {
namespace {

using agent::core::serviceutils::APIVersion;
using agent::core::serviceutils::ServiceStub;
using agent::core::transport::Message;
using agent::directory::DirectoryServiceClient;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::UnorderedElementsAre;

using namespace std::string_literals;

const std::map<std::string, std::string> kMetadata{
    {"spf.wireFormat", "application/octet-stream+spf/avro+spf/multipart"}, {"spf::servicemajor", "1"}};
const std::map<std::string, std::string> kRawMetadata{{"spf.wireFormat", "application/octet-stream"},
                                                      {"spf::servicemajor", "1"}};
const std::map<std::string, std::string> kMajorOne{{"spf::servicemajor", "1"}};

// `metadata` with "spf.signature.<method>" for each of `signatures`.
std::map<std::string, std::string> withSignatures(std::map<std::string, std::string> metadata,
                                                  const std::map<std::string, std::string>& signatures) {
    for (const auto& [method, signature] : signatures) metadata.emplace("spf.signature." + method, signature);
    return metadata;
}

Message bytes(const std::string& text) { return Message(text.data(), text.size()); }

// A multipart request or reply put together by hand: each part's 8-byte big-endian size,
// then its bytes.
std::string framed(const std::vector<std::string>& parts) {
    std::string message;
    for (const auto& part : parts) {
        for (int shift = 56; shift >= 0; shift -= 8) message += static_cast<char>((std::uint64_t{part.size()} >> shift) & 0xff);
        message += part;
    }
    return message;
}

// The values in Avro binary, one part each: a typed request, or with one value a reply.
template <class... T>
std::string avro(const T&... values) {
    const auto text = [](const agent::spf::serialisation::ByteBuffer& b) {
        return std::string(reinterpret_cast<const char*>(b.data()), b.size());
    };
    return framed({text(agent::spf::serialisation::avroEncode(values))...});
}

// The reply of a method without a result: one empty part.
const std::string kNoResult(8, '\0');

class LegacyAgentTest : public ProcessFixture {
protected:
    void SetUp() override {
        ProcessFixture::SetUp();
        url_ = startExchange("e2e", endpoint());
    }

    DirectoryServiceClient& directory() { return client(url_); }

    // The running instance named `name`; a stub that is not found when there is none.
    ServiceStub find(const std::string& name) {
        const auto found = directory().queryDirectoryForServiceUUIDs(name);
        return found.size() != 1 ? ServiceStub() : directory().lookupServiceInstance(found[0], APIVersion(1));
    }

    // The reply's bytes, "error: <what>", "no answer" or "no method <m>".
    std::string call(const ServiceStub& stub, const std::string& method, const std::string& request = {}) {
        auto send = stub.getMethod(method);
        return send ? outcome(send(bytes(request))) : "no method " + method;
    }

    std::string url_;
};

// Each service's entry carries its wire format, major version and a signature per method; each
// row is a call in order and its reply (Avro strings carry any bytes; RawEcho echoes bytes alone).
TEST_F(LegacyAgentTest, ClientListsLooksUpAndCallsEveryService) {
    startLegacyAgent(url_);
    EXPECT_EQ(directory().queryDirectoryForServiceUUIDs("*").size(), 4u);  // with the directory itself
    const std::map<std::string, ServiceStub> stubs{{"store", find("KeyValueStore")}, {"clock", find("Clock")},
                                                   {"raw", find("RawEcho")}};
    EXPECT_EQ(stubs.at("store").getVersion(), APIVersion(1, 0, 0, 0));
    EXPECT_EQ(stubs.at("store").getProperties(),
              withSignatures(kMetadata, {{"get", "(string) -> string"}, {"keys", "() -> array<string>"},
                                         {"put", "(string, string) -> void"}, {"remove", "(string) -> string"}}));
    EXPECT_EQ(stubs.at("clock").getProperties(),
              withSignatures(kMetadata, {{"echo", "(string) -> string"}, {"millisecondsSinceEpoch", "() -> long"},
                                         {"now", "() -> string"}}));
    EXPECT_EQ(stubs.at("raw").getProperties(), withSignatures(kRawMetadata, {{"echo", "(bytes) -> bytes"}}));
    const std::string binary("a\0b\xff", 4);
    const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
        {"store", "put", avro("colour"s, "blue"s), kNoResult},
        {"store", "put", avro("blob"s, binary), kNoResult},
        {"store", "get", avro("colour"s), avro("blue"s)},
        {"store", "get", avro("blob"s), avro(binary)},
        {"store", "keys", "", avro(std::vector<std::string>{"blob", "colour"})},
        {"store", "remove", avro("colour"s), avro("blue"s)},
        {"store", "get", avro("colour"s), "error: No such key"},
        {"store", "remove", avro("colour"s), "error: No such key"},
        {"store", "keys", "", avro(std::vector<std::string>{"blob"})},
        {"clock", "echo", avro("\0binary\n"s), avro("\0binary\n"s)},
        {"clock", "put", "", "no method put"},
        {"raw", "echo", "\0raw\xff"s, "\0raw\xff"s},
        {"raw", "echo", "", ""},
        {"raw", "echo", avro("x"s), avro("x"s)},
    };
    for (const auto& [service, method, request, reply] : rows) {
        EXPECT_EQ(call(stubs.at(service), method, request), reply) << service << " " << method;
    }
    // 24 characters: a part of 25 bytes (0x19), the Avro length 24 (zigzag 0x30), the text.
    const auto now = call(stubs.at("clock"), "now");
    EXPECT_TRUE(std::regex_match(now, std::regex(R"(\0{7}\x19\x30)"
                                                 R"(20\d\d-[01]\d-[0-3]\dT[0-2]\d:[0-5]\d:[0-6]\d\.\d{3}Z)")))
        << now;
    const auto before = std::chrono::system_clock::now();
    const auto reply = call(stubs.at("clock"), "millisecondsSinceEpoch");
    ASSERT_GT(reply.size(), 8u) << reply;
    const auto ms = agent::spf::serialisation::avroDecode<std::int64_t>(
        reinterpret_cast<const std::uint8_t*>(reply.data()) + 8, reply.size() - 8);
    EXPECT_EQ(reply, avro(ms));  // one part, the value alone
    const std::chrono::system_clock::time_point since{std::chrono::milliseconds(ms)};
    EXPECT_TRUE(before - 1ms < since && since <= std::chrono::system_clock::now());
    // A second agent beside it, its names prefixed.
    startLegacyAgent(url_, {"--name-prefix", "second."});
    EXPECT_EQ(directory().queryDirectoryForServiceUUIDs("second.*").size(), 3u);
    EXPECT_EQ(call(find("second.Clock"), "echo", avro("two"s)), avro("two"s));
}

TEST_F(LegacyAgentTest, MalformedRequestsGetClearRefusalsAndTheStoreGoesOn) {
    startLegacyAgent(url_);
    const auto store = find("KeyValueStore");
    ASSERT_TRUE(store.isFound());
    const std::string parts = "error: Number of parts in Message does not match number of expected arguments";
    const std::string k = avro("k"s).substr(8);
    const struct {
        std::string method;
        std::string request;
        std::string outcome;  // "error: <what>"
    } cases[] = {
        {"put", "", parts},
        {"put", framed({k}), parts},
        {"put", framed({k, k, k}), parts},
        {"keys", framed({""}), parts},
        {"get", "\0\0\0\0\0"s,
         "error: Invalid message - cannot determine buffer size: 5 bytes left at offset 0, 8 needed"},
        {"get", std::string(8, '\xff') + k, "error: Invalid message - reported data size larger than buffer"},
        {"get", framed({"\x01"}), "error: Invalid argument 0 of method get: Negative Avro length -1"},
        {"get", framed({k + "?"}),
         "error: Invalid argument 0 of method get: Avro value followed by 1 unexpected bytes"},
        {"put", framed({k, "\x0a" "ab"}),
         "error: Invalid argument 1 of method put: Avro length beyond the remaining input 5"},
        {"put", avro(""s, "v"s), "error: Key is empty"},
        {"put", avro("\0"s, "v"s), "error: Key holds a NUL byte"},
        {"put", avro(std::string(1025, 'k'), "v"s), "error: Key is longer than 1024 bytes"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(call(store, c.method, c.request), c.outcome) << c.method << " of " << c.request.size() << " bytes";
    }
    EXPECT_EQ(call(store, "keys"), avro(std::vector<std::string>{}));
    EXPECT_EQ(call(store, "put", avro(std::string(1024, 'k'), ""s)), kNoResult);
    EXPECT_EQ(call(store, "get", avro(std::string(1024, 'k'))), avro(""s));
}

// Prints and records how long something took since `since`: the goal, not an assertion, as
// timings vary with the machine.
void record(const std::string& property, const std::string& what, Clock::time_point since) {
    const auto ms = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - since).count() / 1000.0;
    std::cout << "[ measured ] " << what << " " << ms << " ms\n";
    ::testing::Test::RecordProperty(property, std::to_string(ms));
}

// The agent killed (SIGKILL: the exchange notices the lost connection) or terminated (SIGTERM:
// it withdraws its services itself, then exits 0), or terminated after its exchange was killed.
struct Stop {
    int signal;
    bool exchangeGone;
};
class LegacyAgentStopTest : public LegacyAgentTest, public ::testing::WithParamInterface<Stop> {};

TEST_P(LegacyAgentStopTest, StoppedAgentsServicesAreReportedStoppedAndLeaveTheDirectoryAndItExitsAsSignalled) {
    auto& agent = startLegacyAgent(url_);
    auto& log = subscribe(url_, DirectoryServiceClient::OnlyNewChanges);
    if (GetParam().exchangeGone) {
        exchange().signal(SIGKILL);
        ASSERT_TRUE(exchange().waitForExit(deadline()));
    }
    agent.signal(GetParam().signal);
    const auto signalled = Clock::now();
    if (!GetParam().exchangeGone) {
        const auto entries = log.waitFor(3);
        ASSERT_EQ(entries.size(), 3u);
        EXPECT_THAT(NotificationLog::lines(entries),
                    UnorderedElementsAre("stopped KeyValueStore", "stopped Clock", "stopped RawEcho"));
        record("stoppedNotificationsAfterSignalMs", "stopped notifications after the signal", signalled);
        EXPECT_EQ(directory().queryDirectoryForServiceUUIDs("*").size(), 1u);
    }
    const auto status = agent.waitForExit(deadline());
    ASSERT_TRUE(status);
    EXPECT_EQ(ChildProcess::describe(*status), GetParam().signal == SIGKILL ? "killed by signal 9" : "exit status 0");
    record("agentStoppedAfterSignalMs", "legacy-agent stopped after the signal", signalled);
}

INSTANTIATE_TEST_SUITE_P(Signals, LegacyAgentStopTest,
                         ::testing::Values(Stop{SIGTERM, false}, Stop{SIGKILL, false}, Stop{SIGTERM, true}),
                         [](const auto& info) {
                             return std::string(info.param.signal == SIGKILL ? "Killed" : "Terminated") +
                                    (info.param.exchangeGone ? "WithoutItsExchange" : "");
                         });

// The exchange crashed (SIGKILL, leaving its socket file and registry entry behind), then started
// again on the same endpoint: the agent enters fresh instances, the old ones having gone with the
// old directory. After a clean stop the agent's services come back to the publisher's
// exchange-process suite.
TEST_F(LegacyAgentTest, ExchangeRestartedAfterACrashGetsTheAgentsServicesBackWithTheStoreIntact) {
    auto& agent = startLegacyAgent(url_);
    EXPECT_EQ(call(find("KeyValueStore"), "put", avro("kept"s, "across restarts"s)), kNoResult);
    const auto before = directory().queryDirectoryForServicesMatchingMetadata("*", kMajorOne);
    endClient();
    exchange().signal(SIGKILL);
    ASSERT_TRUE(exchange().waitForExit(deadline()));
    const auto restarted = Clock::now();
    ASSERT_EQ(startExchange("e2e", endpoint()), url_);
    ASSERT_TRUE(testsupport::WaitFor(
        [&] { return directory().queryDirectoryForServicesMatchingMetadata("*", kMajorOne).size() == 3; }, 20s));
    record("servicesBackAfterRestartMs", "services listed again after the exchange restarted", restarted);
    EXPECT_FALSE(agent.hasExited());
    EXPECT_EQ(call(find("KeyValueStore"), "get", avro("kept"s)), avro("across restarts"s));
    EXPECT_EQ(call(find("RawEcho"), "echo", "raw too"), "raw too");
    for (const auto& instance : directory().queryDirectoryForServicesMatchingMetadata("*", kMajorOne)) {
        EXPECT_EQ(std::count(before.begin(), before.end(), instance), 0);
    }
}

TEST_F(LegacyAgentTest, ConcurrentClientsOnEightThreadsEachFindTheirOwnEntries) {
    startLegacyAgent(url_);
    const auto store = find("KeyValueStore");
    ASSERT_TRUE(store.isFound());
    constexpr int kThreads = 8;
    constexpr int kPerThread = 100;
    std::atomic<int> right{0};
    testsupport::RunConcurrently(kThreads, [&](int t) {
        const auto put = store.getMethod("put");
        const auto get = store.getMethod("get");
        const auto key = [t](int i) { return std::to_string(t) + "/" + std::to_string(i); };
        std::vector<agent::core::transport::ReplyFuture> puts;
        for (int i = 0; i < kPerThread; ++i) puts.push_back(put(bytes(avro(key(i), "value of " + key(i)))));
        for (auto& reply : puts) {
            if (outcome(std::move(reply)) != kNoResult) return;
        }
        for (int i = 0; i < kPerThread; ++i) right += outcome(get(bytes(avro(key(i))))) == avro("value of " + key(i));
    });
    EXPECT_EQ(right.load(), kThreads * kPerThread);
}

}  // namespace
}  // namespace e2e
