#include "support/Thrown.h"
#include "agent/spf/legacyservicewrapper/LegacyServiceBuilder.h"

#include "support/ContainerSupport.h"
#include "support/ServiceExchangeFixture.h"

#include "agent/spf/serialisation/avro/Avro.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <vector>

namespace agent::spf::legacyservicewrapper {
namespace {

using agent::core::serviceutils::ServiceStub;
using agent::core::transport::Message;
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
    for (int i = 7; i >= 0; --i, size >>= 8) field[i] = static_cast<char>(size & 0xff);
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

core::ServiceInterface calculator() {
    core::ServiceInterface calculator("Calculator", core::APIVersion(2, 3, 1), {{"owner", "tests"}});
    calculator.addMethod("add", [](std::int32_t a, std::int32_t b) { return a + b; });
    calculator.addMethod("greet", [](const std::string& name) { return "Hello, " + name; });
    calculator.addMethod("reset", [] {});
    calculator.addMethod("sums", [](const std::map<std::string, std::vector<std::int64_t>>&) {
        return std::map<std::string, std::int64_t>();
    });
    calculator.addMethod("describe", [](std::optional<std::string> text) { return text; });
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
// container that sends raw transport requests, framed by hand independently of the service side.
// Typed calls, a method's failure and stopping with calls in flight run end to end through the
// publisher; what is left is the entry, the wire's malformed requests, and a burst of callers.
class LegacyServiceBuilderTest : public testsupport::ServiceExchangeFixture {
protected:
    LegacyServiceBuilderTest() : ServiceExchangeFixture("spf-legacyservicewrapper-") {}

    // Starts a new service of `builder`; returns its stub as the directory lists it.
    ServiceStub start(const core::ServiceInterface& interface) {
        auto service = LegacyServiceBuilder::make_shared(interface, avroCatalogue())->create();
        const auto instance = serviceContainer_->generateServiceInstance();
        EXPECT_TRUE(service->start({{}, serviceContainer_->createContext(instance)}));
        started_.push_back(service);
        return directory_->lookupServiceInstance(instance, agent::core::serviceutils::APIVersion(0));
    }
    std::string call(const ServiceStub& stub, const std::string& method, const std::string& request) {
        return outcome(clientContainer_->getTransport()->sendRequest(stub.getMethods().at(method),
                                                                     Message(std::string_view(request))));
    }
};

TEST_F(LegacyServiceBuilderTest, AStartedServiceIsListedWithItsVersionMetadataAndSignatures) {
    auto stub = start(calculator());
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
                                                  {"spf.signature.greet", "(string) -> string"},
                                                  {"spf.signature.opaque", "(" + unregistered + ") -> int"},
                                                  {"spf.signature.reset", "() -> void"},
                                                  {"spf.signature.sums", "(map<array<long>>) -> map<long>"},
                                                  {"spf.signature.unwritable", "() -> " + unregistered}}));
    EXPECT_EQ(stub.getMethods().size(), 7u);
    // An interface's own wire format is kept; single framing carries one bare value.
    const std::string single = "application/octet-stream+spf/avro";
    core::ServiceInterface echo("Echo", core::APIVersion(1), {{"spf.wireFormat", single}});
    echo.addMethod("shout", [](const std::string& s) { return s + "!"; });
    auto echoStub = start(echo);
    EXPECT_EQ(echoStub.getMetadata("spf.wireFormat"), boost::optional<std::string>(single));
    EXPECT_EQ(call(echoStub, "shout", bytes(avroEncode(std::string("hey")))), bytes(avroEncode(std::string("hey!"))));
}

// Every row is refused with exactly its text, and the service goes on answering. The framing's
// own refusals reach legacy-agent's services in the process suite, and a burst of concurrent calls
// reaches a wrapped service through the publisher end to end.
TEST_F(LegacyServiceBuilderTest, MalformedRequestsAreRefusedWithClearTexts) {
    auto stub = start(calculator());
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
        {"add", one + two + one, countMismatch},
        {"add", one + sizeField(~std::uint64_t(0)) + "x", tooLarge},
        {"add", one + sizeField(0), "Invalid argument 1 of method add: Avro data truncated"},
        {"add", one + sizeField(2) + bytes(avroEncode(std::int32_t(7))) + "z",
         "Invalid argument 1 of method add: Avro value followed by 1 unexpected bytes"},
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
    EXPECT_EQ(call(stub, "reset", ""), std::string(8, '\0')) << "no result: one empty part";
}

TEST(LegacyServiceBuilderMakeShared, RefusesWhatItCannotServe) {
    core::ServiceInterface twoArguments("Pair", core::APIVersion(1), {{"spf.wireFormat", "text/plain"}});
    twoArguments.addMethod("join", [](const std::string& a, const std::string& b) { return a + b; });
    const std::vector<std::pair<std::function<void()>, std::string>> rows = {
        {[] { LegacyServiceBuilder::make_shared(calculator(), nullptr); },
         "LegacyServiceBuilder needs a serialisation catalogue"},
        {[] { LegacyServiceBuilder::make_shared(core::ServiceInterface("", core::APIVersion(1)), avroCatalogue()); },
         "A legacy service needs an interface name"},
        {[&] { LegacyServiceBuilder::make_shared(twoArguments, avroCatalogue()); },
         "Wire format text/plain has no parts for the arguments of method join"},
    };
    for (const auto& [make, failure] : rows) {
        EXPECT_EQ(testsupport::ThrownText<std::invalid_argument>(make), failure);
    }
}

}  // namespace
}  // namespace agent::spf::legacyservicewrapper
