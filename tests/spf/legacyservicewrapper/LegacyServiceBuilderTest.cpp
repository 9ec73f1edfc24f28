#include "agent/spf/legacyservicewrapper/LegacyServiceBuilder.h"

#include "support/Barrier.h"
#include "support/ContainerSupport.h"
#include "support/ServiceExchangeFixture.h"

#include "agent/spf/serialisation/avro/Avro.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace agent::spf::legacyservicewrapper {
namespace {

using agent::core::serviceutils::ServiceStub;
using agent::core::transport::Address;
using agent::core::transport::Message;
using serialisation::avroDecode;
using serialisation::avroEncode;
using serialisation::ByteBuffer;
using namespace testsupport;

const std::string kDefaultWireFormat = "application/octet-stream+spf/avro+spf/multipart";

// A type no catalogue knows.
struct Unregistered {
    int value = 0;
};

// An 8-byte big-endian size.
std::string sizeField(std::uint64_t size) {
    std::string field(8, '\0');
    for (int i = 7; i >= 0; --i) {
        field[i] = static_cast<char>(size & 0xff);
        size >>= 8;
    }
    return field;
}

std::string bytes(const ByteBuffer& buffer) {
    return std::string(reinterpret_cast<const char*>(buffer.data()), buffer.size());
}

// Frames every value as a part: written here by hand, independently of the service side.
template <class... T>
std::string framed(const T&... values) {
    std::string message;
    ((message += sizeField(avroEncode(values).size()) + bytes(avroEncode(values))), ...);
    return message;
}

// The value of a one-part reply.
template <class T>
T unframed(const std::string& reply) {
    EXPECT_GE(reply.size(), 8u) << "reply: " << reply;
    if (reply.size() < 8) {
        return T();
    }
    std::uint64_t size = 0;
    for (int i = 0; i < 8; ++i) {
        size = (size << 8) | static_cast<std::uint8_t>(reply[i]);
    }
    EXPECT_EQ(size, reply.size() - 8);
    return avroDecode<T>(reinterpret_cast<const std::uint8_t*>(reply.data()) + 8, reply.size() - 8);
}

core::ServiceInterface calculator(core::ServiceInterface::Metadata metadata = {{"owner", "tests"}}) {
    core::ServiceInterface calculator("Calculator", core::APIVersion(2, 3, 1), std::move(metadata));
    calculator.addMethod("add", [](std::int32_t a, std::int32_t b) { return a + b; });
    calculator.addMethod("greet", [](const std::string& name) { return "Hello, " + name; });
    calculator.addMethod("fail", [](const std::string& why) -> bool { throw std::runtime_error(why); });
    calculator.addMethod("reset", [] {});
    calculator.addMethod("sums", [](const std::map<std::string, std::vector<std::int64_t>>& groups) {
        std::map<std::string, std::int64_t> sums;
        for (const auto& [name, values] : groups) {
            for (auto value : values) {
                sums[name] += value;
            }
        }
        return sums;
    });
    calculator.addMethod("describe", [](std::optional<std::string> text) {
        return text ? std::optional<std::string>("some " + *text) : std::nullopt;
    });
    calculator.addMethod("opaque", [](const Unregistered& u) { return u.value; });
    calculator.addMethod("unwritable", [] { return Unregistered{1}; });
    return calculator;
}

std::shared_ptr<serialisation::SerialisationCatalogue> avroCatalogue() {
    auto catalogue = std::make_shared<serialisation::SerialisationCatalogue>();
    serialisation::registerAvroTypes(*catalogue);
    serialisation::registerAvroType<std::map<std::string, std::vector<std::int64_t>>>(*catalogue);
    return catalogue;
}

// An exchange (with its directory), a container the services run on and a plain client
// container that sends raw transport requests.
class LegacyServiceBuilderTest : public testsupport::ServiceExchangeFixture {
protected:
    LegacyServiceBuilderTest() : ServiceExchangeFixture("spf-legacyservicewrapper-") {}

    // Starts a new service of `builder`; returns its stub as the directory lists it.
    ServiceStub start(agent::core::service::ServiceBuilderBase& builder) {
        auto service = builder.create();
        EXPECT_NE(service, nullptr);
        const auto instance = serviceContainer_->generateServiceInstance();
        EXPECT_TRUE(service->start({{}, serviceContainer_->createContext(instance)}));
        started_.push_back(service);
        return directory_->lookupServiceInstance(instance, agent::core::serviceutils::APIVersion(0));
    }

