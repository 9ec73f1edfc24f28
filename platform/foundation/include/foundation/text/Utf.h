#pragma once

#include <string>
#include <string_view>

namespace foundation::text {

// Strict conversions between UTF-8 and UTF-16. Pure functions, thread-safe.
//
// toUtf16 throws std::invalid_argument for a malformed input, naming the byte offset
// where the offending sequence starts:
//   "Invalid UTF-8 lead byte at byte offset N"
//   "Truncated UTF-8 sequence at byte offset N"      (continuation byte missing)
//   "Overlong UTF-8 sequence at byte offset N"
//   "UTF-8 encodes a surrogate at byte offset N"
//   "UTF-8 code point above 0x10FFFF at byte offset N"
std::u16string toUtf16(std::string_view utf8);

// toUtf8 throws std::invalid_argument for an unpaired surrogate, naming its unit offset:
//   "Unpaired high surrogate at unit offset N"
//   "Unpaired low surrogate at unit offset N"
std::string toUtf8(std::u16string_view utf16);

}  // namespace foundation::text
