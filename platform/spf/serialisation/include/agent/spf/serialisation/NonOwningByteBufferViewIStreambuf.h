#pragma once

#include <cstddef>
#include <cstdint>
#include <streambuf>
#include <utility>

namespace agent::spf::serialisation {

// A read-only stream buffer over a byte range it does not own (a message part, say), for an
// std::istream that deserialisers read from. Reads stop at the end of the range: nothing
// before or after it is ever touched. Seeking (tellg/seekg) works within the range.
//
// The range must outlive the buffer and stay unchanged while it is read. Not synchronised:
// one reader at a time, like any stream buffer. Nothing here throws.
class NonOwningByteBufferViewIStreambuf : public std::streambuf {
public:
    NonOwningByteBufferViewIStreambuf(const void* data, std::size_t size) noexcept;
    // Any contiguous byte container or view with data() and size(): ByteBuffer, MessageView,
    // std::vector<std::uint8_t>, std::string_view.
    template <class View, class = decltype(std::declval<const View&>().data()),
              class = decltype(std::declval<const View&>().size())>
    explicit NonOwningByteBufferViewIStreambuf(const View& view) noexcept
        : NonOwningByteBufferViewIStreambuf(view.data(), view.size()) {}

    // The unread part of the range, for readers that decode in place instead of copying.
    const std::uint8_t* current() const noexcept { return reinterpret_cast<const std::uint8_t*>(gptr()); }
    std::size_t remaining() const noexcept { return static_cast<std::size_t>(egptr() - gptr()); }
    // Marks `count` bytes as read (at most remaining()).
    void consume(std::size_t count) noexcept;

protected:
    std::streamsize showmanyc() override;
    pos_type seekoff(off_type offset, std::ios_base::seekdir direction, std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
};

}  // namespace agent::spf::serialisation
