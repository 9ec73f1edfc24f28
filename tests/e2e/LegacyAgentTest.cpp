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
#include <thread>

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
    for (const auto& [method, signature] : signatures) {
        metadata.emplace("spf.signature." + method, signature);
    }
    return metadata;
}

Message bytes(const std::string& text) {
    return Message(text.data(), text.size());
}

// "<verb> KeyValueStore", "<verb> Clock", "<verb> RawEcho": what a subscriber sees of one agent.
auto everyService(const std::string& verb) {
    return UnorderedElementsAre(verb + " KeyValueStore", verb + " Clock", verb + " RawEcho");
}

// A multipart request or reply put together by hand: each part's 8-byte big-endian size,
// then its bytes.
std::string framed(const std::vector<std::string>& parts) {
    std::string message;
    for (const auto& part : parts) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            message += static_cast<char>((static_cast<std::uint64_t>(part.size()) >> shift) & 0xff);
        }
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

std::vector<std::string> methodNames(const ServiceStub& stub) {
    std::vector<std::string> names;
    for (const auto& [name, address] : stub.getMethods()) {
        names.push_back(name);
    }
    return names;
}

TEST(LegacyAgentStartTest, UnreachableExchangeIsReportedWithExitStatusOne) {
    ChildProcess child(LEGACY_AGENT_PATH, {"--exchange", "ipc:///tmp/lsp-e2e-no-such-exchange.sock"},
                       ChildProcess::Stderr::Capture);
    EXPECT_EQ(child.readRemainingStdout(deadline()), "");
    const auto err = child.readRemainingStderr(deadline());
    const auto status = child.waitForExit(deadline());
    ASSERT_TRUE(status);
    EXPECT_EQ(ChildProcess::describe(*status), "exit status 1");
    EXPECT_THAT(err, HasSubstr("legacy-agent: "));
    EXPECT_THAT(err, HasSubstr("ipc:///tmp/lsp-e2e-no-such-exchange.sock"));
}

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
        if (found.size() != 1) {
            return {};
        }
        return directory().lookupServiceInstance(found[0], APIVersion(1));
    }

    // The reply's bytes, "error: <what>", "no answer" or "no method <m>".
    std::string call(const ServiceStub& stub, const std::string& method, const std::string& request = {}) {
        auto send = stub.getMethod(method);
        if (!send) {
            return "no method " + method;
        }
        return outcome(send(bytes(request)));
    }

    std::string url_;
};

