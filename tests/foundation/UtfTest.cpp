#include "foundation/text/Utf.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using foundation::text::toUtf16;
using foundation::text::toUtf8;

namespace {

struct RoundTrip {
    const char* name;
    std::string utf8;
    std::u16string utf16;
};

const RoundTrip kRoundTrips[] = {
    {"empty", "", u""},
    {"ascii", "legacy service", u"legacy service"},
    {"embedded nul", std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
    {"two-byte", "caf\xC3\xA9", u"caf\u00E9"},
    {"three-byte", "\xE2\x82\xAC 5", u"\u20AC 5"},
    {"last bmp before surrogates", "\xED\x9F\xBF", u"\uD7FF"},
    {"first after surrogates", "\xEE\x80\x80", u"\uE000"},
    {"bmp maximum", "\xEF\xBF\xBF", u"\uFFFF"},
    {"four-byte pair", "\xF0\x9F\x98\x80!", u"\U0001F600!"},
    {"highest code point", "\xF4\x8F\xBF\xBF", u"\U0010FFFF"},
    {"first supplementary", "\xF0\x90\x80\x80", u"\U00010000"},
};

TEST(UtfTest, ValidTextConvertsBothWays) {
    for (const auto& row : kRoundTrips) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(toUtf16(row.utf8), row.utf16);
        EXPECT_EQ(toUtf8(row.utf16), row.utf8);
    }
}

struct BadUtf8 {
    std::string input;
    const char* error;
};

const BadUtf8 kBadUtf8[] = {
    {"\x80", "Invalid UTF-8 lead byte at byte offset 0"},
    {"ab\xBF", "Invalid UTF-8 lead byte at byte offset 2"},
    {"\xF8\x88\x80\x80\x80", "Invalid UTF-8 lead byte at byte offset 0"},
    {"\xFF", "Invalid UTF-8 lead byte at byte offset 0"},
    {"x\xC3", "Truncated UTF-8 sequence at byte offset 1"},
    {"\xE2\x82", "Truncated UTF-8 sequence at byte offset 0"},
    {"\xF0\x9F\x98", "Truncated UTF-8 sequence at byte offset 0"},
    {"\xE2(\xAC", "Truncated UTF-8 sequence at byte offset 0"},
    {"ok\xC3 ", "Truncated UTF-8 sequence at byte offset 2"},
    {"\xC0\x80", "Overlong UTF-8 sequence at byte offset 0"},
    {"\xC1\xBF", "Overlong UTF-8 sequence at byte offset 0"},
    {"\xE0\x9F\xBF", "Overlong UTF-8 sequence at byte offset 0"},
    {"abc\xF0\x8F\xBF\xBF", "Overlong UTF-8 sequence at byte offset 3"},
    {"\xED\xA0\x80", "UTF-8 encodes a surrogate at byte offset 0"},
    {"z\xED\xBF\xBF", "UTF-8 encodes a surrogate at byte offset 1"},
    {"\xF4\x90\x80\x80", "UTF-8 code point above 0x10FFFF at byte offset 0"},
    {"\xF7\xBF\xBF\xBF", "UTF-8 code point above 0x10FFFF at byte offset 0"},
};

TEST(UtfTest, MalformedUtf8IsRefusedNamingTheByteOffset) {
    for (const auto& row : kBadUtf8) {
        SCOPED_TRACE(row.error);
        try {
            toUtf16(row.input);
            ADD_FAILURE() << "no exception";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), row.error);
        }
    }
}

struct BadUtf16 {
    std::u16string input;
    const char* error;
};

const BadUtf16 kBadUtf16[] = {
    {std::u16string(1, char16_t(0xD800)), "Unpaired high surrogate at unit offset 0"},
    {std::u16string(u"ab") + char16_t(0xDBFF), "Unpaired high surrogate at unit offset 2"},
    {std::u16string{char16_t(0xD83D), u'x'}, "Unpaired high surrogate at unit offset 0"},
    {std::u16string{char16_t(0xD83D), char16_t(0xD83D), char16_t(0xDE00)},
     "Unpaired high surrogate at unit offset 0"},
    {std::u16string(1, char16_t(0xDC00)), "Unpaired low surrogate at unit offset 0"},
    {std::u16string{u'a', char16_t(0xDE00), char16_t(0xD83D)}, "Unpaired low surrogate at unit offset 1"},
};

TEST(UtfTest, UnpairedSurrogatesAreRefusedNamingTheUnitOffset) {
    for (const auto& row : kBadUtf16) {
        SCOPED_TRACE(row.error);
        try {
            toUtf8(row.input);
            ADD_FAILURE() << "no exception";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), row.error);
        }
    }
}

TEST(UtfTest, EveryScalarValueRoundTrips) {
    std::u16string all;
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) {
            continue;
        }
        if (c < 0x10000) {
            all.push_back(static_cast<char16_t>(c));
        } else {
            all.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
            all.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        }
    }
    EXPECT_EQ(toUtf16(toUtf8(all)), all);
}

}  // namespace
