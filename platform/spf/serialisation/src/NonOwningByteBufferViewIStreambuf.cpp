#include "agent/spf/serialisation/NonOwningByteBufferViewIStreambuf.h"

#include <algorithm>
#include <climits>

namespace agent::spf::serialisation {

NonOwningByteBufferViewIStreambuf::NonOwningByteBufferViewIStreambuf(const void* data, std::size_t size) noexcept {
    // The get area is never written through: this buffer has no put area and keeps the
    // default pbackfail, which refuses to store a different character.
    char* begin = const_cast<char*>(static_cast<const char*>(data));
    if (begin == nullptr) {
        size = 0;
    }
    setg(begin, begin, begin + size);
}

void NonOwningByteBufferViewIStreambuf::consume(std::size_t count) noexcept {
    count = std::min(count, remaining());
    while (count > 0) {
        const int step = static_cast<int>(std::min<std::size_t>(count, INT_MAX));
        gbump(step);
        count -= static_cast<std::size_t>(step);
    }
}

std::streamsize NonOwningByteBufferViewIStreambuf::showmanyc() {
    const std::size_t left = remaining();
    return left == 0 ? -1 : static_cast<std::streamsize>(left);
}

NonOwningByteBufferViewIStreambuf::pos_type NonOwningByteBufferViewIStreambuf::seekoff(off_type offset,
                                                                                       std::ios_base::seekdir direction,
                                                                                       std::ios_base::openmode which) {
    if ((which & std::ios_base::in) == 0) {
        return pos_type(off_type(-1));
    }
    const off_type size = egptr() - eback();
    off_type base = 0;
    if (direction == std::ios_base::cur) {
        base = gptr() - eback();
    } else if (direction == std::ios_base::end) {
        base = size;
    }
    // Overflow-safe: offset is compared against the room on each side of base.
    if ((offset < 0 && offset < -base) || (offset > 0 && offset > size - base)) {
        return pos_type(off_type(-1));
    }
    const off_type target = base + offset;
    setg(eback(), eback() + target, egptr());
    return pos_type(target);
}

NonOwningByteBufferViewIStreambuf::pos_type NonOwningByteBufferViewIStreambuf::seekpos(pos_type position,
                                                                                       std::ios_base::openmode which) {
    return seekoff(off_type(position), std::ios_base::beg, which);
}

}  // namespace agent::spf::serialisation
