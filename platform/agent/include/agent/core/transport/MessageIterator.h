#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <type_traits>

namespace agent::core::transport {

// A random-access iterator over the bytes of one Message (or of a view on it). It
// remembers which message it belongs to, so that taking the difference of iterators
// of two different messages throws std::invalid_argument("Attempting to take difference
// between incompatible MessageIterators") instead of returning garbage.
// Invalidated like std::vector iterators: by any append to its message.
template <class Byte>
class BasicMessageIterator {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = std::remove_const_t<Byte>;
    using difference_type = std::ptrdiff_t;
    using pointer = Byte*;
    using reference = Byte&;

    BasicMessageIterator() noexcept = default;
    BasicMessageIterator(const void* owner, Byte* position) noexcept : owner_(owner), position_(position) {}
    // A mutable iterator converts to a const one.
    template <class Other, class = std::enable_if_t<std::is_same_v<const Other, Byte> && !std::is_same_v<Other, Byte>>>
    BasicMessageIterator(const BasicMessageIterator<Other>& other) noexcept
        : owner_(other.owner()), position_(other.position()) {}

    reference operator*() const noexcept { return *position_; }
    pointer operator->() const noexcept { return position_; }
    reference operator[](difference_type n) const noexcept { return position_[n]; }

    BasicMessageIterator& operator++() noexcept { ++position_; return *this; }
    BasicMessageIterator operator++(int) noexcept { auto old = *this; ++position_; return old; }
    BasicMessageIterator& operator--() noexcept { --position_; return *this; }
    BasicMessageIterator operator--(int) noexcept { auto old = *this; --position_; return old; }
    BasicMessageIterator& operator+=(difference_type n) noexcept { position_ += n; return *this; }
    BasicMessageIterator& operator-=(difference_type n) noexcept { position_ -= n; return *this; }
    friend BasicMessageIterator operator+(BasicMessageIterator it, difference_type n) noexcept { return it += n; }
    friend BasicMessageIterator operator+(difference_type n, BasicMessageIterator it) noexcept { return it += n; }
    friend BasicMessageIterator operator-(BasicMessageIterator it, difference_type n) noexcept { return it -= n; }

    // Throws std::invalid_argument when the iterators belong to different messages.
    friend difference_type operator-(const BasicMessageIterator& a, const BasicMessageIterator& b) {
        if (a.owner_ != b.owner_) {
            throw std::invalid_argument("Attempting to take difference between incompatible MessageIterators");
        }
        return a.position_ - b.position_;
    }

    friend bool operator==(const BasicMessageIterator& a, const BasicMessageIterator& b) noexcept {
        return a.position_ == b.position_;
    }
    friend bool operator!=(const BasicMessageIterator& a, const BasicMessageIterator& b) noexcept { return !(a == b); }
    friend bool operator<(const BasicMessageIterator& a, const BasicMessageIterator& b) noexcept {
        return a.position_ < b.position_;
    }
    friend bool operator>(const BasicMessageIterator& a, const BasicMessageIterator& b) noexcept { return b < a; }
    friend bool operator<=(const BasicMessageIterator& a, const BasicMessageIterator& b) noexcept { return !(b < a); }
    friend bool operator>=(const BasicMessageIterator& a, const BasicMessageIterator& b) noexcept { return !(a < b); }

    const void* owner() const noexcept { return owner_; }
    Byte* position() const noexcept { return position_; }

private:
    const void* owner_ = nullptr;
    Byte* position_ = nullptr;
};

using MessageIterator = BasicMessageIterator<std::uint8_t>;
using ConstMessageIterator = BasicMessageIterator<const std::uint8_t>;

}  // namespace agent::core::transport
