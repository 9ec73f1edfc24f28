#include "agent/spf/serialisation/avro/AvroEncoder.h"

#include <cstring>

namespace agent::spf::serialisation {

void AvroEncoder::writeBoolean(bool value) { out_.push_back(value ? 1 : 0); }

void AvroEncoder::writeInt(std::int32_t value) { writeLong(value); }

void AvroEncoder::writeLong(std::int64_t value) {
    // Zig-zag: the sign moves to bit 0, so small magnitudes of either sign stay short.
    const std::uint64_t bits = static_cast<std::uint64_t>(value);
    writeVarint((bits << 1) ^ (value < 0 ? ~std::uint64_t{0} : 0));
}

void AvroEncoder::writeFloat(float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    for (int i = 0; i < 4; ++i) {
        out_.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
    }
}

void AvroEncoder::writeDouble(double value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    for (int i = 0; i < 8; ++i) {
        out_.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
    }
}

void AvroEncoder::writeBytes(const void* data, std::size_t size) {
    writeLong(static_cast<std::int64_t>(size));
    out_.append(data, size);
}

void AvroEncoder::writeString(std::string_view text) { writeBytes(text.data(), text.size()); }

void AvroEncoder::writeFixed(const void* data, std::size_t size) { out_.append(data, size); }

void AvroEncoder::writeUnionIndex(std::size_t branch) { writeLong(static_cast<std::int64_t>(branch)); }

void AvroEncoder::writeBlockCount(std::size_t count) { writeLong(static_cast<std::int64_t>(count)); }

void AvroEncoder::writeVarint(std::uint64_t zigzagged) {
    while (zigzagged >= 0x80) {
        out_.push_back(static_cast<std::uint8_t>(zigzagged | 0x80));
        zigzagged >>= 7;
    }
    out_.push_back(static_cast<std::uint8_t>(zigzagged));
}

}  // namespace agent::spf::serialisation
