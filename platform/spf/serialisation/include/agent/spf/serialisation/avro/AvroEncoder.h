#pragma once

#include "agent/spf/serialisation/ByteBuffer.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace agent::spf::serialisation {

// Writes Avro binary primitives to a buffer: the building blocks of AvroCodec
// specialisations. Arrays and maps are written as one block: writeBlockCount(n) then the n
// items (each map item its key string, then its value), then writeBlockCount(0); an empty
// collection is just writeBlockCount(0).
//
// Borrows the buffer, which must outlive the encoder. Not synchronised. Throws only
// std::bad_alloc.
class AvroEncoder {
public:
    explicit AvroEncoder(ByteBuffer& out) noexcept : out_(out) {}

    void writeBoolean(bool value);
    // int and long: zig-zag encoded variable-length integers.
    void writeInt(std::int32_t value);
    void writeLong(std::int64_t value);
    // IEEE 754, little-endian.
    void writeFloat(float value);
    void writeDouble(double value);
    // Length (a long), then the bytes.
    void writeBytes(const void* data, std::size_t size);
    void writeString(std::string_view text);
    // The bytes only: a fixed's size is part of its schema.
    void writeFixed(const void* data, std::size_t size);
    void writeUnionIndex(std::size_t branch);
    void writeBlockCount(std::size_t count);

private:
    void writeVarint(std::uint64_t zigzagged);

    ByteBuffer& out_;
};

}  // namespace agent::spf::serialisation
