#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace agent::spf::serialisation {

// Reads Avro binary primitives from a byte range it does not own, defensively: it never
// reads outside the range and never allocates more than the range could justify. Every
// malformed input fails with std::runtime_error and one of these texts:
//   "Avro data truncated"                                  (a value runs past the end)
//   "Avro varint too long"                                 (more than 10 bytes, or 5 for an int)
//   "Avro int out of range"                                (an int beyond 32 bits)
//   "Invalid Avro boolean " + byte
//   "Negative Avro length " + length
//   "Avro length beyond the remaining input " + length
//   "Invalid Avro union index " + index
//   "Negative Avro block size " + size, "Avro block size beyond the remaining input " + size
//   "Avro block count beyond the remaining input " + count
//   "Avro block count out of range " + count               (a negative count that cannot be negated)
//
// The range must outlive the decoder. Not synchronised. After a failure the decoder's
// position is unspecified.
class AvroDecoder {
public:
    // Collections of items that may take no bytes at all (a record without fields) cannot
    // be bounded by the input; together they are allowed this many items per decoder.
    static constexpr std::size_t maximumItemsOfEmptySize = 1u << 20;

    AvroDecoder(const std::uint8_t* data, std::size_t size) noexcept : next_(data), end_(data + size) {}

    bool readBoolean();
    std::int32_t readInt();
    std::int64_t readLong();
    float readFloat();
    double readDouble();
    std::vector<std::uint8_t> readBytes();
    std::string readString();
    void readFixed(void* out, std::size_t size);
    // The branch of a union of `branchCount` branches.
    std::size_t readUnionIndex(std::size_t branchCount);
    // The item count of the next block of an array or map; 0 ends the collection. A
    // negative count is followed by the block's size in bytes, which is checked and
    // skipped. minimumItemSize is the least number of bytes one item can take (0 if it can
    // take none); the count is checked against the input that is left.
    std::size_t readBlockCount(std::size_t minimumItemSize);

    std::size_t remaining() const noexcept { return static_cast<std::size_t>(end_ - next_); }

private:
    std::uint64_t readVarint(int maximumBytes);
    // Check the length and return where the bytes start, moving past them: take for a
    // length read from the input, takeFixed for a size the schema fixes.
    const std::uint8_t* take(std::int64_t length);
    const std::uint8_t* takeFixed(std::size_t size);

    const std::uint8_t* next_;
    const std::uint8_t* end_;
    std::size_t emptyItemBudget_ = maximumItemsOfEmptySize;
};

}  // namespace agent::spf::serialisation
