#include "support/Thrown.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <boost/uuid/uuid.hpp>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

using namespace agent::spf::serialisation;

namespace avrotest {
struct Empty {};
}  // namespace avrotest

template <>
struct agent::spf::serialisation::AvroCodec<avrotest::Empty> : AvroRecordCodec<avrotest::Empty> {};

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes fromHex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// Decodes from an exact-size heap copy, so an over-read shows under the address sanitizer.
template <class T>
T decodeExactCopy(const Bytes& input) {
    std::unique_ptr<std::uint8_t[]> copy(new std::uint8_t[input.size() + 1]);
    std::copy(input.begin(), input.end(), copy.get());
    return avroDecode<T>(copy.get(), input.size());
}

template <class T>
std::function<void(const Bytes&)> as() {
    return [](const Bytes& input) { (void)decodeExactCopy<T>(input); };
}

struct CorruptInput {
    const char* what;
    std::function<void(const Bytes&)> decode;
    std::string hex;
    std::string error;
};

}  // namespace

// Every strict prefix of a value is refused in AvroOracleTest; here one truncation per way of reading.
TEST(AvroDecoderTest, CorruptInputFailsWithItsExactText) {
    using IntArray = std::vector<std::int32_t>;
    const std::vector<CorruptInput> table = {
        {"varint cut after a continuation byte", as<std::int32_t>(), "80", "Avro data truncated"},
        {"int beyond 32 bits", as<std::int32_t>(), "ffffffff7f", "Avro int out of range"},
        {"int varint of six bytes", as<std::int32_t>(), "808080808001", "Avro varint too long"},
        {"long varint of eleven bytes", as<std::int64_t>(), "8080808080808080808001", "Avro varint too long"},
        {"long whose tenth byte overflows", as<std::int64_t>(), "ffffffffffffffffff7f", "Avro varint too long"},
        {"boolean neither 0 nor 1", as<bool>(), "02", "Invalid Avro boolean 2"},
        {"float of three bytes", as<float>(), "0000c0", "Avro data truncated"},
        {"string longer than the input", as<std::string>(), "066162", "Avro length beyond the remaining input 3"},
        {"string of negative length", as<std::string>(), "01", "Negative Avro length -1"},
        {"bytes of the largest length", as<Bytes>(), "feffffffffffffffff01",
         "Avro length beyond the remaining input 9223372036854775807"},
        {"array of the largest count", as<IntArray>(), "feffffffffffffffff01",
         "Avro block count beyond the remaining input 9223372036854775807"},
        {"array count that cannot be negated", as<IntArray>(), "ffffffffffffffffff01",
         "Avro block count out of range -9223372036854775808"},
        {"negative count with negative block size", as<IntArray>(), "0301", "Negative Avro block size -1"},
        {"negative count with block size beyond the input", as<IntArray>(), "01140200",
         "Avro block size beyond the remaining input 10"},
        {"array of three ints holding two", as<IntArray>(), "060204", "Avro block count beyond the remaining input 3"},
        {"two doubles in eight bytes", as<std::vector<double>>(), "040000000000000000",
         "Avro block count beyond the remaining input 2"},
        {"union index past the branches", as<std::optional<std::int32_t>>(), "04", "Invalid Avro union index 2"},
        {"negative union index", as<std::optional<std::int32_t>>(), "01", "Invalid Avro union index -1"},
        {"value followed by a stray byte", as<std::int32_t>(), "0200", "Avro value followed by 1 unexpected bytes"},
        {"too many items that take no bytes", as<std::vector<avrotest::Empty>>(), "80808002",
         "Avro block count beyond the remaining input 2097152"},
    };
    for (const CorruptInput& row : table) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(testsupport::ThrownText<std::runtime_error>([&] { row.decode(fromHex(row.hex)); }), row.error);
    }
}

TEST(AvroDecoderTest, BlocksWithNegativeCountsAndSeveralBlocksAreRead) {
    // -2 items in a block of 2 bytes, then a block of 1 item, then the end.
    EXPECT_EQ(decodeExactCopy<std::vector<std::int32_t>>(fromHex("03040204020600")),
              (std::vector<std::int32_t>{1, 2, 3}));
    const auto map = decodeExactCopy<std::map<std::string, std::int64_t>>(fromHex("030c026102026204" "00"));
    EXPECT_EQ(map, (std::map<std::string, std::int64_t>{{"a", 1}, {"b", 2}}));
    // Over-long but in-range varints are still numbers.
    EXPECT_EQ(decodeExactCopy<std::int32_t>(fromHex("8280808000")), 1);
    // Up to the budget, items that take no bytes are fine.
    EXPECT_EQ(decodeExactCopy<std::vector<avrotest::Empty>>(fromHex("0a00")).size(), 5u);
}

// A view over part of a buffer: reads and seeks stay within it, and a decoder never reads past it.
TEST(AvroDecoderTest, AStreamOverPartOfABufferNeverReadsOrSeeksPastThePart) {
    const Bytes whole = fromHex("06616263");  // "abc" encoded; the view ends before the 'c'
    NonOwningByteBufferViewIStreambuf part(whole.data(), 3);
    std::istream in(&part);
    EXPECT_EQ(testsupport::ThrownText<std::runtime_error>([&] { (void)avroDecode<std::string>(in); }),
              "Avro length beyond the remaining input 3");
    for (const auto& [offset, way, lands] : {std::tuple{-1, std::ios_base::end, 2}, {-3, std::ios_base::beg, -1},
                                             {4, std::ios_base::beg, -1}, {1, std::ios_base::beg, 1}}) {
        in.clear();
        in.seekg(offset, way);
        EXPECT_EQ(lands, in.fail() ? -1 : static_cast<int>(in.tellg())) << offset << " from " << way;
    }
    EXPECT_EQ('a', in.get());
    in.seekg(0);
    EXPECT_EQ(3u, part.remaining());
}
