#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace agent::spf::legacyservicepublisher {

// The message of the exception being handled: what() of a standard exception, the diagnostic
// information of a Boost exception, "No diagnostic information available." for anything else.
// Call it only inside a catch block. Never throws except std::bad_alloc.
std::string currentExceptionMessage();

// Logs a failure as the two records every part of the component writes: `explanation` at
// `severity` (0x100 for most failures), then "Exception caught: " and the message of the exception
// being handled at 0x10. Each record is formed only when its severity is enabled. Call it only
// inside a catch block. Never throws.
void logCurrentException(std::uint32_t severity, std::string_view explanation) noexcept;

}  // namespace agent::spf::legacyservicepublisher
