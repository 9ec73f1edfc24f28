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

class LegacyMessageFramingTest : public ::testing::Test {
protected:
    LegacyMessageFramingTest() { agent::spf::serialisation::registerAvroTypes(catalogue); }

    static std::vector<std::uint8_t> bytes(const Message& message) {
        return std::vector<std::uint8_t>(message.data(), message.data() + message.size());
    }

    // The failure text of reading `reply` as a multipart int32 result.
    std::string failureOf(const std::vector<std::uint8_t>& reply) const {
        const Message message(reply);
        try {
            LegacyMessageFraming::readReply(message.makeView(0, message.size()), int32Reader(), true);
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "no failure";
    }

    Deserialiser int32Reader() const { return catalogue.getDeserialiser(avroContentType, typeid(std::int32_t)); }

    agent::spf::serialisation::SerialisationCatalogue catalogue;
};

TEST_F(LegacyMessageFramingTest, EachArgumentIsAPartWithItsBigEndianSizeOrAloneWithoutMultipart) {
    // Avro: int 5 is zigzag 10; the string "hi" is its length (zigzag 4) and its bytes.
    EXPECT_EQ(bytes(LegacyMessageFraming::frameRequest(GenericPayload::make(std::int32_t{5}, std::string("hi")),
                                                       catalogue, avroContentType, true)),
              (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0, 1, 0x0a, 0, 0, 0, 0, 0, 0, 0, 3, 0x04, 'h', 'i'}));
    EXPECT_EQ(bytes(LegacyMessageFraming::frameRequest(GenericPayload::make(std::int32_t{5}, std::string("hi")),
                                                       catalogue, avroContentType, false)),
              (std::vector<std::uint8_t>{0x0a, 0x04, 'h', 'i'}));
    EXPECT_TRUE(LegacyMessageFraming::frameRequest(GenericPayload(), catalogue, avroContentType, true).empty());

    // A part larger than one chunk of the serialiser's output keeps one size field.
    const std::string large(200000, 'x');
    const auto framed = LegacyMessageFraming::frameRequest(GenericPayload::make(large), catalogue, avroContentType, true);
    ASSERT_GT(framed.size(), 8u);
    EXPECT_EQ(framed.size() - 8, (std::uint64_t{framed.data()[5]} << 16) | (std::uint64_t{framed.data()[6]} << 8) |
                                     framed.data()[7]);
}

TEST_F(LegacyMessageFramingTest, AReplysFirstPartIsReadAndWhatFollowsItIsIgnored) {
    const Message reply(std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0, 1, 0x0a, 0xff, 0xff});
    const auto result = LegacyMessageFraming::readReply(reply.makeView(0, reply.size()), int32Reader(), true);
    EXPECT_EQ(5, result.get<std::int32_t>(0));

    const Message single(std::vector<std::uint8_t>{0x0a});
    EXPECT_EQ(5, LegacyMessageFraming::readReply(single.makeView(0, 1), int32Reader(), false).get<std::int32_t>(0));
}

TEST_F(LegacyMessageFramingTest, MalformedRepliesAreRefusedWithTheirSizes) {
    EXPECT_EQ("Invalid message - buffer too small 7 < 8", failureOf(std::vector<std::uint8_t>(7, 0)));
    std::vector<std::uint8_t> short100{0, 0, 0, 0, 0, 0, 0, 100};
    short100.resize(58, 0);
    EXPECT_EQ("Invalid message - reported data size larger than buffer (2) 58 < 108", failureOf(short100));
    EXPECT_EQ("Invalid message - reported data size larger than buffer (2) 8 < more than 2^64",
              failureOf(std::vector<std::uint8_t>(8, 0xff)));

    // An empty value: eight zero bytes reach the reader with nothing to read.
    const Message empty(std::vector<std::uint8_t>(8, 0));
    EXPECT_THROW(LegacyMessageFraming::readReply(empty.makeView(0, 8), int32Reader(), true), std::exception);
    EXPECT_EQ(0u, LegacyMessageFraming::readReply(empty.makeView(0, 8),
                                                  Deserialiser([](std::istream& in) {
                                                      EXPECT_EQ(std::char_traits<char>::eof(), in.peek());
                                                      return GenericPayload();
                                                  }),
                                                  true)
                      .size());

    const Message reply(std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0, 1, 0x0a});
    try {
        LegacyMessageFraming::readReply(reply.makeView(0, reply.size()), Deserialiser(), true);
        FAIL() << "an invalid deserialiser read a reply";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("Attempt to invoke an invalid deserialiser - no deserialising function set", e.what());
    }
}

}  // namespace
}  // namespace publishertest
