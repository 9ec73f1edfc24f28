#include "agent/spf/servicepublisher/HighestVersionedInterfaceWithMatchingPropertiesFinder.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Severity.h"
#include "foundation/log/Sink.h"

#include <boost/multi_index/composite_key.hpp>
#include <boost/multi_index/mem_fun.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index_container.hpp>

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

// Shaped like the publisher's own interface entries: name, version and properties behind getters.
class InterfaceEntry {
public:
    InterfaceEntry(std::string name, APIVersion version, Properties properties)
        : name_(std::move(name)), version_(version), properties_(std::move(properties)) {}
    const std::string& getServiceInterfaceName() const { return name_; }
    const APIVersion& getServiceInterfaceVersion() const { return version_; }
    const Properties& getServiceProperties() const { return properties_; }

private:
    std::string name_;
    APIVersion version_;
    Properties properties_;
};

namespace mi = boost::multi_index;
using InterfaceIndex = mi::multi_index_container<
    InterfaceEntry,
    mi::indexed_by<mi::ordered_unique<mi::composite_key<
        InterfaceEntry,
        mi::const_mem_fun<InterfaceEntry, const std::string&, &InterfaceEntry::getServiceInterfaceName>,
        mi::const_mem_fun<InterfaceEntry, const APIVersion&, &InterfaceEntry::getServiceInterfaceVersion>>>>>;

ptree requested(const std::vector<std::pair<std::string, std::string>>& leaves) {
    ptree tree;
    for (const auto& [key, value] : leaves) {
        tree.put(ptree::path_type(key, '/'), value);
    }
    return tree;
}

struct Search {
    std::vector<std::string> logged;
    HighestVersionedInterfaceWithMatchingPropertiesFinder finder;

    Search(std::string name, APIVersion version, ptree properties = {})
        : finder(std::move(name), version, std::move(properties),
                 [this](const std::string& message) { logged.push_back(message); }) {}

    // The found entry's version as text, or "none".
    std::string in(const InterfaceIndex& index) {
        auto found = finder(index);
        return found == index.end() ? "none" : found->getServiceInterfaceVersion().toString();
    }
};

