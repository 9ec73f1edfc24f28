// Factory configurations: parsing, bad elements and the modification count. The key a pid gives
// shows in spf-host's configs and status lines (spfhost suite).

#include "ServicePublisherFixture.h"

#include <iterator>
#include <optional>
#include <tuple>

namespace publishertest {
namespace {

using ::testing::ThrowsMessage;

const std::string kString = "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >";
const std::string kAnyVector = "std::vector<cppmicroservices::Any, std::allocator<cppmicroservices::Any> >";

// What a mistyped value throws.
std::string badCast(const std::string& cast, const std::string& from, const std::string& to) {
    return "cppmicroservices::BadAnyCastException: " + cast + ": Failed to convert from cppmicroservices::Any type " +
           from + " to target type " + to;
}
// One service map with name, uniqueID and empty requested properties.
AnyMap service(const std::string& name, const std::string& uniqueID) {
    return AnyMap{{"name", Any(name)}, {"requestedProperties", Any(AnyMap{})}, {"uniqueID", Any(uniqueID)}};
}
// `map` with `key` set to `value`, or without `key`.
AnyMap with(AnyMap map, const std::string& key, std::optional<Any> value) {
    map.erase(key);
    if (value) map.emplace(key, std::move(*value));
    return map;
}

class ConfigurationParsingTest : public ServicePublisherFixture {
protected:
    ServicePublisher::PublisherConfiguration stored() { return Access::configurations(*publisher).at("demo"); }
    std::vector<std::string> uniqueIDs() {
        std::vector<std::string> ids;
        for (const auto& service : stored().serviceConfigurations) ids.push_back(service.uniqueID);
        return ids;
    }
};

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
        const auto properties = configuration(given.value_or(0), {endpoint, endpoint});
        publisher->Updated(kPid, given ? properties : with(properties, "modificationCount", std::nullopt));
        current = replaces ? endpoint : current;
        EXPECT_EQ(kept, stored().modificationCount) << i;
        EXPECT_EQ((std::set<std::string>{current}), stored().endpoints) << i;
        EXPECT_EQ(replaces, Access::failed(*publisher).empty()) << i;
    }
    publisher->Updated("qz.spf.legacyservicepublisher~empty", AnyMap{});
    EXPECT_EQ(1u, Access::configurations(*publisher).size()) << "an empty map is ignored";

    // Removed and added again, any count will do; removal too gives failed endpoints a new chance.
    publisher->Removed(kPid);
    EXPECT_THAT(Access::failed(*publisher), IsEmpty());
    publisher->Updated(kPid, configuration(0, {"tcp://c:1"}));
    EXPECT_EQ((std::set<std::string>{"tcp://c:1"}), stored().endpoints);
}

// A bad element of a list is skipped with two log lines; a missing or mistyped list leaves Updated
// with its exception and records nothing.
TEST_F(ConfigurationParsingTest, ABadElementIsSkippedAndLoggedAndABadListIsThrownAndChangesNothing) {
    // The neighbour before carries a whole version and nested properties; the one after takes the defaults.
    AnyMap before = service("Before", "before");
    before["version"] = Any(AnyMap{{"major", Any(3)}, {"minor", Any(4)}, {"patch", Any(5)}, {"extension", Any(6)}});
    before["requestedProperties"] = Any(AnyMap{{"tier", Any(AnyMap{{"level", Any(2)}})}});
    int count = 0;
    const auto element = [&](const std::string& key, std::optional<Any> value) {
        return configuration(++count, {}, {before, with(service("X", "x"), key, value), service("After", "after")});
    };
    // Recorded, these would leave no service.
    const auto list = [&](const std::string& key, std::optional<Any> value) {
        return with(configuration(++count, {}), key, value);
    };
    const std::string kAnyMap = "cppmicroservices::AnyMap";
    const std::tuple<AnyMap, std::string, bool> rows[] = {
        {element("name", std::nullopt), "Key not found: name", false},
        {element("uniqueID", std::nullopt), "Key not found: uniqueID", false},
        {element("requestedProperties", std::nullopt), "Key not found: requestedProperties", false},
        {element("name", Any(42)), badCast("any_cast", "int", kString), false},
        {element("version", Any(AnyMap{{"major", Any(std::string("2"))}})), badCast("any_cast", kString, "int"), false},
        {element("requestedProperties", Any(std::vector<Any>{})), badCast("ref_any_cast", kAnyVector, kAnyMap), false},
        {configuration(++count, {}, {before, Any(std::string("not a map")), service("After", "after")}),
         badCast("ref_any_cast", kString, kAnyMap), false},
        {list("config", std::nullopt), "Key not found: config", true},
        {list("serviceConfigurations", std::nullopt), "Key not found: serviceConfigurations", true},
        {list("config", Any(AnyMap{{"endpointsToConnectTo", Any(std::string("tcp://b:1"))}})),
         badCast("ref_any_cast", kString, kAnyVector), true},
        {list("serviceConfigurations", Any(AnyMap{})), badCast("ref_any_cast", kAnyMap, kAnyVector), true},
        {list("modificationCount", Any(std::string("2"))), badCast("any_cast", kString, "int"), true},
    };
    for (const auto& [properties, message, thrown] : rows) {
        capture->clear();
        if (thrown) {
            EXPECT_THAT([&] { publisher->Updated(kPid, properties); }, ThrowsMessage<std::exception>(message));
            EXPECT_THAT(logLines(), IsEmpty());
        } else {
            publisher->Updated(kPid, properties);
            EXPECT_THAT(logLines(), ElementsAre("0x100 Invalid PublisherConfiguration ServiceConfiguration",
                                                "0x10 Exception caught: " + message));
        }
        EXPECT_THAT(uniqueIDs(), ElementsAre("before", "after")) << message;
    }
    const auto services = stored().serviceConfigurations;
    EXPECT_EQ(agent::spf::core::APIVersion(3, 4, 5, 6), services[0].version);
    EXPECT_EQ("2", services[0].requestedProperties.get<std::string>("tier.level"));
    EXPECT_EQ(agent::spf::core::APIVersion(1, 0, 0, 0), services[1].version);
    EXPECT_TRUE(services[1].requestedProperties.empty());

    // An endpoint that is not a string; requested properties that do not read as JSON (keys
    // are written unescaped) leave their service without a requirement.
    const Any quoted = with(service("Quoted", "quoted"), "requestedProperties", Any(AnyMap{{"a\"b", Any(1)}}));
    AnyMap properties = configuration(++count, {}, {quoted});
    const std::vector<Any> endpoints{Any(std::string("tcp://a:1")), Any(7), Any(std::string("tcp://b:1"))};
    properties["config"] = Any(AnyMap{{"endpointsToConnectTo", Any(endpoints)}});
    capture->clear();
    publisher->Updated(kPid, properties);
    EXPECT_THAT(logLines(), ElementsAre("0x100 Invalid PublisherConfiguration exchangeEndpoint",
                                        "0x10 Exception caught: " + badCast("any_cast", "int", kString),
                                        "0x100 Invalid ServiceConfiguration requestedProperties",
                                        ::testing::StartsWith("0x10 Exception caught: ")));
    EXPECT_EQ((std::set<std::string>{"tcp://a:1", "tcp://b:1"}), stored().endpoints);
    EXPECT_THAT(uniqueIDs(), ElementsAre("quoted"));
    EXPECT_TRUE(stored().serviceConfigurations[0].requestedProperties.empty());
}

}  // namespace
}  // namespace publishertest
