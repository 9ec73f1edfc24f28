#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/LDAPProp.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <list>
#include <stdexcept>
#include <string>
#include <vector>

using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::LDAPFilter;
using cppmicroservices::LDAPProp;
using cppmicroservices::LDAPPropExpr;

namespace
{
    struct Unsupported
    {
    };

    AnyMap
    Props(std::initializer_list<AnyMap::value_type> l)
    {
        return AnyMap(l);
    }

    struct MatchRow
    {
        char const* filter;
        bool expected;
    };

    TEST(LDAPFilterTest, MatchesTypedValuesSubstringsAndComposites)
    {
        static char const* const cText = "c-string";
        AnyMap const props = Props({ { "class", std::string("Foo") },
                                     { "port", 8080 },
                                     { "secure", true },
                                     { "name", std::string("com.example.Service") },
                                     { "empty", std::string() },
                                     { "star", std::string("a*b") },
                                     { "count", 0 },
                                     { "i", 42 },
                                     { "neg", -5 },
                                     { "l", 5000000000L },
                                     { "ll", -9000000000000000000LL },
                                     { "s", static_cast<short>(7) },
                                     { "sc", static_cast<signed char>(-1) },
                                     { "u", 7u },
                                     { "ul", 18446744073709551615UL },
                                     { "us", static_cast<unsigned short>(65535) },
                                     { "uc", static_cast<unsigned char>(200) },
                                     { "d", 2.5 },
                                     { "f", 0.1f },
                                     { "tiny", 1e-20 },
                                     { "on", true },
                                     { "off", false },
                                     { "objectclass", std::vector<std::string>{ "a::Foo", "b::Bar" } },
                                     { "list", std::list<std::string>{ "x", "y" } },
                                     { "mixed", std::vector<Any>{ 1, std::string("two"), std::vector<Any>{ 3.5 } } },
                                     { "none", std::vector<std::string>{} },
                                     { "cstr", cText },
                                     { "nullcstr", static_cast<char const*>(nullptr) },
                                     { "ch", 'q' },
                                     { "void", Any() },
                                     { "odd", Unsupported{} },
                                     { "map", AnyMap{} },
                                     { "a key", std::string("v") },
                                     { "fn", std::string("call(x)") },
                                     { "p", std::string("(") },
                                     { "b", std::string("back\\slash") },
                                     { "sp", std::string(" lead") },
                                     { "e", std::string() } });
        std::vector<MatchRow> const rows = {
            // composites nest and short-circuit
            { "(&(class=Foo)(port=8080))", true },
            { "(&(class=Foo)(port=80))", false },
            { "(|(port=80)(port=8080))", true },
            { "(|(port=80)(port=81))", false },
            { "(!(port=8080))", false },
            { "(!(missing=1))", true },
            { "(&(class=Foo)(|(secure=false)(!(port<=1024))))", true },
            // presence and substrings
            { "(name=*)", true },
            { "(count=*)", true },
            { "(missing=*)", false },
            { "(name=com.*)", true },
            { "(name=*.Service)", true },
            { "(name=com*example*Service)", true },
            { "(name=com*Service*example)", false },
            { "(name=com*com*)", false },
            { "(name=COM.*)", false },
            { "(empty=**)", true },
            { "(star=a\\*b)", true },
            { "(star=a\\*)", false },
            { "(star=a\\**)", true },
            { "(name=\\*)", false },
            { "(count=0*)", false },
            // numbers compare numerically by their stored type
            { "(i=42)", true },
            { "(i= 42)", true },
            { "(i=+42)", true },
            { "(i=42 )", true },
            { "(i=43)", false },
            { "(i~=42)", true },
            { "(i<=42)", true },
            { "(i<=41)", false },
            { "(i>=9)", true },
            { "(i=42abc)", false },
            { "(i=abc)", false },
            { "(i=42.0)", false },
            { "(i=4*)", false },
            { "(neg<=-5)", true },
            { "(l=5000000000)", true },
            { "(ll<=-8999999999999999999)", true },
            { "(ll=99999999999999999999)", false },
            { "(s=7)", true },
            { "(sc=-1)", true },
            { "(u=7)", true },
            { "(u>=-1)", true },
            { "(u<=-1)", false },
            { "(ul=18446744073709551615)", true },
            { "(us=65535)", true },
            { "(uc=200)", true },
            { "(d=2.5)", true },
            { "(d=2.5000000000000001)", true },
            { "(d=2.51)", false },
            { "(d<=2.5)", true },
            { "(d=2.5x)", false },
            { "(f=0.1)", true },
            { "(tiny=0)", true },
            // bool matches true or false in any case
            { "(on=true)", true },
            { "(on=TRUE)", true },
            { "(on~=True)", true },
            { "(on=false)", false },
            { "(on=1)", false },
            { "(on=tru*)", false },
            { "(on<=true)", false },
            { "(off=FaLsE)", true },
            { "(off=true)", false },
            // containers match when any element does
            { "(objectclass=b::Bar)", true },
            { "(objectclass=*Foo)", true },
            { "(objectclass=c::Baz)", false },
            { "(list~=X)", true },
            { "(list=z)", false },
            { "(mixed=two)", true },
            { "(mixed=3.5)", true },
            { "(mixed<=0)", false },
            { "(none=*)", true },
            { "(none=x)", false },
            { "(cstr=c-*)", true },
            { "(nullcstr=*)", true },
            { "(nullcstr=x)", false },
            { "(ch>=a)", true },
            { "(ch=qq)", false },
            // empty and unsupported values
            { "(void=*)", false },
            { "(void=)", false },
            { "(odd=*)", true },
            { "(odd=x)", false },
            { "(map=*)", true },
            { "(map={})", false },
            // whitespace, escapes and parentheses
            { "  ( & ( a key =v) ( fn=call(x)) )  ", true },
            { "(a key=v )", false },
            { "(fn=call\\(x\\))", true },
            { "(fn=call(*))", true },
            { "(p=\\()", true },
            { "(b=back\\\\slash)", true },
            { "(sp= lead)", false },
            { "(sp=\\ lead)", true },
            { "(e=)", true },
            { "(\tfn\n=call(x))", true },
        };
        for (auto const& row : rows)
        {
            EXPECT_EQ(LDAPFilter(row.filter).Match(props), row.expected) << row.filter;
        }
    }

