#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

namespace agent::core::serviceutils {

// The version of a service's interface: major.minor.patch.build. Ordered field by field,
// major first. A value type.
class APIVersion {
public:
    constexpr APIVersion() noexcept = default;
    // Major only: APIVersion(2) is 2.0.0.0.
    constexpr explicit APIVersion(std::uint32_t major) noexcept : major_(major) {}
    constexpr APIVersion(std::uint32_t major, std::uint32_t minor, std::uint32_t patch = 0,
                         std::uint32_t build = 0) noexcept
        : major_(major), minor_(minor), patch_(patch), build_(build) {}

    constexpr std::uint32_t getMajor() const noexcept { return major_; }
    constexpr std::uint32_t getMinor() const noexcept { return minor_; }
    constexpr std::uint32_t getPatch() const noexcept { return patch_; }
    constexpr std::uint32_t getBuild() const noexcept { return build_; }
    // True for 0.0.0.0, which stands for "no particular version".
    constexpr bool isZero() const noexcept { return major_ == 0 && minor_ == 0 && patch_ == 0 && build_ == 0; }

    // "major.minor.patch.build".
    std::string toString() const {
        return std::to_string(major_) + '.' + std::to_string(minor_) + '.' + std::to_string(patch_) + '.' +
               std::to_string(build_);
    }

    friend constexpr bool operator==(const APIVersion& a, const APIVersion& b) noexcept { return a.tie() == b.tie(); }
    friend constexpr bool operator!=(const APIVersion& a, const APIVersion& b) noexcept { return !(a == b); }
    friend constexpr bool operator<(const APIVersion& a, const APIVersion& b) noexcept { return a.tie() < b.tie(); }
    friend constexpr bool operator>(const APIVersion& a, const APIVersion& b) noexcept { return b < a; }
    friend constexpr bool operator<=(const APIVersion& a, const APIVersion& b) noexcept { return !(b < a); }
    friend constexpr bool operator>=(const APIVersion& a, const APIVersion& b) noexcept { return !(a < b); }
    friend std::ostream& operator<<(std::ostream& out, const APIVersion& v) { return out << v.toString(); }

private:
    constexpr std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t> tie() const noexcept {
        return {major_, minor_, patch_, build_};
    }

    std::uint32_t major_ = 0;
    std::uint32_t minor_ = 0;
    std::uint32_t patch_ = 0;
    std::uint32_t build_ = 0;
};

}  // namespace agent::core::serviceutils
