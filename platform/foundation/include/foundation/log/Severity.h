#pragma once

#include <cstdint>
#include <string>

namespace foundation::log {

// Severity flags of a diagnostic logger. A logger's mask is a set of these bits;
// callers may also pass the numeric values (0x04, 0x100) directly.
namespace severity {
constexpr std::uint32_t trace = 0x01;
constexpr std::uint32_t warning = 0x02;
constexpr std::uint32_t info = 0x04;
constexpr std::uint32_t debug = 0x08;
constexpr std::uint32_t exception = 0x10;
constexpr std::uint32_t error = 0x100;
}  // namespace severity

// The mask of a new logger unless FOUNDATION_LOG_MASK says otherwise.
constexpr std::uint32_t defaultSeverityMask =
    severity::warning | severity::info | severity::exception | severity::error;

// "trace", "warning", "info", "debug", "exception" or "error" for a single known flag;
// any other value is written in hex ("0x200"). Never throws except std::bad_alloc.
std::string severityName(std::uint32_t flag);

}  // namespace foundation::log
