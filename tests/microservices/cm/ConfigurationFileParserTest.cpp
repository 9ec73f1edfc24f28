// Configuration files: the JSON parser's results and exact error texts, and
// which file names hold which configuration.

#include "ConfigurationFileName.h"
#include "ConfigurationFileParser.h"
#include "support/Thrown.h"

#include "cppmicroservices/Any.h"

#include <gtest/gtest.h>

#include <climits>
#include <stdexcept>
#include <string>
#include <vector>

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::any_cast;
using cppmicroservices::cmimpl::ConfigurationFileName;
using cppmicroservices::cmimpl::ConfigurationFileParser;

namespace
{
    // {"a": [[...0...]]}, depth levels deep.
    std::string
    Nested(int depth)
    {
        return "{\"a\":" + std::string(depth - 1, '[') + "0" + std::string(depth - 1, ']') + "}";
    }
} // namespace

TEST(ConfigurationFileParserTest, MalformedInputsAreRefusedWithExactTexts)
{
    struct Row
    {
        int line;
        std::string input;
        std::string error;
    };
    std::vector<Row> const rows = {
        { __LINE__, "", "not valid JSON: parse error at line 1, column 1: syntax error while parsing value - "
                        "unexpected end of input; expected '[', '{', or a literal" },
        { __LINE__, "{\"a\": 1e999}", "not valid JSON: number overflow parsing '1e999'" },
        { __LINE__, "{\"Port\": 1, \"port\": 2}", "keys that differ only in case: 'port'" },
        { __LINE__, "{\"o\": {\"K\": 1, \"k\": 2}}", "keys that differ only in case: 'k'" },
        { __LINE__, Nested(65), "nesting deeper than 64 levels" },
        { __LINE__, std::string(100000, '['), "nesting deeper than 64 levels" },
    };
    for (auto const& row : rows)
    {
        EXPECT_EQ(row.error, testsupport::ThrownText<std::runtime_error>([&] { ConfigurationFileParser::Parse(row.input); }))
            << "line " << row.line;
    }
}

TEST(ConfigurationFileParserTest, NumbersKeepTheirRangeMapsAreCaseInsensitiveAtEveryLevelAndNestingToTheLimitIsAccepted)
{
    AnyMap const properties = ConfigurationFileParser::Parse(R"({
        "min": -2147483648, "max": 2147483647, "below": -2147483649, "above": 2147483648,
        "huge": 18446744073709551615, "real": 1.0, "Outer": {"Inner": [{"Key": "v"}]},
        "nothing": null, "list": [true, "two", null]
    })");
    EXPECT_EQ(INT_MIN, any_cast<int>(properties.at("min")));
    EXPECT_EQ(INT_MAX, any_cast<int>(properties.at("max")));
    EXPECT_EQ(-2147483649LL, any_cast<long long>(properties.at("below")));
    EXPECT_EQ(2147483648LL, any_cast<long long>(properties.at("above")));
    EXPECT_EQ(18446744073709551615ULL, any_cast<unsigned long long>(properties.at("huge")));
    EXPECT_EQ(1.0, any_cast<double>(properties.at("real")));
    EXPECT_EQ("v", any_cast<std::string>(properties.AtCompoundKey("OUTER.inner.0.key")));
    EXPECT_EQ(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS, properties.GetType());
    EXPECT_EQ(0u, properties.count("nothing")) << "a null member is left out";
    auto const list = any_cast<std::vector<Any>>(properties.at("list"));
    ASSERT_EQ(3u, list.size());
    EXPECT_TRUE(any_cast<bool>(list[0]));
    EXPECT_EQ("two", any_cast<std::string>(list[1]));
    EXPECT_TRUE(list[2].Empty()) << "a null element stays, empty";
    EXPECT_EQ(1u, ConfigurationFileParser::Parse(Nested(64)).size()) << "nesting up to the limit is accepted";
}

TEST(ConfigurationFileNameTest, OnlyFactoryPidTildeNameDotJsonHoldsAConfiguration)
{
    struct Row
    {
        std::string fileName;
        std::string pid; ///< "" for none
    };
    std::vector<Row> const rows = {
        { "fp~name.json", "fp~name" },
        { "fp~a~b.json", "fp~a~b" },
        { "fp~name.JSON", "" },
        { "fpname.json", "" },
        { "~name.json", "" },
        { "fp~.json", "" },
        { ".fp~name.json", "" },
        { ".json", "" },
        { "", "" },
    };
    for (auto const& row : rows)
    {
        auto const pid = ConfigurationFileName::ToPid(row.fileName);
        EXPECT_EQ(row.pid, pid.value_or("")) << row.fileName;
    }
}
