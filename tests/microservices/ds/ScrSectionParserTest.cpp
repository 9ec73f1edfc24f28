// The scr manifest section parser: table-driven refusals with their exact
// texts, the defaults, and that one bad component does not spoil the others.

#include "bundle/ManifestParser.h"
#include "metadata/ScrSectionParser.h"

#include "cppmicroservices/Any.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace cppmicroservices::ds
{
    namespace
    {
        // The scr section as the framework's manifest reader delivers it.
        Any
        Scr(std::string const& json)
        {
            return ManifestParser::Parse(R"({"scr": )" + json + "}", "test").at("scr");
        }

        ScrSection
        ParseComponents(std::string const& components)
        {
            return ScrSectionParser::Parse(Scr(R"({"version": 1, "components": )" + components + "}"));
        }

        struct Refusal
        {
            char const* json;
            char const* error;
        };

        TEST(ScrSectionParserTest, RefusesUnusableSectionsWithExactTexts)
        {
            Refusal const rows[] = {
                { R"([])", "scr must be a JSON object" },
                { R"({})", "scr.version is missing" },
                { R"({"version": "1"})", "scr.version must be an integer" },
                { R"({"version": 1.0})", "scr.version must be an integer" },
                { R"({"version": 2})", "Unsupported scr.version 2; only version 1 is supported" },
                { R"({"version": 1})", "scr.components is missing" },
                { R"({"version": 1, "components": {}})", "scr.components must be an array" },
                { R"({"version": 1, "components": []})", "scr.components must not be empty" },
            };
            for (auto const& row : rows)
            {
                try
                {
                    ScrSectionParser::Parse(Scr(row.json));
                    ADD_FAILURE() << row.json << " was accepted";
                }
                catch (std::invalid_argument const& e)
                {
                    EXPECT_EQ(row.error, std::string(e.what())) << row.json;
                }
            }
        }

        TEST(ScrSectionParserTest, RefusesBadComponentsWithExactTexts)
        {
            Refusal const rows[] = {
                { R"(42)", "The component must be a JSON object" },
                { R"({})", "implementation-class is missing" },
                { R"({"implementation-class": ""})", "implementation-class must be a non-empty string" },
                { R"({"implementation-class": "a::B", "name": 5})", "name must be a non-empty string" },
                { R"({"implementation-class": "a::B", "factory": "f"})", "factory components are not supported" },
                { R"({"implementation-class": "a::B", "enabled": "yes"})", "enabled must be a boolean" },
                { R"({"implementation-class": "a::B", "immediate": 1})", "immediate must be a boolean" },
                { R"({"implementation-class": "a::B", "service": "x"})", "service must be a JSON object" },
                { R"({"implementation-class": "a::B", "service": {}})",
                  "service.interfaces must be a non-empty array of non-empty strings" },
                { R"({"implementation-class": "a::B", "service": {"interfaces": []}})",
                  "service.interfaces must be a non-empty array of non-empty strings" },
                { R"({"implementation-class": "a::B", "service": {"interfaces": ["I", ""]}})",
                  "service.interfaces must be a non-empty array of non-empty strings" },
                { R"({"implementation-class": "a::B", "service": {"interfaces": ["I"], "scope": "global"}})",
                  "service.scope must be singleton, bundle or prototype" },
                { R"({"implementation-class": "a::B", "immediate": false})",
                  "A component without a service must be immediate" },
                { R"({"implementation-class": "a::B", "immediate": true, "service": {"interfaces": ["I"], "scope": "bundle"}})",
                  "An immediate component must have singleton service scope" },
                { R"({"implementation-class": "a::B", "properties": []})", "properties must be a JSON object" },
                { R"({"implementation-class": "a::B", "references": {}})", "references must be an array" },
                { R"({"implementation-class": "a::B", "references": [1]})", "references[0] must be a JSON object" },
                { R"({"implementation-class": "a::B", "references": [{}]})", "references[0].name is missing" },
                { R"({"implementation-class": "a::B", "references": [{"name": ""}]})",
                  "references[0].name must be a non-empty string" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r"}]})",
                  "references[0].interface is missing" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": 7}]})",
                  "references[0].interface must be a non-empty string" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": "I", "cardinality": "2..3"}]})",
                  "references[0].cardinality must be 0..1, 1..1, 0..n or 1..n" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": "I", "policy": "lazy"}]})",
                  "references[0].policy must be static or dynamic" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": "I", "policy-option": "eager"}]})",
                  "references[0].policy-option must be reluctant or greedy" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": "I", "target": 5}]})",
                  "references[0].target must be a string" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": "I", "target": "(x="}]})",
                  "references[0].target is not a valid LDAP filter: Unexpected end of filter at position 3" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": "I"}, {"name": "s", "interface": "I", "scope": "shared"}]})",
                  "references[1].scope must be bundle, prototype or prototype-required" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": "I"}, {"name": "r", "interface": "J"}]})",
                  "Duplicate reference name 'r'" },
                { R"({"implementation-class": "a::B", "inject-references": 5})",
                  "inject-references must be a boolean or an array of reference names" },
                { R"({"implementation-class": "a::B", "references": [{"name": "r", "interface": "I"}], "inject-references": ["r", "zz"]})",
                  "inject-references names the unknown reference 'zz'" },
                { R"({"implementation-class": "a::B", "configuration-policy": "always", "configuration-pid": ["p"]})",
                  "configuration-policy must be ignore, optional or require" },
                { R"({"implementation-class": "a::B", "configuration-policy": "require", "configuration-pid": "p"})",
                  "configuration-pid must be an array of non-empty strings" },
                { R"({"implementation-class": "a::B", "configuration-policy": "require", "configuration-pid": ["p", "p"]})",
                  "Duplicate configuration-pid 'p'" },
            };
            for (auto const& row : rows)
            {
                auto const section = ParseComponents(std::string("[") + row.json + "]");
                ASSERT_EQ(1u, section.errors.size()) << row.json;
                EXPECT_EQ(row.error, section.errors[0].message) << row.json;
                EXPECT_EQ(0u, section.errors[0].index);
                EXPECT_TRUE(section.components.empty()) << row.json;
            }
        }

        TEST(ScrSectionParserTest, BadComponentIsSkippedAndNamedWhileTheOthersLoad)
        {
            auto const section = ParseComponents(R"([
                {"implementation-class": "a::Good"},
                {"name": "bad", "implementation-class": "a::Bad", "immediate": "soon"},
                {"implementation-class": "a::Good"},
                {"implementation-class": "a::Other"}
            ])");
            ASSERT_EQ(2u, section.components.size());
            EXPECT_EQ("a::Good", section.components[0]->name);
            EXPECT_EQ("a::Other", section.components[1]->name);
            ASSERT_EQ(2u, section.errors.size());
            EXPECT_EQ(1u, section.errors[0].index);
            EXPECT_EQ("bad", section.errors[0].name);
            EXPECT_EQ(2u, section.errors[1].index);
            EXPECT_EQ("Duplicate component name 'a::Good'", section.errors[1].message);
        }

        TEST(ScrSectionParserTest, AppliesTheDefaults)
        {
            auto const section = ParseComponents(R"([
                {"implementation-class": "a::Plain", "references": [{"name": "r", "interface": "::x::I"}]},
                {"name": "svc", "implementation-class": "a::Svc", "service": {"interfaces": ["::x::I", "x::J"]},
                 "configuration-policy": "Require", "configuration-pid": ["$", "other"],
                 "references": [{"name": "r", "interface": "x::I", "cardinality": "0..N", "policy": "Dynamic", "policy-option": "GREEDY", "scope": "prototype-required"}]}
            ])");
            ASSERT_TRUE(section.errors.empty()) << section.errors[0].message;
            ASSERT_EQ(2u, section.components.size());

            auto const& plain = *section.components[0];
            EXPECT_EQ("a::Plain", plain.name);
            EXPECT_TRUE(plain.enabled);
            EXPECT_TRUE(plain.immediate) << "without a service a component is immediate";
            EXPECT_TRUE(plain.serviceInterfaces.empty());
            EXPECT_EQ("ignore", plain.configurationPolicy);
            ASSERT_EQ(1u, plain.references.size());
            auto const& r = plain.references[0];
            EXPECT_EQ("x::I", r.interfaceName);
            EXPECT_FALSE(r.optional);
            EXPECT_FALSE(r.multiple);
            EXPECT_FALSE(r.dynamic);
            EXPECT_FALSE(r.greedy);
            EXPECT_EQ("bundle", r.scope);

            auto const& svc = *section.components[1];
            EXPECT_FALSE(svc.immediate) << "with a service a component is delayed";
            EXPECT_EQ((std::vector<std::string>{ "x::I", "x::J" }), svc.serviceInterfaces);
            EXPECT_EQ("singleton", svc.serviceScope);
            EXPECT_EQ("require", svc.configurationPolicy);
            EXPECT_EQ((std::vector<std::string>{ "svc", "other" }), svc.configurationPids);
            auto const& s = svc.references[0];
            EXPECT_TRUE(s.optional && s.multiple && s.dynamic && s.greedy);
            EXPECT_EQ("prototype-required", s.scope);
        }

        TEST(ScrSectionParserTest, ConfigurationPolicyWithoutPidsIsIgnoredWithAWarning)
        {
            auto const section = ParseComponents(R"([{"implementation-class": "a::B", "configuration-policy": "require"}])");
            ASSERT_EQ(1u, section.components.size());
            EXPECT_EQ("ignore", section.components[0]->configurationPolicy);
            ASSERT_EQ(1u, section.warnings.size());
            EXPECT_EQ("a::B", section.warnings[0].name);
            EXPECT_EQ("configuration-policy and configuration-pid must be given together; the component ignores "
                      "configurations",
                      section.warnings[0].message);
        }
    } // namespace
} // namespace cppmicroservices::ds
