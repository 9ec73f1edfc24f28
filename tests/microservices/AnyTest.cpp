#include "cppmicroservices/Any.h"
#include "cppmicroservices/AnyMap.h"

#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <map>
#include <set>
#include <sstream>
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
    template <typename F>
    std::string
    BadCastText(F&& cast)
    {
        try
        {
            cast();
        }
        catch (BadAnyCastException const& e)
        {
            return e.what();
        }
        return "no exception";
    }

    TEST(AnyTest, CastsRequireTheExactStoredType)
    {
        Any a = 42;
        EXPECT_EQ(any_cast<int>(a), 42);
        EXPECT_EQ(*any_cast<int>(&a), 42);
        EXPECT_EQ(any_cast<long>(&a), nullptr);
        EXPECT_EQ(any_cast<unsigned>(&a), nullptr);
        EXPECT_EQ(any_cast<int>(static_cast<Any*>(nullptr)), nullptr);
        EXPECT_EQ(any_cast<int>(static_cast<Any const*>(nullptr)), nullptr);
        EXPECT_THROW(any_cast<long>(a), BadAnyCastException);
        EXPECT_THROW(any_cast<double>(Any(1.0f)), BadAnyCastException);
    }

    TEST(AnyTest, BadCastMessagesNameTheFunctionAndBothTypes)
    {
        Any const a = 42;
        EXPECT_EQ(BadCastText([&] { any_cast<long>(a); }),
                  "cppmicroservices::BadAnyCastException: any_cast: Failed to convert from cppmicroservices::Any "
                  "type int to target type long");
        EXPECT_EQ(BadCastText([&] { ref_any_cast<std::string>(a); }),
                  "cppmicroservices::BadAnyCastException: ref_any_cast: Failed to convert from "
                  "cppmicroservices::Any type int to target type std::__cxx11::basic_string<char, "
                  "std::char_traits<char>, std::allocator<char> >");
        EXPECT_EQ(BadCastText([] { any_cast<int>(Any()); }),
                  "cppmicroservices::BadAnyCastException: any_cast: Failed to convert from cppmicroservices::Any "
                  "type void to target type int");
        EXPECT_STREQ(BadAnyCastException().what(),
                     "cppmicroservices::BadAnyCastException: failed conversion using cppmicroservices::any_cast");
        EXPECT_STREQ(BadAnyCastException("custom").what(), "custom");
        std::bad_cast const& asBase = BadAnyCastException();
        EXPECT_NE(std::string(asBase.what()).find("BadAnyCastException"), std::string::npos);
    }

    TEST(AnyTest, RefAnyCastGivesWritableAccessToTheHeldValue)
    {
        Any a = std::vector<int>{ 1, 2 };
        ref_any_cast<std::vector<int>>(a).push_back(3);
        EXPECT_EQ(any_cast<std::vector<int>>(a), (std::vector<int>{ 1, 2, 3 }));
        *any_cast<std::vector<int>>(&a) = { 9 };
        EXPECT_EQ(ref_any_cast<std::vector<int>>(static_cast<Any const&>(a)), (std::vector<int>{ 9 }));
    }

    TEST(AnyTest, CopiesAreDeepAndAssignmentReplacesTheType)
    {
        Any original = std::string("one");
        Any copy = original;
        ref_any_cast<std::string>(copy) = "two";
        EXPECT_EQ(any_cast<std::string>(original), "one");
        EXPECT_EQ(any_cast<std::string>(copy), "two");

        copy = 7;
        EXPECT_EQ(copy.Type(), typeid(int));
        copy = original;
        EXPECT_EQ(any_cast<std::string>(copy), "one");

        Any moved = std::move(copy);
        EXPECT_EQ(any_cast<std::string>(moved), "one");

        Any other = 1.5;
        moved.Swap(other);
        EXPECT_EQ(any_cast<double>(moved), 1.5);
        EXPECT_EQ(any_cast<std::string>(other), "one");
    }

    TEST(AnyTest, EmptyAnyReportsVoidAndRefusesToString)
    {
        Any const empty;
        EXPECT_TRUE(empty.Empty());
        EXPECT_EQ(empty.Type(), typeid(void));
        EXPECT_EQ(empty.ToStringNoExcept(), "");
        EXPECT_EQ(empty.ToJSON(), "null");
        try
        {
            empty.ToString();
            FAIL() << "ToString of an empty Any must throw";
        }
        catch (std::logic_error const& e)
        {
            EXPECT_STREQ(e.what(), "empty any");
        }
        EXPECT_FALSE(Any(0).Empty());
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
            { "different int", Any(1), Any(2), false },
            { "int vs long", Any(1), Any(1L), false },
            { "strings", Any(std::string("a")), Any(std::string("a")), true },
            { "string case", Any(std::string("a")), Any(std::string("A")), false },
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
        Any const self(NoEquality{ 3 });
        EXPECT_FALSE(self == self) << "a type without operator== never compares equal";
    }

    TEST(AnyTest, ComparingWithARawValueChecksTheTypeFirst)
    {
        Any const a = 5;
        EXPECT_TRUE(a == 5);
        EXPECT_FALSE(a == 5L);
        EXPECT_TRUE(a != 6);
        Any const s = std::string("abc");
        EXPECT_TRUE(s == std::string("abc"));
        EXPECT_FALSE(s == "abc") << "a literal is not a std::string";
        EXPECT_FALSE(Any() == 0);
        EXPECT_FALSE(Any(NoEquality{ 1 }) == NoEquality{ 1 });
    }

    TEST(AnyTest, ToStringPrintsValuesAndContainers)
    {
        EXPECT_EQ(Any(std::string("plain text")).ToString(), "plain text");
        EXPECT_EQ(Any(-3).ToString(), "-3");
        EXPECT_EQ(Any(1.0).ToString(), "1");
        EXPECT_EQ(Any(3.14159265358979).ToString(), "3.14159265359");
        EXPECT_EQ(Any(0.5f).ToString(), "0.5");
        EXPECT_EQ(Any(true).ToString(), "true");
        EXPECT_EQ(Any(std::vector<int>{ 1, 2, 3 }).ToString(), "[1,2,3]");
        EXPECT_EQ(Any(std::list<std::string>{ "a", "b" }).ToString(), "[a,b]");
        EXPECT_EQ(Any(std::set<int>{ 2, 1 }).ToString(), "[1,2]");
        EXPECT_EQ(Any(std::map<std::string, int>{ { "a", 1 }, { "b", 2 } }).ToString(), "{a : 1, b : 2}");
        EXPECT_EQ(Any(std::vector<Any>{ 1, std::string("x"), std::vector<Any>{} }).ToString(), "[1,x,[]]");
        EXPECT_EQ(Any(AnyMap{ AnyMap::ORDERED_MAP, { { "a", 1 }, { "b", std::vector<int>{ 2 } } } }).ToString(),
                  "{a : 1, b : [2]}");
        EXPECT_EQ(Any(std::function<void()>([] {})).ToString(), "");
        EXPECT_NE(Any(NoEquality{ 1 }).ToString().find("NoEquality"), std::string::npos);

        std::ostringstream os;
        os << Any(12) << '|' << Any();
        EXPECT_EQ(os.str(), "12|");
    }

    TEST(AnyTest, ToJsonQuotesAndEscapesStringsOnly)
    {
        struct Row
        {
            Any value;
            char const* json;
        };
        std::vector<Row> const rows = {
            { Any(std::string("say \"hi\"\\")), R"("say \"hi\"\\")" },
            { Any(std::string("\b\f\n\r\t")), R"("\b\f\n\r\t")" },
            { Any(std::string("\x01\x1f end")), R"("\u0001\u001f end")" },
            { Any(std::string("caf\xc3\xa9")), "\"caf\xc3\xa9\"" },
            { Any(true), "true" },
            { Any(false), "false" },
            { Any(42), "42" },
            { Any(1.0 / 3.0), "0.333333333333" },
            { Any(std::vector<int>{ 1, 2 }), "[1,2]" },
            { Any(std::vector<int>{}), "[]" },
            { Any(std::vector<std::string>{ "a", "b\"" }), R"(["a","b\""])" },
            { Any(std::map<std::string, int>{ { "a", 1 }, { "b", 2 } }), R"({"a" : 1, "b" : 2})" },
            { Any(std::map<std::string, Any>{ { "a", std::string("x") }, { "b", Any() } }), R"({"a" : "x", "b" : null})" },
            { Any(std::map<std::string, int>{ { "q\"k", 1 } }), R"({"q"k" : 1})" },
            { Any(std::map<std::string, int>{}), "{}" },
            { Any(std::map<int, int, std::greater<int>>{ { 1, 1 }, { 2, 4 } }), R"({"2" : 4, "1" : 1})" },
            { Any(cppmicroservices::unordered_any_cimap{ { "Key", 1 } }), R"({"Key" : 1})" },
            { Any(AnyMap{ AnyMap::ORDERED_MAP, { { "n", 1 }, { "v", std::vector<Any>{ true, 2.5 } } } }),
              R"({"n" : 1, "v" : [true,2.5]})" },
            { Any(std::function<int(int)>([](int x) { return x; })), "" },
            { Any(Point{ 1, 2 }), R"({"x" : 1, "y" : 2})" },
            { Any(NoEquality{ 1 }), "null" },
        };
        for (auto const& row : rows)
        {
            EXPECT_EQ(row.value.ToJSON(), row.json);
        }
    }

    TEST(AnyTest, PrettyJsonIndentsEachLevelByFour)
    {
        Any const value = AnyMap{ AnyMap::ORDERED_MAP,
                                  { { "list", std::vector<Any>{ 1, std::vector<int>{} } },
                                    { "map", AnyMap{ AnyMap::ORDERED_MAP, { { "k", std::string("v") } } } },
                                    { "n", 7 } } };
        EXPECT_EQ(value.ToJSON(true),
                  "{\n"
                  "    \"list\" : [\n"
                  "        1,\n"
                  "        []\n"
                  "    ],\n"
                  "    \"map\" : {\n"
                  "        \"k\" : \"v\"\n"
                  "    },\n"
                  "    \"n\" : 7\n"
                  "}");
        EXPECT_EQ(Any(std::vector<int>{ 1 }).ToJSON(2, 2), "[\n  1\n]");
        EXPECT_EQ(Any(5).ToJSON(true), "5");
    }
} // namespace
