#include "agent/spf/servicepublisher/HighestVersionedInterfaceWithMatchingPropertiesFinder.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using agent::spf::core::APIVersion;
using agent::spf::servicepublisher::HighestVersionedInterfaceWithMatchingPropertiesFinder;
using Properties = std::map<std::string, std::string>;
using boost::property_tree::ptree;

const std::string kNoVersion = "Unable to find a ServiceInterface for Greeter with version compatible to requested version ";

// Each row asks an index for a name, a version and properties: the highest version of the
// requested major that has every requested property (values compare exactly, nested requests
// name dotted properties), and what is logged when there is none. The end-to-end suite picks
// among published interfaces the same way, through the publisher's own index (a multi-index on
// name and version); the edges are here, on a plain map.
TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, FindsTheHighestFittingVersionOfTheMajorOrSaysWhyNot) {
    constexpr auto largest = std::numeric_limits<std::uint32_t>::max();
    const std::map<std::pair<std::string, APIVersion>, Properties> index = {
        {{"Greete", APIVersion(2, 9)}, {}},
        {{"Greeter", APIVersion(1, 9)}, {{"lang", "en"}}},
        {{"Greeter", APIVersion(2, 0)}, {{"lang", "de"}, {"region", "eu"}, {"spf.legacy.mode", "fast"}}},
        {{"Greeter", APIVersion(2, 1)}, {{"lang", "de"}}},
        {{"Greeter", APIVersion(2, 9, 1)}, {{"lang", "en"}, {"region", "eu"}}},
        {{"Greeter", APIVersion(3, 0)}, {{"lang", "de"}, {"region", "eu"}}},
        {{"Greeter", APIVersion(largest - 1)}, {}},
        {{"Greeter", APIVersion(largest, 1)}, {{"k", "v"}}},
        {{"Greeter", APIVersion(largest, 7)}, {}},
        {{"Greeter\x01", APIVersion(largest, 9)}, {{"k", "v"}}},
        {{"GreeterX", APIVersion(4, 0)}, {}},
    };
    struct Row {
        std::string name;
        APIVersion version;
        std::vector<std::pair<std::string, std::string>> properties;
        std::string found;   // a version, or "none"
        std::string logged;  // when none was found
    };
    const std::vector<Row> rows = {
        {"Greeter", APIVersion(2, 5), {}, "2.9.1.0", ""},  // minor, patch and extension of the request play no part
        {"Greeter", APIVersion(2, 99, 99, 99), {}, "2.9.1.0", ""},
        {"Greeter", APIVersion(1), {}, "1.9.0.0", ""},
        {"Greeter", APIVersion(2), {{"lang", "de"}, {"region", "eu"}}, "2.0.0.0", ""},
        {"Greeter", APIVersion(2), {{"lang", "de"}}, "2.1.0.0", ""},
        {"Greeter", APIVersion(2), {{"spf/legacy/mode", "fast"}}, "2.0.0.0", ""},
        {"Greeter", APIVersion(2), {{"spf.legacy.mode", "fast"}}, "2.0.0.0", ""},
        {"Greeter", APIVersion(largest), {}, APIVersion(largest, 7).toString(), ""},
        {"Greeter", APIVersion(largest), {{"k", "v"}}, APIVersion(largest, 1).toString(), ""},
        {"Greeter", APIVersion(7, 3, 2, 1), {}, "none", kNoVersion + "7.0.0.0"},
        {"Greeter", APIVersion(4), {{"lang", "en"}}, "none", kNoVersion + "4.0.0.0"},
        {"Greeter", APIVersion(2), {{"lang", "DE"}, {"tier/level", "gold"}}, "none",
         kNoVersion + "2.0.0.0 and all required service properties {\"lang\":\"DE\",\"tier\":{\"level\":\"gold\"}}"},
        // The message escapes what JSON must.
        {"Greeter", APIVersion(1), {{"quote\"d", "back\\slash\nnew line"}}, "none",
         kNoVersion + "1.0.0.0 and all required service properties {\"quote\\\"d\":\"back\\\\slash\\nnew line\"}"},
    };
    for (const auto& row : rows) {
        ptree requested;
        for (const auto& [key, value] : row.properties) requested.put(ptree::path_type(key, '/'), value);
        std::vector<std::string> logged;
        HighestVersionedInterfaceWithMatchingPropertiesFinder finder(
            row.name, row.version, requested, [&logged](const std::string& message) { logged.push_back(message); });
        const auto found = finder(index);
        EXPECT_EQ(row.found, found == index.end() ? "none" : found->first.second.toString())
            << row.name << " " << row.version;
        EXPECT_EQ(row.logged.empty() ? std::vector<std::string>{} : std::vector<std::string>{row.logged}, logged);
    }
}

}  // namespace