TEST_F(LegacyAgentTest, ClientListsLooksUpAndCallsEveryService) {
    startLegacyAgent(url_);
    EXPECT_EQ(directory().queryDirectoryForServiceUUIDs("*").size(), 4u);  // with the directory itself
    EXPECT_EQ(directory().queryDirectoryForServicesMatchingMetadata("*", kMetadata).size(), 2u);
    EXPECT_TRUE(directory().queryDirectoryForServicesMatchingMetadata("*", {{"spf::servicemajor", "2"}}).empty());

    const auto store = find("KeyValueStore");
    ASSERT_TRUE(store.isFound());
    EXPECT_EQ(store.getVersion(), APIVersion(1, 0, 0, 0));
    EXPECT_EQ(store.getProperties(),
              withSignatures(kMetadata, {{"get", "(string) -> string"}, {"keys", "() -> array<string>"},
                                         {"put", "(string, string) -> void"}, {"remove", "(string) -> string"}}));
    EXPECT_THAT(methodNames(store), ElementsAre("get", "keys", "put", "remove"));
    const auto clock = find("Clock");
    ASSERT_TRUE(clock.isFound());
    EXPECT_EQ(clock.getProperties(),
              withSignatures(kMetadata, {{"echo", "(string) -> string"}, {"millisecondsSinceEpoch", "() -> long"},
                                         {"now", "() -> string"}}));
    EXPECT_THAT(methodNames(clock), ElementsAre("echo", "millisecondsSinceEpoch", "now"));
    const auto raw = find("RawEcho");
    ASSERT_TRUE(raw.isFound());
    EXPECT_EQ(raw.getProperties(), withSignatures(kRawMetadata, {{"echo", "(bytes) -> bytes"}}));
    EXPECT_THAT(methodNames(raw), ElementsAre("echo"));

    const std::string binary("a\0b\xff", 4);  // Avro strings carry any bytes
    EXPECT_EQ(call(store, "put", avro("colour"s, "blue"s)), kNoResult);
    EXPECT_EQ(call(store, "put", avro("blob"s, binary)), kNoResult);
    EXPECT_EQ(call(store, "get", avro("colour"s)), avro("blue"s));
    EXPECT_EQ(call(store, "get", avro("blob"s)), avro(binary));
    EXPECT_EQ(call(store, "keys"), avro(std::vector<std::string>{"blob", "colour"}));
    EXPECT_EQ(call(store, "remove", avro("colour"s)), avro("blue"s));
    EXPECT_EQ(call(store, "get", avro("colour"s)), "error: No such key");
    EXPECT_EQ(call(store, "remove", avro("colour"s)), "error: No such key");
    EXPECT_EQ(call(store, "keys"), avro(std::vector<std::string>{"blob"}));

    EXPECT_EQ(call(clock, "echo", avro("\0binary\n"s)), avro("\0binary\n"s));
    // 24 characters: a part of 25 bytes (0x19), the Avro length 24 (zigzag 0x30), the text.
    const auto now = call(clock, "now");
    EXPECT_TRUE(std::regex_match(now, std::regex(R"(\0{7}\x19\x30)"
                                                 R"(20\d\d-[01]\d-[0-3]\dT[0-2]\d:[0-5]\d:[0-6]\d\.\d{3}Z)")))
        << now;
    const auto before = std::chrono::system_clock::now();
    const auto reply = call(clock, "millisecondsSinceEpoch");
    ASSERT_GT(reply.size(), 8u) << reply;
    const auto ms = agent::spf::serialisation::avroDecode<std::int64_t>(
        reinterpret_cast<const std::uint8_t*>(reply.data()) + 8, reply.size() - 8);
    EXPECT_EQ(reply, avro(ms));  // one part, the value alone
    const std::chrono::system_clock::time_point since{std::chrono::milliseconds(ms)};
    EXPECT_TRUE(before - 1ms < since && since <= std::chrono::system_clock::now());
    EXPECT_EQ(call(clock, "put"), "no method put");

    // Single framing: the bytes alone, whatever they look like.
    for (const auto& request : {"\0raw\xff"s, ""s, avro("x"s)}) {
        EXPECT_EQ(call(raw, "echo", request), request);
    }
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

TEST_F(LegacyAgentTest, SubscriptionSeesServicesStartAndARetrospectiveOneSeesThoseAlreadyRunning) {
    auto& fresh = subscribe(url_, DirectoryServiceClient::OnlyNewChanges);
    startLegacyAgent(url_);
    fresh.waitForCount(3, deadline());
    EXPECT_THAT(fresh.summary(), everyService("started"));

    auto& everything = subscribe(url_, DirectoryServiceClient::Retrospectively);
    everything.waitForCount(4, deadline());
    EXPECT_THAT(everything.summary(), UnorderedElementsAre("started directory", "started KeyValueStore",
                                                           "started Clock", "started RawEcho"));

    auto& byMetadata = subscribe(url_, DirectoryServiceClient::Retrospectively, boost::none, kRawMetadata);
    ASSERT_EQ(byMetadata.waitForCount(1, deadline()).size(), 1u);
    EXPECT_THAT(byMetadata.summary(), ElementsAre("started RawEcho"));

    auto& byName = subscribe(url_, DirectoryServiceClient::Retrospectively, std::string("Clock"));
    ASSERT_EQ(byName.waitForCount(1, deadline()).size(), 1u);
    EXPECT_EQ(byName.entries()[0].instance, find("Clock").getServiceInstance());

    // A second agent, its names prefixed: the fresh subscription sees it, the name-filtered
    // one only its own clock.
    startLegacyAgent(url_, {"--name-prefix", "second."});
    EXPECT_TRUE(fresh.waitFor(true, "second.RawEcho", deadline()));
    EXPECT_EQ(directory().queryDirectoryForServiceUUIDs("second.*").size(), 3u);
    EXPECT_THAT(byName.summary(), ElementsAre("started Clock"));
}

// The agent killed (SIGKILL: the exchange notices the lost connection) or terminated (SIGTERM:
// it withdraws its services itself, then exits 0).
class LegacyAgentStopTest : public LegacyAgentTest, public ::testing::WithParamInterface<int> {};

TEST_P(LegacyAgentStopTest, StoppedAgentsServicesAreReportedStoppedAndLeaveTheDirectory) {
    auto& agent = startLegacyAgent(url_);
    auto& log = subscribe(url_, DirectoryServiceClient::OnlyNewChanges);
    agent.signal(GetParam());
    const auto signalled = Clock::now();
    ASSERT_TRUE(log.waitUntil([](const auto& entries) { return entries.size() >= 3; }, deadline()))
        << ::testing::PrintToString(log.summary());
    EXPECT_THAT(log.summary(), everyService("stopped"));
    const auto& entries = log.entries();
    const auto last = std::max({entries[0].at, entries[1].at, entries[2].at});
    // A second after a kill is the goal; recorded, not asserted, as timings vary with the machine.
    const auto ms = std::chrono::duration_cast<std::chrono::microseconds>(last - signalled).count() / 1000.0;
    std::cout << "[ measured ] stopped notifications " << ms << " ms after "
              << (GetParam() == SIGKILL ? "SIGKILL" : "SIGTERM") << " of legacy-agent\n";
    RecordProperty("stoppedNotificationsAfterSignalMs", std::to_string(ms));
    EXPECT_EQ(directory().queryDirectoryForServiceUUIDs("*").size(), 1u);
    const auto status = agent.waitForExit(deadline());
    ASSERT_TRUE(status);
    EXPECT_EQ(ChildProcess::describe(*status), GetParam() == SIGKILL ? "killed by signal 9" : "exit status 0");
}

INSTANTIATE_TEST_SUITE_P(Signals, LegacyAgentStopTest, ::testing::Values(SIGTERM, SIGKILL),
                         [](const auto& info) { return info.param == SIGKILL ? "Killed" : "Terminated"; });

TEST_F(LegacyAgentTest, AgentWhoseExchangeIsGoneStillStopsCleanlyOnSigterm) {
    auto& agent = startLegacyAgent(url_);
    exchange().signal(SIGKILL);
    ASSERT_TRUE(exchange().waitForExit(deadline()));
    agent.signal(SIGTERM);
    const auto signalled = Clock::now();
    const auto status = agent.waitForExit(deadline());
    ASSERT_TRUE(status);
    EXPECT_EQ(ChildProcess::describe(*status), "exit status 0");
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - signalled).count();
    std::cout << "[ measured ] legacy-agent without its exchange stopped " << ms << " ms after SIGTERM\n";
    RecordProperty("stopWithoutExchangeMs", std::to_string(ms));
}

