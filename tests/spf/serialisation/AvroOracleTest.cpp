// Our Avro binary against python3-avro, an independent implementation: every case is
// encoded here and decoded there, and encoded there and decoded here, to the same value.
// All cases go to one python process (its start-up is the slow part).
#include "agent/spf/serialisation/avro/Avro.h"

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using json = nlohmann::json;
using namespace agent::spf::serialisation;

namespace oracle {

struct Point {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::string label;
    std::optional<double> weight;
    friend bool operator==(const Point& a, const Point& b) {
        return a.x == b.x && a.y == b.y && a.label == b.label && a.weight == b.weight;
    }
};

}  // namespace oracle

template <>
struct agent::spf::serialisation::AvroCodec<oracle::Point>
    : AvroRecordCodec<oracle::Point, &oracle::Point::x, &oracle::Point::y, &oracle::Point::label,
                      &oracle::Point::weight> {};

namespace {

using Bytes = std::vector<std::uint8_t>;

std::string toHex(const std::uint8_t* data, std::size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (std::size_t i = 0; i < size; ++i) {
        hex += digits[data[i] >> 4];
        hex += digits[data[i] & 0xF];
    }
    return hex;
}

Bytes fromHex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

// NaN equals NaN and the sign of zero counts: what a faithful round trip keeps.
template <class T>
bool sameValue(const T& a, const T& b) {
    if constexpr (std::is_floating_point_v<T>) {
        return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
    } else {
        return a == b;
    }
}

json floatJson(double value) {
    if (std::isnan(value)) return "NaN";
    if (std::isinf(value)) return value > 0 ? "Infinity" : "-Infinity";
    return value;
}

// Numbers compare by value (python writes 1.0 where we expect 1), special floats by text.
bool sameJson(const json& a, const json& b) {
    if (a.is_number() && b.is_number()) {
        if (a.is_number_float() || b.is_number_float()) {
            const double x = a.get<double>();
            const double y = b.get<double>();
            return x == y && std::signbit(x) == std::signbit(y);
        }
        return a == b;
    }
    if (a.type() != b.type()) return false;
    if (a.is_array()) {
        if (a.size() != b.size()) return false;
        for (std::size_t i = 0; i < a.size(); ++i) {
            if (!sameJson(a[i], b[i])) return false;
        }
        return true;
    }
    if (a.is_object()) {
        if (a.size() != b.size()) return false;
        for (auto it = a.begin(); it != a.end(); ++it) {
            if (!b.contains(it.key()) || !sameJson(it.value(), b.at(it.key()))) return false;
        }
        return true;
    }
    return a == b;
}

struct OracleCase {
    std::string name;
    json schema;
    json value;  // the datum as the oracle script spells it
    Bytes ours;
    // Decodes bytes with our codec and compares them with the case's C++ value.
    std::function<::testing::AssertionResult(const Bytes&)> decodesToValue;
};

json uuidSchema() { return {{"type", "fixed"}, {"name", "uuid"}, {"size", 16}}; }

json pointSchema() {
    return {{"type", "record"},
            {"name", "Point"},
            {"fields",
             {{{"name", "x"}, {"type", "int"}},
              {{"name", "y"}, {"type", "int"}},
              {{"name", "label"}, {"type", "string"}},
              {{"name", "weight"}, {"type", {"null", "double"}}}}}};
}

class CaseTable {
public:
    template <class T>
    void add(std::string name, json schema, const T& value, json valueJson) {
        OracleCase c;
        c.name = std::move(name);
        c.schema = std::move(schema);
        c.value = std::move(valueJson);
        c.ours = avroEncode(value).bytes();
        c.decodesToValue = [value](const Bytes& bytes) -> ::testing::AssertionResult {
            try {
                const T decoded = avroDecode<T>(bytes.data(), bytes.size());
                if (sameValue(decoded, value)) return ::testing::AssertionSuccess();
                return ::testing::AssertionFailure() << "decoded to another value";
            } catch (const std::exception& e) {
                return ::testing::AssertionFailure() << "failed: " << e.what();
            }
        };
        cases.push_back(std::move(c));
    }

