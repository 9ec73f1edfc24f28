// Factory configurations: their keys, parsing, defaults, bad elements and the modification count.

#include "ServicePublisherFixture.h"

#include <iterator>
#include <optional>
#include <tuple>

namespace publishertest {
namespace {

const std::string kString = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >";
const std::string kAnyVector = "std::vector<cppmicroservices::Any, std::allocator<cppmicroservices::Any> >";
const std::string kBadCast = "cppmicroservices::BadAnyCastException: ";

// `map` with `key` set to `value`, or without `key`.
AnyMap with(AnyMap map, const std::string& key, std::optional<Any> value) {
    if (value) {
        map[key] = std::move(*value);
    } else {
        map.erase(key);
    }
    return map;
}

TEST(ConfigurationKeyTest, APidOfThirtyOneOrMoreCharactersLosesExactlyItsFirstThirty) {
    // A fixed cut: a separator elsewhere is not looked for.
    const std::pair<std::string, std::string> rows[] = {
        {"qz.spf.legacyservicepublisher~demo", "demo"}, {"abc", "abc"}, {"", ""},
        {std::string(30, 'p'), std::string(30, 'p')}, {std::string(30, 'p') + "k", "k"},
        {"short.factory~instance-name-that-is-long", "at-is-long"}, {"qz.spf.legacyservicepublisher~~x", "~x"},
    };
    for (const auto& [pid, key] : rows) {
        EXPECT_EQ(key, Access::configurationKey(pid)) << pid;
    }
}

class ConfigurationParsingTest : public ServicePublisherFixture {
protected:
    ServicePublisher::PublisherConfiguration stored() { return Access::configurations(*publisher).at("demo"); }
    std::vector<std::string> uniqueIDs() {
        std::vector<std::string> ids;
        for (const auto& service : stored().serviceConfigurations) {
            ids.push_back(service.uniqueID);
        }
        return ids;
    }
};

TEST_F(ConfigurationParsingTest, AConfigurationIsStoredUnderItsKeyWithEndpointsServicesAndDefaults) {
    AnyMap versioned = service("Calculator", "calc");
    versioned["version"] = Any(AnyMap{{"major", Any(3)}, {"minor", Any(4)}, {"patch", Any(5)}, {"extension", Any(6)}});
    versioned["requestedProperties"] = Any(AnyMap{{"tier", Any(AnyMap{{"level", Any(2)}})}});
    publisher->Updated(kPid, configuration(7, {"tcp://b:1", "inprocess", "tcp://b:1"},
                                           {service("Plain", "plain"), versioned}));
    ASSERT_EQ(1u, Access::configurations(*publisher).size());
    ASSERT_THAT(uniqueIDs(), ElementsAre("plain", "calc"));
    const auto configuration = stored();
    const auto& services = configuration.serviceConfigurations;
    EXPECT_EQ((std::set<std::string>{"inprocess", "tcp://b:1"}), configuration.endpoints);
    EXPECT_EQ(7u, configuration.modificationCount);
    EXPECT_EQ("Plain", services[0].name);
    EXPECT_EQ(agent::spf::core::APIVersion(1, 0, 0, 0), services[0].version);  // major defaults to 1
    EXPECT_TRUE(services[0].requestedProperties.empty());
    EXPECT_EQ(agent::spf::core::APIVersion(3, 4, 5, 6), services[1].version);
    EXPECT_EQ("2", services[1].requestedProperties.get<std::string>("tier.level"));
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(ConfigurationParsingTest, OnlyAHigherCountReplacesAndAChangeOrRemovalGivesFailedEndpointsANewChance) {
    // Each row: the count given (none: absent), whether it replaces what is stored, the count kept;
    // -1 is kept unsigned, so that a later 1 is lower.
    const std::tuple<std::optional<int>, bool, unsigned int> rows[] = {
        {std::nullopt, true, 0}, {5, true, 5},           {5, false, 5},
        {4, false, 5},           {-1, true, 4294967295u}, {1, false, 4294967295u}};
    std::string current;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& [given, replaces, kept] = rows[i];
        Access::markFailed(*publisher, "tcp://failed:1");
        const std::string endpoint = "tcp://" + std::to_string(i) + ":1";
        const auto properties = configuration(given.value_or(0), {endpoint}, {});
        publisher->Updated(kPid, given ? properties : with(properties, "modificationCount", std::nullopt));
        current = replaces ? endpoint : current;
        EXPECT_EQ(kept, stored().modificationCount) << i;
        EXPECT_EQ((std::set<std::string>{current}), stored().endpoints) << i;
        EXPECT_EQ(replaces, Access::failedAgentConnections(*publisher).empty()) << i;
    }
    publisher->Updated("qz.spf.legacyservicepublisher~empty", AnyMap{});
    publisher->Removed("qz.spf.legacyservicepublisher~unknown");
    EXPECT_EQ(1u, Access::configurations(*publisher).size()) << "an empty map is ignored";
    EXPECT_EQ(1u, Access::failedAgentConnections(*publisher).size()) << "an unknown removal changes nothing";

    // Removed and added again, any count will do; removal too gives failed endpoints a new chance.
    publisher->Removed(kPid);
    EXPECT_TRUE(Access::configurations(*publisher).empty());
    EXPECT_THAT(Access::failedAgentConnections(*publisher), IsEmpty());
    publisher->Updated(kPid, configuration(0, {"tcp://c:1"}, {}));
    EXPECT_EQ((std::set<std::string>{"tcp://c:1"}), stored().endpoints);
}

TEST_F(ConfigurationParsingTest, EachBadElementIsSkippedWithItsTwoLogLinesAndItsNeighboursAreKept) {
    const auto changed = [](const std::string& key, std::optional<Any> value) {
        return Any(with(service("X", "x"), key, value));
    };
    const std::pair<Any, std::string> rows[] = {
        {changed("name", std::nullopt), "Key not found: name"},
        {changed("uniqueID", std::nullopt), "Key not found: uniqueID"},
        {changed("requestedProperties", std::nullopt), "Key not found: requestedProperties"},
        {changed("name", Any(42)),
         kBadCast + "any_cast: Failed to convert from cppmicroservices::Any type int to target type " + kString},
        {changed("version", Any(AnyMap{{"major", Any(std::string("2"))}})),
         kBadCast + "any_cast: Failed to convert from cppmicroservices::Any type " + kString + " to target type int"},
        {changed("requestedProperties", Any(std::vector<Any>{})), kBadCast + "ref_any_cast: Failed to convert from "
             "cppmicroservices::Any type " + kAnyVector + " to target type cppmicroservices::AnyMap"},
        {Any(std::string("not a map")), kBadCast + "ref_any_cast: Failed to convert from cppmicroservices::Any type " +
                                            kString + " to target type cppmicroservices::AnyMap"},
    };
    int count = 1;
    for (const auto& [element, message] : rows) {
        capture->clear();
        const std::vector<Any> services{service("Before", "before"), element, service("After", "after")};
        publisher->Updated(kPid, configuration(count++, {}, services));
        EXPECT_THAT(logLines(), ElementsAre("0x100 Invalid PublisherConfiguration ServiceConfiguration",
                                            "0x10 Exception caught: " + message));
        EXPECT_THAT(uniqueIDs(), ElementsAre("before", "after")) << message;
    }

    // An endpoint that is not a string; requested properties that do not read as JSON (keys
    // are written unescaped) leave their service without a requirement.
    AnyMap quoted = service("Quoted", "quoted");
    quoted["requestedProperties"] = Any(AnyMap{{"a\"b", Any(std::string("c"))}});
    AnyMap properties = configuration(count, {}, {quoted});
    const std::vector<Any> endpoints{Any(std::string("tcp://a:1")), Any(7), Any(std::string("tcp://b:1"))};
    properties["config"] = Any(AnyMap{{"endpointsToConnectTo", Any(endpoints)}});
    capture->clear();
    publisher->Updated(kPid, properties);
    EXPECT_THAT(logLines(), ElementsAre("0x100 Invalid PublisherConfiguration exchangeEndpoint",
                                        "0x10 Exception caught: " + kBadCast + "any_cast: Failed to convert from "
                                            "cppmicroservices::Any type int to target type " + kString,
                                        "0x100 Invalid ServiceConfiguration requestedProperties",
                                        StartsWith("0x10 Exception caught: ")));
    EXPECT_EQ((std::set<std::string>{"tcp://a:1", "tcp://b:1"}), stored().endpoints);
    EXPECT_THAT(uniqueIDs(), ElementsAre("quoted"));
    EXPECT_TRUE(stored().serviceConfigurations[0].requestedProperties.empty());
}

TEST_F(ConfigurationParsingTest, AMissingOrMistypedListLeavesUpdatedWithItsExceptionAndChangesNothing) {
    publisher->Updated(kPid, configuration(1, {"tcp://a:1"}, {}));
    Access::markFailed(*publisher, "tcp://a:1");
    const auto changed = [](const std::string& key, std::optional<Any> value) {
        return with(configuration(2, {}, {}), key, value);
    };
    const std::pair<AnyMap, std::string> rows[] = {
        {changed("config", std::nullopt), "Key not found: config"},
        {changed("serviceConfigurations", std::nullopt), "Key not found: serviceConfigurations"},
        {changed("config", Any(AnyMap{{"endpointsToConnectTo", Any(std::string("tcp://b:1"))}})),
         kBadCast + "ref_any_cast: Failed to convert from cppmicroservices::Any type " + kString + " to target type " +
             kAnyVector},
        {changed("serviceConfigurations", Any(AnyMap{})), kBadCast + "ref_any_cast: Failed to convert from "
             "cppmicroservices::Any type cppmicroservices::AnyMap to target type " + kAnyVector},
        {changed("modificationCount", Any(std::string("2"))),
         kBadCast + "any_cast: Failed to convert from cppmicroservices::Any type " + kString + " to target type int"},
    };
    for (const auto& [properties, message] : rows) {
        try {
            publisher->Updated(kPid, properties);
            ADD_FAILURE() << "no exception for " << message;
        } catch (const std::exception& e) {
            EXPECT_EQ(message, e.what());
        }
        EXPECT_EQ(1u, stored().modificationCount) << message;
        EXPECT_EQ(1u, Access::failedAgentConnections(*publisher).size()) << message;
    }
    EXPECT_THAT(logLines(), IsEmpty());
}

}  // namespace
}  // namespace publishertest