InterfaceIndex greeters() {
    InterfaceIndex index;
    index.insert(InterfaceEntry("Greeter", APIVersion(1, 9), {{"lang", "en"}}));
    index.insert(InterfaceEntry("Greeter", APIVersion(2, 0), {{"lang", "en"}}));
    index.insert(InterfaceEntry("Greeter", APIVersion(2, 9, 1), {{"lang", "en"}}));
    index.insert(InterfaceEntry("Greeter", APIVersion(3, 0), {{"lang", "en"}}));
    index.insert(InterfaceEntry("Greeter", APIVersion(4, 0), {{"lang", "en"}}));
    return index;
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, ServesTheHighestVersionOfTheRequestedMajorOnly) {
    const auto index = greeters();
    struct Row {
        APIVersion requestedVersion;
        std::string expected;
    };
    const std::vector<Row> rows = {
        {APIVersion(2, 5), "2.9.1.0"},  // minor, patch and extension of the request play no part
        {APIVersion(2, 99, 99, 99), "2.9.1.0"},
        {APIVersion(2), "2.9.1.0"},
        {APIVersion(1, 0), "1.9.0.0"},
        {APIVersion(3, 5), "3.0.0.0"},
        {APIVersion(4), "4.0.0.0"},
        {APIVersion(0), "none"},
        {APIVersion(5), "none"},
    };
    for (const auto& row : rows) {
        Search search("Greeter", row.requestedVersion);
        EXPECT_EQ(row.expected, search.in(index)) << "requested " << row.requestedVersion;
    }
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, StepsDownToTheHighestVersionWithAllRequestedProperties) {
    InterfaceIndex index;
    index.insert(InterfaceEntry("Greeter", APIVersion(2, 0), {{"lang", "de"}, {"region", "eu"}, {"extra", "x"}}));
    index.insert(InterfaceEntry("Greeter", APIVersion(2, 1), {{"lang", "de"}}));
    index.insert(InterfaceEntry("Greeter", APIVersion(2, 2), {{"lang", "en"}, {"region", "eu"}}));
    index.insert(InterfaceEntry("Greeter", APIVersion(3, 0), {{"lang", "de"}, {"region", "eu"}}));

    Search both("Greeter", APIVersion(2, 5), requested({{"lang", "de"}, {"region", "eu"}}));
    EXPECT_EQ("2.0.0.0", both.in(index));
    Search one("Greeter", APIVersion(2), requested({{"lang", "de"}}));
    EXPECT_EQ("2.1.0.0", one.in(index));
    Search none("Greeter", APIVersion(2), {});
    EXPECT_EQ("2.2.0.0", none.in(index)) << "an empty request is met by every interface";
    Search valueDiffers("Greeter", APIVersion(2), requested({{"lang", "DE"}}));
    EXPECT_EQ("none", valueDiffers.in(index)) << "values compare exactly";
    EXPECT_TRUE(both.logged.empty() && one.logged.empty() && none.logged.empty());
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, NestedRequestsNameDottedProperties) {
    InterfaceIndex index;
    index.insert(InterfaceEntry("Greeter", APIVersion(1), {{"spf.legacy.mode", "fast"}, {"a.b.c", "d"}}));
    Search nested("Greeter", APIVersion(1), requested({{"spf/legacy/mode", "fast"}, {"a/b/c", "d"}}));
    EXPECT_EQ("1.0.0.0", nested.in(index));
    Search literalKey("Greeter", APIVersion(1), requested({{"spf.legacy.mode", "fast"}}));
    EXPECT_EQ("1.0.0.0", literalKey.in(index)) << "a dotted key in one node asks for the same property";
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, OtherNamesNeverCount) {
    InterfaceIndex index;
    index.insert(InterfaceEntry("Greete", APIVersion(2, 9), {}));
    index.insert(InterfaceEntry("GreeterX", APIVersion(2, 0), {}));
    index.insert(InterfaceEntry("Greeter2", APIVersion(2, 0), {}));
    Search search("Greeter", APIVersion(2));
    EXPECT_EQ("none", search.in(index));
    index.insert(InterfaceEntry("Greeter", APIVersion(2, 3), {}));
    EXPECT_EQ("2.3.0.0", search.in(index));
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, TheLargestMajorEndsAtTheNextName) {
    constexpr auto largest = std::numeric_limits<std::uint32_t>::max();
    InterfaceIndex index;
    index.insert(InterfaceEntry("Greeter", APIVersion(largest - 1), {}));
    index.insert(InterfaceEntry("Greeter", APIVersion(largest, 1), {{"k", "v"}}));
    index.insert(InterfaceEntry("Greeter", APIVersion(largest, 7), {}));
    index.insert(InterfaceEntry("Greeter\x01", APIVersion(largest, 9), {{"k", "v"}}));

    Search highest("Greeter", APIVersion(largest));
    EXPECT_EQ(APIVersion(largest, 7).toString(), highest.in(index));
    Search withProperty("Greeter", APIVersion(largest), requested({{"k", "v"}}));
    EXPECT_EQ(APIVersion(largest, 1).toString(), withProperty.in(index));
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, ExplainsWhyNothingWasFoundWordForWord) {
    const auto index = greeters();

    Search noVersion("Greeter", APIVersion(7, 3, 2, 1));
    EXPECT_EQ("none", noVersion.in(index));
    EXPECT_EQ(std::vector<std::string>{"Unable to find a ServiceInterface for Greeter with version compatible to "
                                       "requested version 7.0.0.0"},
              noVersion.logged);

    Search noName("Farewell", APIVersion(2), requested({{"lang", "en"}}));
    EXPECT_EQ("none", noName.in(index));
    EXPECT_EQ(std::vector<std::string>{"Unable to find a ServiceInterface for Farewell with version compatible to "
                                       "requested version 2.0.0.0"},
              noName.logged)
        << "with no version in range, the properties are not mentioned";

    Search noProperties("Greeter", APIVersion(2, 5), requested({{"lang", "fr"}, {"tier/level", "gold"}}));
    EXPECT_EQ("none", noProperties.in(index));
    EXPECT_EQ(std::vector<std::string>{"Unable to find a ServiceInterface for Greeter with version compatible to "
                                       "requested version 2.0.0.0 and all required service properties "
                                       "{\"lang\":\"fr\",\"tier\":{\"level\":\"gold\"}}"},
              noProperties.logged);

    Search emptyIndex("Greeter", APIVersion(1));
    EXPECT_EQ("none", emptyIndex.in(InterfaceIndex()));
    EXPECT_EQ(1u, emptyIndex.logged.size());
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, PropertyTextEscapesWhatJsonMust) {
    ptree tree;
    tree.put("quote\"d", "back\\slash\nnew line");
    HighestVersionedInterfaceWithMatchingPropertiesFinder finder("Greeter", APIVersion(1), tree, [](auto&&) {});
    EXPECT_EQ("Unable to find a ServiceInterface for Greeter with version compatible to requested version 1.0.0.0 and "
              "all required service properties {\"quote\\\"d\":\"back\\\\slash\\nnew line\"}",
              finder.noMatchingPropertiesMessage());
    HighestVersionedInterfaceWithMatchingPropertiesFinder empty("Greeter", APIVersion(1), ptree(), [](auto&&) {});
    EXPECT_EQ("Unable to find a ServiceInterface for Greeter with version compatible to requested version 1.0.0.0 and "
              "all required service properties {}",
              empty.noMatchingPropertiesMessage());
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, SearchesAMapKeyedByNameAndVersion) {
    std::map<std::pair<std::string, APIVersion>, Properties> index{
        {{"Greeter", APIVersion(2, 1)}, {{"lang", "en"}}},
        {{"Greeter", APIVersion(2, 4)}, {{"lang", "de"}}},
        {{"Greeter", APIVersion(3, 0)}, {{"lang", "en"}}},
    };
    std::vector<std::string> logged;
    HighestVersionedInterfaceWithMatchingPropertiesFinder finder(
        "Greeter", APIVersion(2, 9), requested({{"lang", "en"}}),
        [&](const std::string& message) { logged.push_back(message); });
    const auto found = finder(index);
    ASSERT_NE(index.end(), found);
    EXPECT_EQ(APIVersion(2, 1), found->first.second);

    // The same search with the properties found another way.
    std::map<std::pair<std::string, APIVersion>, std::pair<int, Properties>> wrapped{
        {{"Greeter", APIVersion(2, 4)}, {0, {{"lang", "en"}}}}};
    const auto foundWrapped = finder(wrapped, [](const auto& element) -> const Properties& {
        return element.second.second;
    });
    ASSERT_NE(wrapped.end(), foundWrapped);
    EXPECT_TRUE(logged.empty());
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, WithoutALogFunctionTheLibraryLoggerWarns) {
    auto capture = std::make_shared<foundation::log::capture_sink>("agent::spf::servicepublisher");
    foundation::log::addSink(capture);
    HighestVersionedInterfaceWithMatchingPropertiesFinder finder("Greeter", APIVersion(9), ptree());
    const auto index = greeters();
    EXPECT_EQ(index.end(), finder(index));
    foundation::log::removeSink(capture);

    const auto records = capture->records();
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ(foundation::log::severity::warning, records[0].severity);
    EXPECT_EQ(
        "Unable to find a ServiceInterface for Greeter with version compatible to requested version 9.0.0.0",
        records[0].text);
}

TEST(HighestVersionedInterfaceWithMatchingPropertiesFinderTest, AThrowingLogFunctionDoesNotSpoilTheSearch) {
    HighestVersionedInterfaceWithMatchingPropertiesFinder finder(
        "Greeter", APIVersion(9), ptree(), [](const std::string&) { throw std::runtime_error("log is full"); });
    const auto index = greeters();
    EXPECT_NO_THROW(EXPECT_EQ(index.end(), finder(index)));
}

}  // namespace
