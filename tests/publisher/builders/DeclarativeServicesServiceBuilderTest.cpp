#include "agent/spf/legacyservicepublisher/DeclarativeServicesServiceBuilder.h"

#include "support/ContainerSupport.h"
#include "support/ServiceExchangeFixture.h"

#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace agent::spf::legacyservicepublisher {
namespace {

using agent::spf::serialisation::avroDecode;
using agent::spf::serialisation::avroEncode;
using namespace testsupport;

// One multipart part: an 8-byte big-endian size, then the value's Avro bytes.
template <class T>
std::string part(const T& value) {
    const auto encoded = avroEncode(value);
    std::string framed(8, '\0');
    for (int i = 7, size = static_cast<int>(encoded.size()); i >= 0; --i, size >>= 8) {
        framed[i] = static_cast<char>(size & 0xff);
    }
    return framed + std::string(reinterpret_cast<const char*>(encoded.data()), encoded.size());
}

core::ServiceInterface adder() {
    core::ServiceInterface adder("Adder", core::APIVersion(3, 1, 4), {{"purpose", "tests"}});
    adder.addMethod("add", [](std::int32_t a, std::int32_t b) { return a + b; });
    return adder;
}

std::shared_ptr<serialisation::SerialisationCatalogue> avroCatalogue() {
    auto catalogue = std::make_shared<serialisation::SerialisationCatalogue>();
    serialisation::registerAvroTypes(*catalogue);
    return catalogue;
}

// An exchange with its directory, a container the services run on, and a client container.
class DeclarativeServicesServiceBuilderTest : public testsupport::ServiceExchangeFixture {
protected:
    DeclarativeServicesServiceBuilderTest() : ServiceExchangeFixture("publisher-ds-builder-") {}
};

TEST_F(DeclarativeServicesServiceBuilderTest, ItsServicesRunTheInterfacesOwnMethodsOnAnExchange) {
    auto builder = DeclarativeServicesServiceBuilder::make_shared(adder(), avroCatalogue());
    auto service = builder->create();
    ASSERT_NE(service, nullptr);
    EXPECT_NE(builder->create(), service) << "each create() makes a new service";
    EXPECT_EQ(service->name(), "Adder");

    const auto instance = serviceContainer_->generateServiceInstance();
    ASSERT_TRUE(service->start({{}, serviceContainer_->createContext(instance)}));
    started_.push_back(service);
    const auto stub = directory_->lookupServiceInstance(instance, agent::core::serviceutils::APIVersion(0));
    ASSERT_TRUE(stub.isFound());
    EXPECT_EQ(stub.getVersion(), agent::core::serviceutils::APIVersion(3, 1, 4, 0));
    EXPECT_EQ(stub.getProperties().at("purpose"), "tests");

    const std::string request = part(std::int32_t(40)) + part(std::int32_t(2));
    const std::string reply = outcome(clientContainer_->getTransport()->sendRequest(
        stub.getMethods().at("add"), agent::core::transport::Message(std::string_view(request))));
    ASSERT_GT(reply.size(), 8u) << reply;
    EXPECT_EQ(reply.substr(0, 8), std::string(7, '\0') + char(reply.size() - 8)) << "one part";
    EXPECT_EQ(avroDecode<std::int32_t>(reinterpret_cast<const std::uint8_t*>(reply.data()) + 8, reply.size() - 8), 42);
}

TEST_F(DeclarativeServicesServiceBuilderTest, ANullCatalogueIsRefusedWhenTheBuilderIsMade) {
    try {
        DeclarativeServicesServiceBuilder::make_shared(adder(), nullptr);
        FAIL() << "made a builder without a catalogue";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "LegacyServiceBuilder needs a serialisation catalogue");
    }
}

}  // namespace
}  // namespace agent::spf::legacyservicepublisher
