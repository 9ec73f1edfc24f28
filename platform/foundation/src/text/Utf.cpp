#include "foundation/text/Utf.h"

#include <stdexcept>

namespace foundation::text {
namespace {

[[noreturn]] void failAtByte(const char* what, std::size_t offset) {
    throw std::invalid_argument(std::string(what) + " at byte offset " + std::to_string(offset));
}

[[noreturn]] void failAtUnit(const char* what, std::size_t offset) {
    throw std::invalid_argument(std::string(what) + " at unit offset " + std::to_string(offset));
}

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

void appendUtf16(std::u16string& out, char32_t codePoint) {
    if (codePoint < 0x10000) {
        out.push_back(static_cast<char16_t>(codePoint));
    } else {
        codePoint -= 0x10000;
        out.push_back(static_cast<char16_t>(0xD800 + (codePoint >> 10)));
        out.push_back(static_cast<char16_t>(0xDC00 + (codePoint & 0x3FF)));
    }
}

void appendUtf8(std::string& out, char32_t codePoint) {
    if (codePoint < 0x80) {
        out.push_back(static_cast<char>(codePoint));
    } else if (codePoint < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (codePoint >> 6)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else if (codePoint < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (codePoint >> 12)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (codePoint >> 18)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (codePoint & 0x3F)));
    }
}

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

std::u16string toUtf16(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    std::size_t at = 0;
    while (at < utf8.size()) {
        const auto lead = static_cast<unsigned char>(utf8[at]);
        if (lead < 0x80) {
            out.push_back(static_cast<char16_t>(lead));
            ++at;
            continue;
        }
        std::size_t length = 0;
        char32_t codePoint = 0;
        char32_t smallest = 0;  // anything below needs fewer bytes: overlong
        if (lead >= 0xC0 && lead <= 0xDF) {
            length = 2;
            codePoint = lead & 0x1F;
            smallest = 0x80;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            codePoint = lead & 0x0F;
            smallest = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF7) {
            length = 4;
            codePoint = lead & 0x07;
            smallest = 0x10000;
        } else {
            failAtByte("Invalid UTF-8 lead byte", at);  // a continuation byte, or 0xF8..0xFF
        }
        for (std::size_t i = 1; i < length; ++i) {
            if (at + i >= utf8.size() || !isContinuation(static_cast<unsigned char>(utf8[at + i]))) {
                failAtByte("Truncated UTF-8 sequence", at);
            }
            codePoint = (codePoint << 6) | (static_cast<unsigned char>(utf8[at + i]) & 0x3F);
        }
        if (codePoint < smallest) {
            failAtByte("Overlong UTF-8 sequence", at);
        }
        if (isHighSurrogate(codePoint) || isLowSurrogate(codePoint)) {
            failAtByte("UTF-8 encodes a surrogate", at);
        }
        if (codePoint > 0x10FFFF) {
            failAtByte("UTF-8 code point above 0x10FFFF", at);
        }
        appendUtf16(out, codePoint);
        at += length;
    }
    return out;
}

std::string toUtf8(std::u16string_view utf16) {
    std::string out;
    out.reserve(utf16.size());
    for (std::size_t at = 0; at < utf16.size(); ++at) {
        char32_t unit = utf16[at];
        if (isHighSurrogate(unit)) {
            if (at + 1 >= utf16.size() || !isLowSurrogate(utf16[at + 1])) {
                failAtUnit("Unpaired high surrogate", at);
            }
            unit = 0x10000 + ((unit - 0xD800) << 10) + (utf16[at + 1] - 0xDC00);
            ++at;
        } else if (isLowSurrogate(unit)) {
            failAtUnit("Unpaired low surrogate", at);
        }
        appendUtf8(out, unit);
    }
    return out;
}

}  // namespace foundation::text
