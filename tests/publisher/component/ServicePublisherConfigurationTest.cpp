// Factory configurations: their keys, parsing, defaults, bad elements and the modification count.

#include "ServicePublisherFixture.h"

#include <boost/property_tree/json_parser.hpp>

#include <sstream>
#include <stdexcept>

namespace publishertest {
namespace {

using ConfigurationTest = ServicePublisherFixture;

const std::string kPid = "qz.spf.legacyservicepublisher~demo";

std::string json(const boost::property_tree::ptree& tree) {
    std::ostringstream out;
    boost::property_tree::write_json(out, tree, false);
    return out.str();
}

TEST(ConfigurationKeyTest, APidOfThirtyOneOrMoreCharactersLosesExactlyItsFirstThirty) {
    const struct {
        std::string pid;
        std::string key;
    } rows[] = {
        {"qz.spf.legacyservicepublisher~demo", "demo"},
        {"abc", "abc"},
        {"", ""},
        {std::string(30, 'p'), std::string(30, 'p')},
        {std::string(30, 'p') + "k", "k"},
        // A fixed cut: a separator elsewhere is not looked for.
        {"short.factory~instance-name-that-is-long", "at-is-long"},
        {"qz.spf.legacyservicepublisher~~x", "~x"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.key, ServicePublisherTestAccess::configurationKey(row.pid)) << row.pid;
    }
}

TEST_F(ConfigurationTest, AConfigurationIsStoredUnderItsKeyWithEndpointsServicesAndDefaults) {
    AnyMap versioned = service("Calculator", "calc");
    versioned["version"] = Any(AnyMap{{"major", Any(3)}, {"minor", Any(4)}, {"patch", Any(5)}, {"extension", Any(6)}});
    AnyMap requested = service("Greeter", "greet");
    requested["requestedProperties"] =
        Any(AnyMap{{"region", Any(std::string("eu"))}, {"tier", Any(AnyMap{{"level", Any(2)}})}});

    publisher->Updated(kPid, configuration(7,
                                           {Any(std::string("tcp://b:1")), Any(std::string("inprocess")),
                                            Any(std::string("tcp://b:1"))},
                                           {Any(service("Plain", "plain")), Any(versioned), Any(requested)}));

    const auto configurations = ServicePublisherTestAccess::configurations(*publisher);
    ASSERT_EQ(1u, configurations.size());
    const auto& stored = configurations.at("demo");
    EXPECT_EQ((std::set<std::string>{"inprocess", "tcp://b:1"}), stored.endpoints);
    EXPECT_EQ(7u, stored.modificationCount);
    ASSERT_EQ(3u, stored.serviceConfigurations.size());

    const auto& plain = stored.serviceConfigurations[0];
    EXPECT_EQ("Plain", plain.name);
    EXPECT_EQ("plain", plain.uniqueID);
    EXPECT_EQ(agent::spf::core::APIVersion(1, 0, 0, 0), plain.version);  // major defaults to 1
    EXPECT_TRUE(plain.requestedProperties.empty());

    EXPECT_EQ(agent::spf::core::APIVersion(3, 4, 5, 6), stored.serviceConfigurations[1].version);

    const auto& greeter = stored.serviceConfigurations[2];
    EXPECT_EQ("eu", greeter.requestedProperties.get<std::string>("region"));
    EXPECT_EQ("2", greeter.requestedProperties.get<std::string>("tier.level"));
    EXPECT_TRUE(logTexts().empty());
}

TEST_F(ConfigurationTest, OnlyAHigherModificationCountReplacesAStoredConfiguration) {
    publisher->Updated(kPid, configuration(5, {Any(std::string("tcp://a:1"))}, {Any(service("A", "a"))}));
    ServicePublisherTestAccess::markFailed(*publisher, "tcp://a:1");

    // Equal and lower counts change nothing, even with other content, and give failed
    // endpoints no new chance.
    publisher->Updated(kPid, configuration(5, {Any(std::string("tcp://b:1"))}, {}));
    publisher->Updated(kPid, configuration(4, {Any(std::string("tcp://c:1"))}, {}));
    auto stored = ServicePublisherTestAccess::configurations(*publisher).at("demo");
    EXPECT_EQ((std::set<std::string>{"tcp://a:1"}), stored.endpoints);
    EXPECT_EQ(5u, stored.modificationCount);
    EXPECT_EQ(1u, stored.serviceConfigurations.size());
    EXPECT_EQ(1u, ServicePublisherTestAccess::failedAgentConnections(*publisher).size());

    publisher->Updated(kPid, configuration(6, {Any(std::string("tcp://b:1"))}, {}));
    stored = ServicePublisherTestAccess::configurations(*publisher).at("demo");
    EXPECT_EQ((std::set<std::string>{"tcp://b:1"}), stored.endpoints);
    EXPECT_EQ(6u, stored.modificationCount);
    EXPECT_TRUE(stored.serviceConfigurations.empty());
    EXPECT_TRUE(ServicePublisherTestAccess::failedAgentConnections(*publisher).empty());
}

TEST_F(ConfigurationTest, TheModificationCountIsComparedUnsigned) {
    // -1 is stored as 4294967295: a later count of 1 is lower.
    publisher->Updated(kPid, configuration(-1, {Any(std::string("tcp://a:1"))}, {}));
    publisher->Updated(kPid, configuration(1, {Any(std::string("tcp://b:1"))}, {}));
    const auto stored = ServicePublisherTestAccess::configurations(*publisher).at("demo");
    EXPECT_EQ(4294967295u, stored.modificationCount);
    EXPECT_EQ((std::set<std::string>{"tcp://a:1"}), stored.endpoints);
}

TEST_F(ConfigurationTest, AMissingModificationCountCountsAsZeroAndAnEmptyMapIsIgnored) {
    AnyMap properties = configuration(0, {Any(std::string("tcp://a:1"))}, {});
    properties.erase("modificationCount");
    publisher->Updated(kPid, properties);
    EXPECT_EQ(0u, ServicePublisherTestAccess::configurations(*publisher).at("demo").modificationCount);

    publisher->Updated("qz.spf.legacyservicepublisher~empty", AnyMap{});
    EXPECT_EQ(1u, ServicePublisherTestAccess::configurations(*publisher).size());
}

TEST_F(ConfigurationTest, RemovedForgetsTheConfigurationAndGivesFailedEndpointsANewChance) {
    publisher->Updated(kPid, configuration(1, {Any(std::string("tcp://a:1"))}, {}));
    publisher->Updated("qz.spf.legacyservicepublisher~other", configuration(1, {}, {}));
    ServicePublisherTestAccess::markFailed(*publisher, "tcp://a:1");

    publisher->Removed("qz.spf.legacyservicepublisher~unknown");
    EXPECT_EQ(2u, ServicePublisherTestAccess::configurations(*publisher).size());
    EXPECT_EQ(1u, ServicePublisherTestAccess::failedAgentConnections(*publisher).size());

    publisher->Removed(kPid);
    const auto configurations = ServicePublisherTestAccess::configurations(*publisher);
    EXPECT_EQ(0u, configurations.count("demo"));
    EXPECT_EQ(1u, configurations.count("other"));
    EXPECT_TRUE(ServicePublisherTestAccess::failedAgentConnections(*publisher).empty());

    // Removed and re-added, a configuration starts from any count again.
    publisher->Updated(kPid, configuration(0, {Any(std::string("tcp://c:1"))}, {}));
    EXPECT_EQ(1u, ServicePublisherTestAccess::configurations(*publisher).count("demo"));
}

// Each bad service element is skipped with exactly its two records; the good ones around it
// are kept.
TEST_F(ConfigurationTest, EachBadServiceElementIsSkippedWithItsTwoLogLines) {
    const std::string toString =
        "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >";
    AnyMap noName = service("x", "no-name");
    noName.erase("name");
    AnyMap noUniqueID = service("NoUniqueID", "x");
    noUniqueID.erase("uniqueID");
    AnyMap noRequested = service("NoRequested", "x");
    noRequested.erase("requestedProperties");
    AnyMap numericName = service("x", "numeric");
    numericName["name"] = Any(42);
    AnyMap textMajor = service("TextMajor", "x");
    textMajor["version"] = Any(AnyMap{{"major", Any(std::string("2"))}});
    AnyMap listRequested = service("ListRequested", "x");
    listRequested["requestedProperties"] = Any(std::vector<Any>{});

    const struct {
        Any element;
        std::string message;
    } rows[] = {
        {Any(noName), "Key not found: name"},
        {Any(noUniqueID), "Key not found: uniqueID"},
        {Any(noRequested), "Key not found: requestedProperties"},
        {Any(numericName),
         "cppmicroservices::BadAnyCastException: any_cast: Failed to convert from cppmicroservices::Any type int "
         "to target type " + toString},
        {Any(textMajor), "cppmicroservices::BadAnyCastException: any_cast: Failed to convert from "
                         "cppmicroservices::Any type " + toString + " to target type int"},
        {Any(listRequested), "cppmicroservices::BadAnyCastException: ref_any_cast: Failed to convert from "
                             "cppmicroservices::Any type std::vector<cppmicroservices::Any, "
                             "std::allocator<cppmicroservices::Any> > to target type cppmicroservices::AnyMap"},
        {Any(std::string("not a map")), "cppmicroservices::BadAnyCastException: ref_any_cast: Failed to convert "
                                        "from cppmicroservices::Any type " + toString +
                                            " to target type cppmicroservices::AnyMap"},
    };
    int count = 1;
    for (const auto& row : rows) {
        capture->clear();
        publisher->Updated(kPid, configuration(count++, {},
                                               {Any(service("Before", "before")), row.element,
                                                Any(service("After", "after"))}));
        EXPECT_EQ((std::vector<std::string>{"0x100 Invalid PublisherConfiguration ServiceConfiguration",
                                            "0x10 Exception caught: " + row.message}),
                  logLines());
        const auto stored = ServicePublisherTestAccess::configurations(*publisher).at("demo");
        ASSERT_EQ(2u, stored.serviceConfigurations.size()) << row.message;
        EXPECT_EQ("before", stored.serviceConfigurations[0].uniqueID);
        EXPECT_EQ("after", stored.serviceConfigurations[1].uniqueID);
    }
}

TEST_F(ConfigurationTest, AnEndpointThatIsNotAStringIsSkippedWithItsTwoLogLines) {
    publisher->Updated(kPid, configuration(1, {Any(std::string("tcp://a:1")), Any(7), Any(std::string("tcp://b:1"))},
                                           {Any(service("A", "a"))}));
    EXPECT_EQ((std::vector<std::string>{
                  "0x100 Invalid PublisherConfiguration exchangeEndpoint",
                  "0x10 Exception caught: cppmicroservices::BadAnyCastException: any_cast: Failed to convert from "
                  "cppmicroservices::Any type int to target type "
                  "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >"}),
              logLines());
    EXPECT_EQ((std::set<std::string>{"tcp://a:1", "tcp://b:1"}),
              ServicePublisherTestAccess::configurations(*publisher).at("demo").endpoints);
}

TEST_F(ConfigurationTest, RequestedPropertiesThatAreNotJsonKeepTheServiceWithoutARequirement) {
    AnyMap quoted = service("Quoted", "quoted");
    // Keys are written unescaped, so this one makes the text unreadable as JSON.
    quoted["requestedProperties"] = Any(AnyMap{{"a\"b", Any(std::string("c"))}});
    publisher->Updated(kPid, configuration(1, {}, {Any(quoted)}));

    const auto lines = logLines();
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("0x100 Invalid ServiceConfiguration requestedProperties", lines[0]);
    EXPECT_EQ(0u, lines[1].rfind("0x10 Exception caught: ", 0)) << lines[1];
    const auto stored = ServicePublisherTestAccess::configurations(*publisher).at("demo");
    ASSERT_EQ(1u, stored.serviceConfigurations.size());
    EXPECT_EQ("quoted", stored.serviceConfigurations[0].uniqueID);
    EXPECT_TRUE(stored.serviceConfigurations[0].requestedProperties.empty()) << json(
        stored.serviceConfigurations[0].requestedProperties);
}

TEST_F(ConfigurationTest, AMissingOrMistypedListLeavesUpdatedWithItsExceptionAndChangesNothing) {
    publisher->Updated(kPid, configuration(1, {Any(std::string("tcp://a:1"))}, {}));
    ServicePublisherTestAccess::markFailed(*publisher, "tcp://a:1");

    AnyMap noEndpoints = configuration(2, {}, {});
    noEndpoints.erase("config");
    AnyMap noServices = configuration(2, {}, {});
    noServices.erase("serviceConfigurations");
    AnyMap textEndpoints = configuration(2, {}, {});
    textEndpoints["config"] = Any(AnyMap{{"endpointsToConnectTo", Any(std::string("tcp://b:1"))}});
    AnyMap mapServices = configuration(2, {}, {});
    mapServices["serviceConfigurations"] = Any(AnyMap{});
    AnyMap textCount = configuration(2, {}, {});
    textCount["modificationCount"] = Any(std::string("2"));

    const struct {
        AnyMap properties;
        std::string message;
    } rows[] = {
        {noEndpoints, "Key not found: config"},
        {noServices, "Key not found: serviceConfigurations"},
        {textEndpoints, "cppmicroservices::BadAnyCastException: ref_any_cast: Failed to convert from "
                        "cppmicroservices::Any type std::__cxx11::basic_string<char, std::char_traits<char>, "
                        "std::allocator<char> > to target type std::vector<cppmicroservices::Any, "
                        "std::allocator<cppmicroservices::Any> >"},
        {mapServices, "cppmicroservices::BadAnyCastException: ref_any_cast: Failed to convert from "
                      "cppmicroservices::Any type cppmicroservices::AnyMap to target type "
                      "std::vector<cppmicroservices::Any, std::allocator<cppmicroservices::Any> >"},
        {textCount, "cppmicroservices::BadAnyCastException: any_cast: Failed to convert from cppmicroservices::Any "
                    "type std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > to target "
                    "type int"},
    };
    for (const auto& row : rows) {
        try {
            publisher->Updated(kPid, row.properties);
            ADD_FAILURE() << "no exception for " << row.message;
        } catch (const std::exception& e) {
            EXPECT_EQ(row.message, e.what());
        }
        const auto stored = ServicePublisherTestAccess::configurations(*publisher).at("demo");
        EXPECT_EQ(1u, stored.modificationCount) << row.message;
        EXPECT_EQ(1u, ServicePublisherTestAccess::failedAgentConnections(*publisher).size()) << row.message;
    }
    EXPECT_TRUE(logTexts().empty());
}

}  // namespace
}  // namespace publishertest
