// The bytes of a legacy call and of its reply, with the real Avro catalogue. Requests of every
// type cross the exchange in the end-to-end suites; only a large one is looked at here.

#include "LegacyMessageFraming.h"

#include "support/Thrown.h"

#include "agent/spf/serialisation/avro/Avro.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace publishertest {
namespace {

using agent::core::transport::Message;
using agent::spf::core::GenericPayload;
using agent::spf::legacyservicepublisher::LegacyMessageFraming;
using agent::spf::serialisation::avroContentType;
using Bytes = std::vector<std::uint8_t>;

class LegacyMessageFramingTest : public ::testing::Test {
protected:
    LegacyMessageFramingTest() { agent::spf::serialisation::registerAvroTypes(catalogue); }

    // The int32 a reply holds.
    std::int32_t read(const Bytes& reply, bool multipart = true) const {
        const Message message(reply);
        const auto reader = catalogue.getDeserialiser(avroContentType, typeid(std::int32_t));
        return LegacyMessageFraming::readReply(message.makeView(0, message.size()), reader, multipart).get<std::int32_t>(0);
    }
    std::string refusal(const Bytes& reply) const {
        return testsupport::ThrownText<std::runtime_error>([&] { read(reply); });
    }

    agent::spf::serialisation::SerialisationCatalogue catalogue;
};

TEST_F(LegacyMessageFramingTest, AReplysFirstPartIsReadAndMalformedRepliesAreRefusedWithTheirSizes) {
    EXPECT_EQ(5, read({0, 0, 0, 0, 0, 0, 0, 1, 0x0a})) << "a part that fills the reply exactly";
    EXPECT_EQ(5, read({0, 0, 0, 0, 0, 0, 0, 1, 0x0a, 0xff, 0xff})) << "what follows the first part is ignored";
    EXPECT_EQ(5, read({0x0a}, false));
    EXPECT_EQ("Invalid message - buffer too small 7 < 8", refusal(Bytes(7, 0)));
    const std::string tooLarge = "Invalid message - reported data size larger than buffer (2) ";
    EXPECT_EQ(tooLarge + "9 < 108", refusal({0, 0, 0, 0, 0, 0, 0, 100, 1}));
    EXPECT_EQ(tooLarge + "8 < more than 2^64", refusal(Bytes(8, 0xff)));
}

// Its serialiser hands it over in several chunks.
TEST_F(LegacyMessageFramingTest, ARequestPartLargerThanOneChunkKeepsOneBigEndianSizeField) {
    const auto request = LegacyMessageFraming::frameRequest(GenericPayload::make(std::string(200000, 'x')), catalogue,
                                                            avroContentType, true);
    ASSERT_GT(request.size(), 8u);
    const std::uint8_t* size = request.data();
    EXPECT_EQ(request.size() - 8, (std::uint64_t{size[5]} << 16) | (std::uint64_t{size[6]} << 8) | size[7]);
}

}  // namespace
}  // namespace publishertest