// The exchange stopped cleanly (SIGTERM) or crashed (SIGKILL, leaving its socket file and
// registry entry behind), then started again on the same endpoint.
class LegacyAgentRestartTest : public LegacyAgentTest, public ::testing::WithParamInterface<int> {};

TEST_P(LegacyAgentRestartTest, RestartedExchangeGetsTheAgentsServicesBackWithTheStoreIntact) {
    auto& agent = startLegacyAgent(url_);
    EXPECT_EQ(call(find("KeyValueStore"), "put", avro("kept"s, "across restarts"s)), kNoResult);
    const auto before = directory().queryDirectoryForServicesMatchingMetadata("*", kMajorOne);
    endClient();

    exchange().signal(GetParam());
    const auto status = exchange().waitForExit(deadline());
    ASSERT_TRUE(status);
    EXPECT_EQ(ChildProcess::describe(*status), GetParam() == SIGKILL ? "killed by signal 9" : "exit status 0");
    const auto restarted = Clock::now();
    ASSERT_EQ(startExchange("e2e", endpoint()), url_);

    ASSERT_TRUE(testsupport::WaitFor(
        [&] { return directory().queryDirectoryForServicesMatchingMetadata("*", kMajorOne).size() == 3; }, 20s));
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - restarted).count();
    std::cout << "[ measured ] services listed again " << ms << " ms after the exchange restarted (after "
              << ::strsignal(GetParam()) << ")\n";
    RecordProperty("servicesBackAfterRestartMs", std::to_string(ms));
    EXPECT_FALSE(agent.hasExited());
    EXPECT_EQ(call(find("KeyValueStore"), "get", avro("kept"s)), avro("across restarts"s));
    EXPECT_EQ(call(find("Clock"), "echo", avro("still here"s)), avro("still here"s));
    EXPECT_EQ(call(find("RawEcho"), "echo", "raw too"), "raw too");
    // Fresh instances: the old ones went with the old directory.
    for (const auto& instance : directory().queryDirectoryForServicesMatchingMetadata("*", kMajorOne)) {
        EXPECT_EQ(std::count(before.begin(), before.end(), instance), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Stops, LegacyAgentRestartTest, ::testing::Values(SIGTERM, SIGKILL),
                         [](const auto& info) { return info.param == SIGKILL ? "Killed" : "Terminated"; });

TEST_F(LegacyAgentTest, ConcurrentClientsOnEightThreadsEachFindTheirOwnEntries) {
    startLegacyAgent(url_);
    const auto store = find("KeyValueStore");
    ASSERT_TRUE(store.isFound());
    constexpr int kThreads = 8;
    constexpr int kPerThread = 100;
    testsupport::Barrier start(kThreads);
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const auto put = store.getMethod("put");
            const auto get = store.getMethod("get");
            start.ArriveAndWait();
            std::vector<agent::core::transport::ReplyFuture> puts;
            for (int i = 0; i < kPerThread; ++i) {
                const std::string key = std::to_string(t) + "/" + std::to_string(i);
                puts.push_back(put(bytes(avro(key, "value of " + key))));
            }
            for (auto& reply : puts) {
                if (outcome(std::move(reply)) != kNoResult) {
                    return;
                }
            }
            for (int i = 0; i < kPerThread; ++i) {
                const std::string key = std::to_string(t) + "/" + std::to_string(i);
                if (outcome(get(bytes(avro(key)))) == avro("value of " + key)) {
                    ++right;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right.load(), kThreads * kPerThread);
}

}  // namespace
}  // namespace e2e
