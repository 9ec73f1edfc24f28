#include "foundation/text/Utf.h"

#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using foundation::text::toUtf16;
using foundation::text::toUtf8;
using testsupport::ThrownText;

namespace {

// The exact bytes of each sequence length and its edges; every other scalar value is
// covered by the round trip below.
TEST(UtfTest, ValidTextConvertsBothWays) {
    const std::pair<std::string, std::u16string> rows[] = {
        {"", u""},
        {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
        {"caf\xC3\xA9", u"caf\u00E9"},
        {"\xE2\x82\xAC 5", u"\u20AC 5"},
        {"\xF0\x90\x80\x80", u"\U00010000"},
        {"\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
    };
    for (const auto& [utf8, utf16] : rows) {
        EXPECT_EQ(toUtf16(utf8), utf16) << utf8;
        EXPECT_EQ(toUtf8(utf16), utf8) << utf8;
    }
    std::u16string all;
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c < 0xD800 || (c > 0xDFFF && c < 0x10000)) {
            all.push_back(static_cast<char16_t>(c));
        } else if (c >= 0x10000) {
            all.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
            all.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        }
    }
    EXPECT_EQ(toUtf16(toUtf8(all)), all);
}

TEST(UtfTest, MalformedTextIsRefusedNamingTheOffset) {
    const std::pair<std::string, const char*> utf8[] = {
        {"\x80", "Invalid UTF-8 lead byte at byte offset 0"},
        {"ab\xBF", "Invalid UTF-8 lead byte at byte offset 2"},
        {"\xF8\x88\x80\x80\x80", "Invalid UTF-8 lead byte at byte offset 0"},
        {"x\xC3", "Truncated UTF-8 sequence at byte offset 1"},
        {"\xF0\x9F\x98", "Truncated UTF-8 sequence at byte offset 0"},
        {"\xE2(\xAC", "Truncated UTF-8 sequence at byte offset 0"},
        {"\xC0\x80", "Overlong UTF-8 sequence at byte offset 0"},
        {"\xE0\x9F\xBF", "Overlong UTF-8 sequence at byte offset 0"},
        {"abc\xF0\x8F\xBF\xBF", "Overlong UTF-8 sequence at byte offset 3"},
        {"\xED\xA0\x80", "UTF-8 encodes a surrogate at byte offset 0"},
        {"z\xED\xBF\xBF", "UTF-8 encodes a surrogate at byte offset 1"},
        {"\xF4\x90\x80\x80", "UTF-8 code point above 0x10FFFF at byte offset 0"},
    };
    for (const auto& [input, error] : utf8) {
        EXPECT_EQ(ThrownText<std::invalid_argument>([&] { toUtf16(input); }), error);
    }
    const std::pair<std::u16string, const char*> utf16[] = {
        {std::u16string(u"ab") + char16_t(0xDBFF), "Unpaired high surrogate at unit offset 2"},
        {std::u16string{char16_t(0xD83D), char16_t(0xD83D), char16_t(0xDE00)},
         "Unpaired high surrogate at unit offset 0"},
        {std::u16string(1, char16_t(0xDC00)), "Unpaired low surrogate at unit offset 0"},
        {std::u16string{u'a', char16_t(0xDE00), char16_t(0xD83D)}, "Unpaired low surrogate at unit offset 1"},
    };
    for (const auto& [input, error] : utf16) {
        EXPECT_EQ(ThrownText<std::invalid_argument>([&] { toUtf8(input); }), error);
    }
}

}  // namespace