    // Sends `request` to the method's address as a plain transport request.
    agent::core::transport::ReplyFuture send(const ServiceStub& stub, const std::string& method,
                                             const std::string& request) {
        const auto address = stub.getMethods().at(method);
        return clientContainer_->getTransport()->sendRequest(address, Message(std::string_view(request)));
    }
    std::string call(const ServiceStub& stub, const std::string& method, const std::string& request) {
        return outcome(send(stub, method, request));
    }
};

TEST_F(LegacyServiceBuilderTest, AStartedServiceIsListedWithItsVersionMetadataMethodsAndSignatures) {
    auto builder = LegacyServiceBuilder::make_shared(calculator(), avroCatalogue());
    auto stub = start(*builder);
    ASSERT_TRUE(stub.isFound());
    EXPECT_EQ(stub.getName(), "Calculator");
    EXPECT_EQ(stub.getVersion(), agent::core::serviceutils::APIVersion(2, 3, 1, 0));
    const std::string unregistered = "record:" + core::typeName(typeid(Unregistered));
    EXPECT_EQ(stub.getProperties(),
              (std::map<std::string, std::string>{{"owner", "tests"},
                                                  {"spf.wireFormat", kDefaultWireFormat},
                                                  {"spf::servicemajor", "2"},
                                                  {"spf.signature.add", "(int, int) -> int"},
                                                  {"spf.signature.describe", "(optional<string>) -> optional<string>"},
                                                  {"spf.signature.fail", "(string) -> boolean"},
                                                  {"spf.signature.greet", "(string) -> string"},
                                                  {"spf.signature.opaque", "(" + unregistered + ") -> int"},
                                                  {"spf.signature.reset", "() -> void"},
                                                  {"spf.signature.sums", "(map<array<long>>) -> map<long>"},
                                                  {"spf.signature.unwritable", "() -> " + unregistered}}));
    std::vector<std::string> methods;
    for (const auto& [name, address] : stub.getMethods()) {
        methods.push_back(name);
    }
    EXPECT_EQ(methods, (std::vector<std::string>{"add", "describe", "fail", "greet", "opaque", "reset", "sums",
                                                 "unwritable"}));
    EXPECT_EQ(directory_->queryDirectoryForServicesMatchingMetadata(
                  "Calculator", {{"spf::servicemajor", "2"}, {"spf.wireFormat", kDefaultWireFormat}}),
              std::vector<boost::uuids::uuid>{stub.getServiceInstance()});
}

TEST_F(LegacyServiceBuilderTest, FramedAvroRequestsFromAPlainTransportClientGetFramedAvroAnswers) {
    auto builder = LegacyServiceBuilder::make_shared(calculator(), avroCatalogue());
    auto stub = start(*builder);
    ASSERT_TRUE(stub.isFound());

    EXPECT_EQ(unframed<std::int32_t>(call(stub, "add", framed(std::int32_t(40), std::int32_t(2)))), 42);
    EXPECT_EQ(unframed<std::string>(call(stub, "greet", framed(std::string("Ada")))), "Hello, Ada");
    const std::map<std::string, std::vector<std::int64_t>> groups{{"a", {1, 2, 3}}, {"b", {}}, {"c", {-5}}};
    EXPECT_EQ((unframed<std::map<std::string, std::int64_t>>(call(stub, "sums", framed(groups)))),
              (std::map<std::string, std::int64_t>{{"a", 6}, {"c", -5}}));
    EXPECT_EQ(unframed<std::optional<std::string>>(
                  call(stub, "describe", framed(std::optional<std::string>("thing")))),
              std::optional<std::string>("some thing"));
    EXPECT_EQ(unframed<std::optional<std::string>>(call(stub, "describe", framed(std::optional<std::string>()))),
              std::nullopt);
    // A method without arguments takes an empty request; one without a result answers an
    // empty part.
    EXPECT_EQ(call(stub, "reset", ""), std::string(8, '\0'));
}

TEST_F(LegacyServiceBuilderTest, AMethodsExceptionReachesTheCallerAsAFailureWithItsText) {
    auto builder = LegacyServiceBuilder::make_shared(calculator(), avroCatalogue());
    auto stub = start(*builder);
    EXPECT_EQ(call(stub, "fail", framed(std::string("disk full"))), "error: disk full");
}

// Every row is refused with exactly its text, and the service goes on answering.
TEST_F(LegacyServiceBuilderTest, MalformedRequestsAreRefusedWithClearTexts) {
    auto builder = LegacyServiceBuilder::make_shared(calculator(), avroCatalogue());
    auto stub = start(*builder);
    const std::string one = framed(std::int32_t(1));
    const std::string two = framed(std::int32_t(2));
    const std::string countMismatch = "Number of parts in Message does not match number of expected arguments";
    const std::string tooLarge = "Invalid message - reported data size larger than buffer";
    struct Row {
        std::string method;
        std::string request;
        std::string failure;
    };
    const std::vector<Row> rows = {
        {"add", "", countMismatch},
        {"add", one, countMismatch},
        {"add", one + two + one, countMismatch},
        {"add", std::string(3, '\0'), "Invalid message - cannot determine buffer size: 3 bytes left at offset 0, 8 needed"},
        {"add", one + "12345",
         "Invalid message - cannot determine buffer size: 5 bytes left at offset " + std::to_string(one.size()) +
             ", 8 needed"},
        {"add", sizeField(100) + "ab", tooLarge},
        {"add", one + sizeField(~std::uint64_t(0)) + "x", tooLarge},
        {"add", one + sizeField(0), "Invalid argument 1 of method add: Avro data truncated"},
        {"add", one + sizeField(2) + bytes(avroEncode(std::int32_t(7))) + "z",
         "Invalid argument 1 of method add: Avro value followed by 1 unexpected bytes"},
        {"greet", sizeField(1) + "\x06", "Invalid argument 0 of method greet: Avro length beyond the remaining input 3"},
        {"describe", framed(std::int32_t(2)), "Invalid argument 0 of method describe: Invalid Avro union index 2"},
        {"reset", one, countMismatch},
        {"opaque", framed(std::int32_t(1)),
         "Invalid argument 0 of method opaque: No deserialiser registered for content type "
         "application/octet-stream+spf/avro and type " +
             core::typeName(typeid(Unregistered))},
        {"unwritable", "",
         "Result of method unwritable cannot be written: No serialiser registered for content type "
         "application/octet-stream+spf/avro and type " +
             core::typeName(typeid(Unregistered))},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(call(stub, row.method, row.request), "error: " + row.failure) << row.method << " request of "
                                                                                << row.request.size() << " bytes";
    }
    EXPECT_EQ(unframed<std::int32_t>(call(stub, "add", framed(std::int32_t(2), std::int32_t(3)))), 5);
}

TEST_F(LegacyServiceBuilderTest, StopWithdrawsTheEntryAndTheHandlers) {
    auto builder = LegacyServiceBuilder::make_shared(calculator(), avroCatalogue());
    auto stub = start(*builder);
    ASSERT_TRUE(stub.isFound());
    started_.back()->stop();
    EXPECT_TRUE(directory_->queryDirectoryForServiceUUIDs("Calculator").empty());
    EXPECT_EQ(call(stub, "greet", framed(std::string("late"))).rfind("error: ", 0), 0u);
}

TEST_F(LegacyServiceBuilderTest, EachCreatedServiceIsANewInstanceOfItsOwn) {
    auto builder = LegacyServiceBuilder::make_shared(calculator(), avroCatalogue());
    EXPECT_NE(builder->create(), builder->create());
    auto first = start(*builder);
    auto second = start(*builder);
    EXPECT_NE(first.getServiceInstance(), second.getServiceInstance());
    EXPECT_EQ(directory_->queryDirectoryForServiceUUIDs("Calculator").size(), 2u);
    EXPECT_EQ(unframed<std::int32_t>(call(second, "add", framed(std::int32_t(1), std::int32_t(1)))), 2);
}

TEST_F(LegacyServiceBuilderTest, AnInterfacesOwnWireFormatIsKeptAndSingleFramingCarriesOneBareValue) {
    const std::string single = "application/octet-stream+spf/avro";
    core::ServiceInterface echo("Echo", core::APIVersion(1), {{"spf.wireFormat", single}});
    echo.addMethod("shout", [](const std::string& s) { return s + "!"; });
    auto stub = start(*LegacyServiceBuilder::make_shared(echo, avroCatalogue()));
    EXPECT_EQ(stub.getMetadata("spf.wireFormat"), boost::optional<std::string>(single));
    EXPECT_EQ(stub.getMetadata("spf::servicemajor"), boost::optional<std::string>("1"));
    const auto reply = call(stub, "shout", bytes(avroEncode(std::string("hey"))));
    EXPECT_EQ(avroDecode<std::string>(reinterpret_cast<const std::uint8_t*>(reply.data()), reply.size()), "hey!");
}

TEST(LegacyServiceBuilderMakeShared, RefusesWhatItCannotServe) {
    struct Row {
        std::function<void()> make;
        std::string failure;
    };
    core::ServiceInterface twoArguments("Pair", core::APIVersion(1), {{"spf.wireFormat", "text/plain"}});
    twoArguments.addMethod("join", [](const std::string& a, const std::string& b) { return a + b; });
    const std::vector<Row> rows = {
        {[] { LegacyServiceBuilder::make_shared(calculator(), nullptr); },
         "LegacyServiceBuilder needs a serialisation catalogue"},
        {[] { LegacyServiceBuilder::make_shared(core::ServiceInterface("", core::APIVersion(1)), avroCatalogue()); },
         "A legacy service needs an interface name"},
        {[&] { LegacyServiceBuilder::make_shared(twoArguments, avroCatalogue()); },
         "Wire format text/plain has no parts for the arguments of method join"},
    };
    for (const auto& row : rows) {
        try {
            row.make();
            ADD_FAILURE() << "accepted; expected: " << row.failure;
        } catch (const std::invalid_argument& e) {
            EXPECT_EQ(std::string(e.what()), row.failure);
        }
    }
}

// Many callers at once, well-formed and malformed mixed: every request gets its own answer.
TEST_F(LegacyServiceBuilderTest, ConcurrentCallersEachGetTheirOwnAnswer) {
    auto builder = LegacyServiceBuilder::make_shared(calculator(), avroCatalogue());
    auto stub = start(*builder);
    constexpr int kThreads = 8;
    constexpr int kCallsEach = 20;
    testsupport::Barrier barrier(kThreads);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            barrier.ArriveAndWait();
            std::vector<std::pair<int, agent::core::transport::ReplyFuture>> pending;
            for (int i = 0; i < kCallsEach; ++i) {
                const int a = t * 1000 + i;
                const bool malformed = i % 5 == 4;
                pending.emplace_back(a, send(stub, "add", malformed ? framed(std::int32_t(a))
                                                                    : framed(std::int32_t(a), std::int32_t(a))));
            }
            for (auto& [a, future] : pending) {
                const auto answer = outcome(std::move(future));
                const bool malformed = (a % 1000) % 5 == 4;
                const bool right = malformed ? answer == "error: Number of parts in Message does not match number "
                                                         "of expected arguments"
                                             : unframed<std::int32_t>(answer) == 2 * a;
                if (!right) {
                    ++wrong;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

// Stopping while calls are in flight: each call ends with its answer or a failure, none hangs.
TEST_F(LegacyServiceBuilderTest, StopWhileCallsAreInFlightCompletesEveryCall) {
    std::atomic<int> entered{0};
    core::ServiceInterface slow("Slow", core::APIVersion(1));
    slow.addMethod("work", [&entered](std::int32_t x) {
        ++entered;
        return x;
    });
    auto stub = start(*LegacyServiceBuilder::make_shared(slow, avroCatalogue()));
    constexpr int kCalls = 64;
    std::vector<agent::core::transport::ReplyFuture> pending;
    for (int i = 0; i < kCalls; ++i) {
        pending.push_back(send(stub, "work", framed(std::int32_t(i))));
    }
    started_.back()->stop();
    int answered = 0;
    int failed = 0;
    for (auto& future : pending) {
        const auto answer = outcome(std::move(future));
        ASSERT_NE(answer, "no answer");
        answer.rfind("error: ", 0) == 0 ? ++failed : ++answered;
    }
    EXPECT_EQ(answered + failed, kCalls);
    EXPECT_LE(answered, entered.load());
}

}  // namespace
}  // namespace agent::spf::legacyservicewrapper