    std::vector<OracleCase> cases;
};

std::vector<OracleCase> makeCases() {
    CaseTable t;
    t.add("boolean true", "boolean", true, true);
    t.add("boolean false", "boolean", false, false);
    for (std::int32_t v : {0, -1, 1, 63, -64, 64, -65, 8191, std::numeric_limits<std::int32_t>::max(),
                           std::numeric_limits<std::int32_t>::min()}) {
        t.add("int " + std::to_string(v), "int", v, v);
    }
    for (std::int64_t v : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1} << 31, -(std::int64_t{1} << 40),
                           std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        t.add("long " + std::to_string(v), "long", v, v);
    }
    for (float v : {0.0f, -0.0f, 1.5f, 0.1f, -3.25e-7f, std::numeric_limits<float>::max(),
                    std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::infinity(),
                    -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
        t.add("float " + std::to_string(v), "float", v, floatJson(v));
    }
    for (double v : {0.0, -0.0, 0.1, -1e300, std::numeric_limits<double>::max(),
                     std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::infinity(),
                     -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        t.add("double " + std::to_string(v), "double", v, floatJson(v));
    }
    for (const std::string& v : {std::string(), std::string("hello"), std::string("gr\xc3\xbc\xc3\x9f" "e \xe2\x9c\x93"),
                                 std::string("a\0b", 3), std::string(300, 'x')}) {
        t.add("string of " + std::to_string(v.size()) + " bytes", "string", v, v);
    }
    Bytes many(200);
    for (std::size_t i = 0; i < many.size(); ++i) many[i] = static_cast<std::uint8_t>(i * 7);
    for (const Bytes& v : {Bytes(), Bytes{0x00, 0xFF, 0x80}, many}) {
        t.add("bytes of " + std::to_string(v.size()), "bytes", v, toHex(v.data(), v.size()));
    }
    const auto nil = boost::uuids::uuid{};
    const auto id = boost::uuids::string_generator()("7ce1dbaf-c044-46ec-b423-fbf560ad4cc5");
    t.add("uuid nil", uuidSchema(), nil, std::string(32, '0'));
    t.add("uuid", uuidSchema(), id, "7ce1dbafc04446ecb423fbf560ad4cc5");

    const json intArray = {{"type", "array"}, {"items", "int"}};
    t.add("array<int> empty", intArray, std::vector<std::int32_t>{}, json::array());
    t.add("array<int>", intArray, std::vector<std::int32_t>{1, -2, 3}, {1, -2, 3});
    std::vector<std::int32_t> thousand(1000);
    json thousandJson = json::array();
    for (std::int32_t i = 0; i < 1000; ++i) {
        thousand[i] = i * 1000 - 500000;
        thousandJson.push_back(thousand[i]);
    }
    t.add("array<int> of 1000", intArray, thousand, thousandJson);
    t.add("array<boolean>", json{{"type", "array"}, {"items", "boolean"}}, std::vector<bool>{true, false, true},
          {true, false, true});
    t.add("array<long>", json{{"type", "array"}, {"items", "long"}},
          std::vector<std::int64_t>{std::numeric_limits<std::int64_t>::min(), 0}, {std::numeric_limits<std::int64_t>::min(), 0});
    t.add("array<double>", json{{"type", "array"}, {"items", "double"}}, std::vector<double>{0.5, -2.0},
          {0.5, -2.0});
    t.add("array<float>", json{{"type", "array"}, {"items", "float"}}, std::vector<float>{0.1f},
          {static_cast<double>(0.1f)});
    t.add("array<string>", json{{"type", "array"}, {"items", "string"}}, std::vector<std::string>{"", "b"},
          {"", "b"});
    t.add("array<bytes>", json{{"type", "array"}, {"items", "bytes"}}, std::vector<Bytes>{{1, 2}, {}},
          {"0102", ""});
    t.add("array<uuid>", json{{"type", "array"}, {"items", uuidSchema()}}, std::vector<boost::uuids::uuid>{id},
          {"7ce1dbafc04446ecb423fbf560ad4cc5"});
    t.add("array<array<int>>", json{{"type", "array"}, {"items", intArray}},
          std::vector<std::vector<std::int32_t>>{{}, {7}}, {json::array(), {7}});

    const json longMap = {{"type", "map"}, {"values", "long"}};
    t.add("map<long> empty", longMap, std::map<std::string, std::int64_t>{}, json::object());
    t.add("map<long>", longMap, std::map<std::string, std::int64_t>{{"a", 1}, {"b", -2}}, {{"a", 1}, {"b", -2}});
    t.add("map<string>", json{{"type", "map"}, {"values", "string"}},
          std::map<std::string, std::string>{{"k", "v"}, {"", "empty key"}}, {{"k", "v"}, {"", "empty key"}});
    t.add("map<double>", json{{"type", "map"}, {"values", "double"}}, std::map<std::string, double>{{"pi", 3.25}},
          {{"pi", 3.25}});
    t.add("map<array<int>>", json{{"type", "map"}, {"values", intArray}},
          std::map<std::string, std::vector<std::int32_t>>{{"x", {1, 2}}}, {{"x", {1, 2}}});
    t.add("array<map<string>>", json{{"type", "array"}, {"items", {{"type", "map"}, {"values", "string"}}}},
          std::vector<std::map<std::string, std::string>>{{{"a", "b"}}, {}}, {{{"a", "b"}}, json::object()});

    t.add("union<null,int> null", json{"null", "int"}, std::optional<std::int32_t>{}, nullptr);
    t.add("union<null,int> 5", json{"null", "int"}, std::optional<std::int32_t>{5}, 5);
    t.add("union<null,string>", json{"null", "string"}, std::optional<std::string>{"x"}, "x");
    t.add("union<null,uuid>", json{"null", uuidSchema()}, std::optional<boost::uuids::uuid>{id},
          "7ce1dbafc04446ecb423fbf560ad4cc5");
    t.add("union<null,array<int>>", json{"null", intArray}, std::optional<std::vector<std::int32_t>>{{4}}, {4});

    t.add("record", pointSchema(), oracle::Point{3, -4, "p", 0.25}, {{"x", 3}, {"y", -4}, {"label", "p"}, {"weight", 0.25}});
    t.add("record without weight", pointSchema(), oracle::Point{0, 0, "", std::nullopt},
          {{"x", 0}, {"y", 0}, {"label", ""}, {"weight", nullptr}});
    // The second field names the fixed type the first defines, as Avro requires.
    t.add("callback reference",
          json{{"type", "record"}, {"name", "Ref"},
               {"fields", {{{"name", "c"}, {"type", uuidSchema()}}, {{"name", "r"}, {"type", "uuid"}}}}},
          agent::spf::core::ExportedCallbackReference{id, nil},
          {{"c", "7ce1dbafc04446ecb423fbf560ad4cc5"}, {"r", std::string(32, '0')}});
    t.add("stream reference", json{{"type", "record"}, {"name", "Stream"}, {"fields", {{{"name", "s"}, {"type", uuidSchema()}}}}},
          agent::spf::core::ExportedStreamReference{id}, {{"s", "7ce1dbafc04446ecb423fbf560ad4cc5"}});
    t.add("array<record>", json{{"type", "array"}, {"items", pointSchema()}},
          std::vector<oracle::Point>{{1, 2, "a", std::nullopt}}, {{{"x", 1}, {"y", 2}, {"label", "a"}, {"weight", nullptr}}});
    return t.cases;
}

struct OracleRun {
    bool available = false;
    std::string whyNot;
    std::vector<OracleCase> cases;
    json results;
};

bool oracleImportsAvro() {
    const std::string command = std::string(AVRO_ORACLE_PYTHON) + " -c 'import avro.io, avro.schema' >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

const OracleRun& oracleRun() {
    static const OracleRun run = [] {
        OracleRun r;
        r.cases = makeCases();
        if (!oracleImportsAvro()) {
            r.whyNot = "python3-avro cannot be imported by " AVRO_ORACLE_PYTHON "; install the Debian package python3-avro";
            return r;
        }
        const auto folder = std::filesystem::temp_directory_path() /
                            ("avro-oracle-" + std::to_string(std::random_device()()));
        std::filesystem::create_directories(folder);
        json input = json::array();
        for (const auto& c : r.cases) {
            input.push_back({{"schema", c.schema}, {"value", c.value}, {"ours", toHex(c.ours.data(), c.ours.size())}});
        }
        std::ofstream(folder / "cases.json") << input.dump();
        const std::string command = std::string(AVRO_ORACLE_PYTHON) + " " AVRO_ORACLE_SCRIPT " " +
                                    (folder / "cases.json").string() + " >" + (folder / "results.json").string() +
                                    " 2>" + (folder / "errors.txt").string();
        const int status = std::system(command.c_str());
        std::stringstream results;
        results << std::ifstream(folder / "results.json").rdbuf();
        std::stringstream errors;
        errors << std::ifstream(folder / "errors.txt").rdbuf();
        std::filesystem::remove_all(folder);
        if (status != 0) {
            r.whyNot = "the oracle script failed: " + errors.str();
            r.available = true;  // a failing script is a failure, not a skip
            return r;
        }
        r.results = json::parse(results.str(), nullptr, false);
        r.available = true;
        return r;
    }();
    return run;
}

#define REQUIRE_ORACLE(run)                                             \
    if (!(run).available) GTEST_SKIP() << (run).whyNot;                 \
    ASSERT_TRUE((run).whyNot.empty()) << (run).whyNot;                  \
    ASSERT_TRUE((run).results.is_array()) << "unreadable oracle output"; \
    ASSERT_EQ((run).results.size(), (run).cases.size())

}  // namespace

TEST(AvroOracleTest, BytesWeEncodeDecodeInPythonToTheSameValue) {
    const OracleRun& run = oracleRun();
    REQUIRE_ORACLE(run);
    for (std::size_t i = 0; i < run.cases.size(); ++i) {
        SCOPED_TRACE(run.cases[i].name);
        const json& result = run.results[i];
        ASSERT_TRUE(result.contains("decoded")) << result.value("decodeError", "");
        EXPECT_TRUE(sameJson(result["decoded"], run.cases[i].value))
            << result["decoded"].dump() << " != " << run.cases[i].value.dump();
    }
}

TEST(AvroOracleTest, BytesPythonEncodesDecodeHereToTheSameValue) {
    const OracleRun& run = oracleRun();
    REQUIRE_ORACLE(run);
    for (std::size_t i = 0; i < run.cases.size(); ++i) {
        SCOPED_TRACE(run.cases[i].name);
        const json& result = run.results[i];
        ASSERT_TRUE(result.contains("encoded")) << result.value("encodeError", "");
        const Bytes theirs = fromHex(result["encoded"].get<std::string>());
        EXPECT_TRUE(run.cases[i].decodesToValue(theirs));
        // The encoding is canonical for these types, so the bytes agree too.
        EXPECT_EQ(toHex(theirs.data(), theirs.size()), toHex(run.cases[i].ours.data(), run.cases[i].ours.size()));
    }
}

TEST(AvroOracleTest, EveryStrictPrefixOfAnEncodingIsRefused) {
    for (const OracleCase& c : makeCases()) {
        SCOPED_TRACE(c.name);
        for (std::size_t length = 0; length < c.ours.size(); ++length) {
            // An exact-size copy, so a read past the end would show under the address sanitizer.
            const Bytes prefix(c.ours.begin(), c.ours.begin() + static_cast<std::ptrdiff_t>(length));
            EXPECT_FALSE(c.decodesToValue(prefix)) << "prefix of " << length << " bytes";
        }
    }
}

TEST(AvroOracleTest, CorruptedEncodingsFailCleanlyOrDecode) {
    std::mt19937 random(20240607);
    for (const OracleCase& c : makeCases()) {
        if (c.ours.empty()) continue;
        for (int round = 0; round < 50; ++round) {
            Bytes corrupt = c.ours;
            corrupt[random() % corrupt.size()] = static_cast<std::uint8_t>(random());
            // Either outcome is fine; what counts is no crash, no over-read, no runaway allocation.
            (void)c.decodesToValue(corrupt);
        }
    }
}
