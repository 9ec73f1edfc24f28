#include "cppmicroservices/Any.h"
#include "cppmicroservices/AnyMap.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::AnyMap;
using cppmicroservices::BadAnyCastException;
using cppmicroservices::ref_any_cast;

namespace
{
    struct NoEquality
    {
        int x;
    };

    struct Point
    {
        int x;
        int y;
    };
} // namespace

namespace cppmicroservices
{
    // A bundle-style JSON overload for its own type.
    template <>
    std::ostream&
    any_value_to_json(std::ostream& os, Point const& p, uint8_t const, int32_t const)
    {
        return os << "{\"x\" : " << p.x << ", \"y\" : " << p.y << "}";
    }
} // namespace cppmicroservices

namespace
{
    TEST(AnyTest, CastsRequireTheExactStoredTypeAndNameBothTypesWhenTheyFail)
    {
        Any a = 42;
        EXPECT_EQ(*any_cast<int>(&a), 42);
        EXPECT_EQ(any_cast<long>(&a), nullptr);
        EXPECT_EQ(any_cast<int>(static_cast<Any*>(nullptr)), nullptr);
        EXPECT_THROW(any_cast<double>(Any(1.0f)), BadAnyCastException);
        EXPECT_EQ(testsupport::ThrownText<BadAnyCastException>([&] { any_cast<long>(a); }),
                  "cppmicroservices::BadAnyCastException: any_cast: Failed to convert from cppmicroservices::Any "
                  "type int to target type long");
        EXPECT_EQ(testsupport::ThrownText<BadAnyCastException>([] { ref_any_cast<int>(Any()); }),
                  "cppmicroservices::BadAnyCastException: ref_any_cast: Failed to convert from "
                  "cppmicroservices::Any type void to target type int");

        // Copies are deep; ref_any_cast writes through to the held value.
        Any copy = a;
        ref_any_cast<int>(copy) = 7;
        EXPECT_EQ(any_cast<int>(a), 42);
        EXPECT_EQ(any_cast<int>(copy), 7);
        EXPECT_EQ(testsupport::ThrownText<std::logic_error>([] { Any().ToString(); }), "empty any");
    }

    TEST(AnyTest, EqualityFollowsTypeAndValue)
    {
        struct Row
        {
            char const* what;
            Any left;
            Any right;
            bool equal;
        };
        std::vector<Row> const rows = {
            { "two empty", Any(), Any(), true },
            { "empty vs value", Any(), Any(1), false },
            { "value vs empty", Any(1), Any(), false },
            { "same int", Any(1), Any(1), true },
            { "int vs long", Any(1), Any(1L), false },
            { "no operator==", Any(NoEquality{ 1 }), Any(NoEquality{ 1 }), false },
            { "vector of no operator==", Any(std::vector<NoEquality>{}), Any(std::vector<NoEquality>{}), false },
            { "vectors of Any", Any(std::vector<Any>{ 1, std::string("x") }),
              Any(std::vector<Any>{ 1, std::string("x") }), true },
            { "vectors of Any differ", Any(std::vector<Any>{ 1 }), Any(std::vector<Any>{ 1L }), false },
            { "maps", Any(AnyMap{ { "k", 1 } }), Any(AnyMap{ { "K", 1 } }), false },
            { "same maps", Any(AnyMap{ { "k", 1 } }), Any(AnyMap{ { "k", 1 } }), true },
        };
        for (auto const& row : rows)
        {
            EXPECT_EQ(row.left == row.right, row.equal) << row.what;
            EXPECT_EQ(row.left != row.right, !row.equal) << row.what;
        }
        EXPECT_FALSE(Any(5) == 5L) << "a raw value compares only with the same type";
        EXPECT_FALSE(Any(std::string("abc")) == "abc") << "a literal is not a std::string";
    }

    TEST(AnyTest, ToStringAndToJsonPrintValuesAndContainers)
    {
        struct Row
        {
            Any value;
            char const* text;
            char const* json;
        };
        std::vector<Row> const rows = {
            { Any(std::string("say \"hi\"\\")), "say \"hi\"\\", R"("say \"hi\"\\")" },
            { Any(std::string("\b\f\n\r\t")), "\b\f\n\r\t", R"("\b\f\n\r\t")" },
            { Any(std::string("\x01\x1f end")), "\x01\x1f end", R"("\u0001\u001f end")" },
            { Any(std::string("caf\xc3\xa9")), "caf\xc3\xa9", "\"caf\xc3\xa9\"" },
            { Any(true), "true", "true" },
            { Any(-3), "-3", "-3" },
            { Any(1.0), "1", "1" },
            { Any(1.0 / 3.0), "0.333333333333", "0.333333333333" },
            { Any(0.5f), "0.5", "0.5" },
            { Any(std::vector<int>{}), "[]", "[]" },
            { Any(std::vector<std::string>{ "a", "b\"" }), "[a,b\"]", R"(["a","b\""])" },
            { Any(std::list<std::string>{ "a", "b" }), "[a,b]", R"(["a","b"])" },
            { Any(std::set<int>{ 2, 1 }), "[1,2]", "[1,2]" },
            { Any(std::map<std::string, int>{ { "a", 1 }, { "b", 2 } }), "{a : 1, b : 2}", R"({"a" : 1, "b" : 2})" },
            { Any(std::map<std::string, Any>{ { "a", std::string("x") }, { "b", Any() } }), "{a : x, b : }",
              R"({"a" : "x", "b" : null})" },
            { Any(std::map<std::string, int>{ { "q\"k", 1 } }), "{q\"k : 1}", R"({"q"k" : 1})" },
            { Any(cppmicroservices::unordered_any_cimap{ { "Key", 1 } }), "{Key : 1}", R"({"Key" : 1})" },
            { Any(AnyMap{ AnyMap::ORDERED_MAP, { { "n", 1 }, { "v", std::vector<Any>{ true, 2.5 } } } }),
              "{n : 1, v : [true,2.5]}", R"({"n" : 1, "v" : [true,2.5]})" },
            { Any(std::function<int(int)>([](int x) { return x; })), "", "" },
            { Any(Point{ 1, 2 }), nullptr, R"({"x" : 1, "y" : 2})" },
            { Any(NoEquality{ 1 }), nullptr, "null" },
            { Any(), "", "null" },
        };
        for (auto const& row : rows)
        {
            EXPECT_EQ(row.value.ToJSON(), row.json);
            if (row.text != nullptr)
            {
                EXPECT_EQ(row.value.ToStringNoExcept(), row.text) << row.json;
            }
        }
        EXPECT_NE(Any(NoEquality{ 1 }).ToString().find("NoEquality"), std::string::npos);

        Any const nested = AnyMap{ AnyMap::ORDERED_MAP,
                                   { { "list", std::vector<Any>{ 1, std::vector<int>{} } },
                                     { "map", AnyMap{ AnyMap::ORDERED_MAP, { { "k", std::string("v") } } } } } };
        EXPECT_EQ(nested.ToJSON(true),
                  "{\n    \"list\" : [\n        1,\n        []\n    ],\n    \"map\" : {\n        \"k\" : \"v\"\n    }\n}");
        EXPECT_EQ(Any(std::vector<int>{ 1 }).ToJSON(2, 2), "[\n  1\n]");
    }
} // namespace
