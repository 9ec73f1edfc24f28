#include "agent/spf/serialisation/avro/AvroDecoder.h"

#include <cstring>
#include <limits>
#include <stdexcept>

namespace agent::spf::serialisation {

namespace {

[[noreturn]] void fail(const std::string& text) { throw std::runtime_error(text); }

std::int64_t unzigzag(std::uint64_t value) {
    return static_cast<std::int64_t>(value >> 1) ^ -static_cast<std::int64_t>(value & 1);
}

}  // namespace

bool AvroDecoder::readBoolean() {
    if (next_ == end_) {
        fail("Avro data truncated");
    }
    const std::uint8_t byte = *next_++;
    if (byte > 1) {
        fail("Invalid Avro boolean " + std::to_string(byte));
    }
    return byte == 1;
}

std::int32_t AvroDecoder::readInt() {
    const std::uint64_t zigzagged = readVarint(5);
    if (zigzagged > std::numeric_limits<std::uint32_t>::max()) {
        fail("Avro int out of range");
    }
    return static_cast<std::int32_t>(unzigzag(zigzagged));
}

std::int64_t AvroDecoder::readLong() { return unzigzag(readVarint(10)); }

float AvroDecoder::readFloat() {
    const std::uint8_t* bytes = takeFixed(4);
    std::uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) {
        bits |= std::uint32_t{bytes[i]} << (8 * i);
    }
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

double AvroDecoder::readDouble() {
    const std::uint8_t* bytes = takeFixed(8);
    std::uint64_t bits = 0;
    for (int i = 0; i < 8; ++i) {
        bits |= std::uint64_t{bytes[i]} << (8 * i);
    }
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::vector<std::uint8_t> AvroDecoder::readBytes() {
    const std::int64_t length = readLong();
    const std::uint8_t* bytes = take(length);
    return std::vector<std::uint8_t>(bytes, bytes + length);
}

std::string AvroDecoder::readString() {
    const std::int64_t length = readLong();
    const std::uint8_t* bytes = take(length);
    return std::string(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

void AvroDecoder::readFixed(void* out, std::size_t size) {
    const std::uint8_t* bytes = takeFixed(size);
    if (size != 0) {
        std::memcpy(out, bytes, size);
    }
}

std::size_t AvroDecoder::readUnionIndex(std::size_t branchCount) {
    const std::int64_t index = readLong();
    if (index < 0 || static_cast<std::uint64_t>(index) >= branchCount) {
        fail("Invalid Avro union index " + std::to_string(index));
    }
    return static_cast<std::size_t>(index);
}

std::size_t AvroDecoder::readBlockCount(std::size_t minimumItemSize) {
    std::int64_t count = readLong();
    if (count < 0) {
        if (count == std::numeric_limits<std::int64_t>::min()) {
            fail("Avro block count out of range " + std::to_string(count));
        }
        count = -count;
        const std::int64_t blockSize = readLong();
        if (blockSize < 0) {
            fail("Negative Avro block size " + std::to_string(blockSize));
        }
        if (static_cast<std::uint64_t>(blockSize) > remaining()) {
            fail("Avro block size beyond the remaining input " + std::to_string(blockSize));
        }
    }
    const auto items = static_cast<std::uint64_t>(count);
    if (minimumItemSize == 0) {
        if (items > emptyItemBudget_) {
            fail("Avro block count beyond the remaining input " + std::to_string(count));
        }
        emptyItemBudget_ -= static_cast<std::size_t>(items);
    } else if (items > remaining() / minimumItemSize) {
        fail("Avro block count beyond the remaining input " + std::to_string(count));
    }
    return static_cast<std::size_t>(items);
}

std::uint64_t AvroDecoder::readVarint(int maximumBytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < maximumBytes; ++i) {
        if (next_ == end_) {
            fail("Avro data truncated");
        }
        const std::uint8_t byte = *next_++;
        // The tenth byte of a long holds only bit 63.
        if (i == 9 && byte > 1) {
            fail("Avro varint too long");
        }
        value |= std::uint64_t{byte & 0x7Fu} << (7 * i);
        if ((byte & 0x80) == 0) {
            return value;
        }
    }
    fail("Avro varint too long");
}

const std::uint8_t* AvroDecoder::take(std::int64_t length) {
    if (length < 0) {
        fail("Negative Avro length " + std::to_string(length));
    }
    if (static_cast<std::uint64_t>(length) > remaining()) {
        fail("Avro length beyond the remaining input " + std::to_string(length));
    }
    const std::uint8_t* start = next_;
    next_ += length;
    return start;
}

const std::uint8_t* AvroDecoder::takeFixed(std::size_t size) {
    if (size > remaining()) {
        fail("Avro data truncated");
    }
    const std::uint8_t* start = next_;
    next_ += size;
    return start;
}

}  // namespace agent::spf::serialisation