    TEST(LDAPFilterTest, KeysIgnoreCaseButStringValuesDoNot)
    {
        for (auto kind : { AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS, AnyMap::UNORDERED_MAP, AnyMap::ORDERED_MAP })
        {
            AnyMap const props(kind, { { "Service.Vendor", std::string("Acme Corp") } });
            for (MatchRow const& row : std::vector<MatchRow>{
                                     { "(service.vendor=Acme Corp)", true },
                                     { "(service.vendor=acme corp)", false },
                                     { "(service.vendor~=  ACMECORP )", true },
                                     { "(service.vendor~=acme co)", false },
                                     { "(service.vendor<=Acme Corq)", true },
                                     { "(service.vendor<=Acme)", false },
                                     { "(service.vendor>=B)", false },
                                 })
            {
                EXPECT_EQ(LDAPFilter(row.filter).Match(props), row.expected) << row.filter;
            }
            EXPECT_TRUE(LDAPFilter("(Service.Vendor=Acme Corp)").MatchCase(props));
            EXPECT_FALSE(LDAPFilter("(service.vendor=Acme Corp)").MatchCase(props)) << "kind " << int(kind);
        }
    }

    TEST(LDAPFilterTest, CaseVariantKeysInACaseSensitiveMapAreRejected)
    {
        AnyMap const props(AnyMap::UNORDERED_MAP, { { "Key", 1 }, { "KEY", 2 } });
        using MatchFn = bool (LDAPFilter::*)(AnyMap const&) const;
        for (MatchFn match : { MatchFn(&LDAPFilter::Match), MatchFn(&LDAPFilter::MatchCase) })
        {
            auto const text = testsupport::ThrownText<std::runtime_error>([&] { (LDAPFilter("(other=1)").*match)(props); });
            EXPECT_TRUE(text == "Properties contain case variants of the key: Key"
                        || text == "Properties contain case variants of the key: KEY")
                << text;
        }

        AnyMap big(AnyMap::ORDERED_MAP);
        for (int i = 0; i < 40; ++i)
        {
            big["key" + std::to_string(i)] = i;
        }
        EXPECT_TRUE(LDAPFilter("(KEY39=39)").Match(big));
        big["Key17"] = 0;
        EXPECT_THROW(LDAPFilter("(key1=1)").Match(big), std::runtime_error);

        // The registry rules case variants out when properties are set, and skips the scan.
        EXPECT_TRUE(cppmicroservices::detail::LDAPMatchValidatedProperties(LDAPFilter("(key1=1)"), big));
        EXPECT_FALSE(cppmicroservices::detail::LDAPMatchValidatedProperties(LDAPFilter(), big));
    }

