#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

namespace agent::spf::core {

// The version of an SPF interface: major.minor.patch.extension, ordered field by field,
// major first. A value type; every member is noexcept except toString (allocates).
struct APIVersion {
    // Brace-initialised below: glibc's <sys/sysmacros.h> defines function-like macros major() and minor().
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t patch = 0;
    std::uint32_t extension = 0;

    // Major only: APIVersion(2) is 2.0.0.0, the form used to ask for "any 2.x".
    constexpr explicit APIVersion(std::uint32_t majorVersion = 0) noexcept : major{majorVersion} {}
    constexpr APIVersion(std::uint32_t majorVersion, std::uint32_t minorVersion, std::uint32_t patchVersion = 0,
                         std::uint32_t extensionVersion = 0) noexcept
        : major{majorVersion}, minor{minorVersion}, patch{patchVersion}, extension{extensionVersion} {}

    constexpr std::uint32_t getMajor() const noexcept { return major; }
    constexpr std::uint32_t getMinor() const noexcept { return minor; }
    constexpr std::uint32_t getPatch() const noexcept { return patch; }
    constexpr std::uint32_t getExtension() const noexcept { return extension; }

    // "major.minor.patch.extension", e.g. "2.5.0.0".
    std::string toString() const;

    friend constexpr bool operator==(const APIVersion& a, const APIVersion& b) noexcept { return a.tie() == b.tie(); }
    friend constexpr bool operator!=(const APIVersion& a, const APIVersion& b) noexcept { return !(a == b); }
    friend constexpr bool operator<(const APIVersion& a, const APIVersion& b) noexcept { return a.tie() < b.tie(); }
    friend constexpr bool operator>(const APIVersion& a, const APIVersion& b) noexcept { return b < a; }
    friend constexpr bool operator<=(const APIVersion& a, const APIVersion& b) noexcept { return !(b < a); }
    friend constexpr bool operator>=(const APIVersion& a, const APIVersion& b) noexcept { return !(a < b); }
    friend std::ostream& operator<<(std::ostream& out, const APIVersion& v) { return out << v.toString(); }

private:
    constexpr std::tuple<std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t> tie() const noexcept {
        return {major, minor, patch, extension};
    }
};

}  // namespace agent::spf::core
