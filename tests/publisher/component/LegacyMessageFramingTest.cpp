// The bytes of a legacy call and of its reply, with the real Avro catalogue.

#include "LegacyMessageFraming.h"

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
using agent::spf::serialisation::Deserialiser;
using Bytes = std::vector<std::uint8_t>;

class LegacyMessageFramingTest : public ::testing::Test {
protected:
    LegacyMessageFramingTest() { agent::spf::serialisation::registerAvroTypes(catalogue); }

    Bytes frame(GenericPayload arguments, bool multipart) const {
        const auto message =
            LegacyMessageFraming::frameRequest(std::move(arguments), catalogue, avroContentType, multipart);
        return Bytes(message.data(), message.data() + message.size());
    }
    // The int32 a reply holds, or the text of its refusal.
    std::string read(const Bytes& reply, bool multipart = true, Deserialiser reader = {}) const {
        const Message message(reply);
        try {
            return std::to_string(LegacyMessageFraming::readReply(message.makeView(0, message.size()),
                                                                  reader ? reader : int32Reader(), multipart)
                                      .get<std::int32_t>(0));
        } catch (const std::runtime_error& e) {
            return e.what();
        }
    }
    Deserialiser int32Reader() const { return catalogue.getDeserialiser(avroContentType, typeid(std::int32_t)); }

    agent::spf::serialisation::SerialisationCatalogue catalogue;
};

TEST_F(LegacyMessageFramingTest, EachArgumentIsAPartWithItsBigEndianSizeOrAloneWithoutMultipart) {
    // Avro: int 5 is zigzag 10; the string "hi" is its length (zigzag 4) and its bytes.
    EXPECT_EQ((Bytes{0, 0, 0, 0, 0, 0, 0, 1, 0x0a, 0, 0, 0, 0, 0, 0, 0, 3, 0x04, 'h', 'i'}),
              frame(GenericPayload::make(std::int32_t{5}, std::string("hi")), true));
    EXPECT_EQ((Bytes{0x0a, 0x04, 'h', 'i'}), frame(GenericPayload::make(std::int32_t{5}, std::string("hi")), false));
    EXPECT_TRUE(frame(GenericPayload(), true).empty());
    // A part larger than one chunk of the serialiser's output keeps one size field.
    const auto framed = frame(GenericPayload::make(std::string(200000, 'x')), true);
    ASSERT_GT(framed.size(), 8u);
    EXPECT_EQ(framed.size() - 8, (std::uint64_t{framed[5]} << 16) | (std::uint64_t{framed[6]} << 8) | framed[7]);
}

TEST_F(LegacyMessageFramingTest, AReplysFirstPartIsReadAndMalformedRepliesAreRefusedWithTheirSizes) {
    EXPECT_EQ("5", read({0, 0, 0, 0, 0, 0, 0, 1, 0x0a, 0xff, 0xff})) << "what follows the first part is ignored";
    EXPECT_EQ("5", read({0x0a}, false));
    EXPECT_EQ("Invalid message - buffer too small 7 < 8", read(Bytes(7, 0)));
    Bytes short100{0, 0, 0, 0, 0, 0, 0, 100};
    short100.resize(58, 0);
    EXPECT_EQ("Invalid message - reported data size larger than buffer (2) 58 < 108", read(short100));
    EXPECT_EQ("Invalid message - reported data size larger than buffer (2) 8 < more than 2^64", read(Bytes(8, 0xff)));
    // An empty value: eight zero bytes reach the reader with nothing to read.
    EXPECT_EQ("0", read(Bytes(8, 0), true, Deserialiser([](std::istream& in) {
                  return GenericPayload::make(std::int32_t{in.peek() == std::char_traits<char>::eof() ? 0 : -1});
              })));
}

}  // namespace
}  // namespace publishertest