    TEST(LDAPFilterTest, MalformedFiltersAreRejectedWithTheFault)
    {
        struct Row
        {
            char const* filter;
            char const* error;
        };
        std::string deepNot;
        for (int i = 0; i < 200; ++i)
        {
            deepNot += "(!";
        }
        deepNot += "(a=b)" + std::string(200, ')');
        std::vector<Row> const rows = {
            { "", "Unexpected end of filter at position 0" },
            { "a=b", "Malformed query: a=b" },
            { "(a=b", "Unexpected end of filter at position 4" },
            { "(", "Unexpected end of filter at position 1" },
            { "(a", "Unexpected end of filter at position 2" },
            { "(a=b\\", "Unexpected end of filter at position 5" },
            { "(a=(b)", "Unexpected end of filter at position 6" },
            { "(a=b) (c=d)", "Trailing garbage '(c=d)'" },
            { "(=b)", "Missing attribute name: =b)" },
            { "(  ~=b)", "Missing attribute name: ~=b)" },
            { "(a<b)", "Undefined operator: <b)" },
            { "(a)", "Undefined operator: )" },
            { "(| )", "Missing operand: )" },
            { "(!(a=1)(b=2))", "Too many operands for '!': (b=2))" },
            { "(&(a=1)x)", "Malformed query: x)" },
            { "(&(a=1)", "Unexpected end of filter at position 7" },
            { "(&a=1)", "Missing operand: a=1)" },
            { "((a=b))", "Missing attribute name: (a=b))" },
            { deepNot.c_str(), "Filter nested too deeply at position 256" },
        };
        for (auto const& row : rows)
        {
            EXPECT_EQ(testsupport::ThrownText<std::invalid_argument>([&] { LDAPFilter{ row.filter }; }), row.error)
                << row.filter;
        }
    }

    TEST(LDAPFilterTest, ToStringNormalises)
    {
        struct Row
        {
            char const* filter;
            char const* normalised;
        };
        std::vector<Row> const rows = {
            { " ( & ( a =b) ( | (c~=d) (e<=1) (f>=2) ) (! (g=*) ) ) ", "(&(a=b)(|(c~=d)(e<=1)(f>=2))(!(g=*)))" },
            { "(Key=Some Value )", "(Key=Some Value )" },
            { "(a=x*y\\*z*)", "(a=x*y\\*z*)" },
            { "(a=f(x))", "(a=f\\(x\\))" },
            { "(a~=*)", "(a~=\\*)" },
            { "(a=\\b)", "(a=b)" },
            { "(a=\\\\)", "(a=\\\\)" },
            { "(a=)", "(a=)" },
        };
        for (auto const& row : rows)
        {
            LDAPFilter const filter(row.filter);
            EXPECT_EQ(filter.ToString(), row.normalised) << row.filter;
            EXPECT_EQ(LDAPFilter(filter.ToString()).ToString(), row.normalised) << "round trip of " << row.filter;
        }
    }

    TEST(LDAPFilterTest, DefaultFilterMatchesNothingAndEqualityComparesTheNormalisedText)
    {
        LDAPFilter const invalid;
        EXPECT_FALSE(invalid);
        EXPECT_FALSE(invalid.Match(Props({ { "a", 1 } })));
        EXPECT_FALSE(invalid.MatchCase(Props({ { "a", 1 } })));
        LDAPFilter const a("(&(x=1) (y=2))");
        EXPECT_TRUE(a == LDAPFilter("(&(x=1)(y=2))"));
        EXPECT_FALSE(a == LDAPFilter("(&(y=2)(x=1))"));
        EXPECT_FALSE(a == invalid);
    }

    TEST(LDAPFilterTest, LDAPPropBuildsFiltersThatParse)
    {
        LDAPPropExpr expr;
        EXPECT_TRUE(expr.IsNull());
        expr &= LDAPProp("a") == "x*";
        expr &= LDAPProp("port") >= 1024;
        expr |= !LDAPProp("local");
        std::string const text = expr && LDAPProp("b") != std::string("y");
        EXPECT_EQ(text, "(&(|(&(a=x*)(port>=1024))(!(local=*)))(!(b=y)))");
        EXPECT_EQ(std::string(LDAPProp("v").Approx("A B") || LDAPProp("n") <= 2.5), "(|(v~=A B)(n<=2.5))");

        LDAPFilter const filter(static_cast<std::string>(LDAPProp("flag") == true && LDAPProp("n") >= 2));
        EXPECT_TRUE(filter.Match(Props({ { "flag", true }, { "n", 3 } })));
        EXPECT_FALSE(filter.Match(Props({ { "flag", true }, { "n", 1 } })));
    }
} // namespace
