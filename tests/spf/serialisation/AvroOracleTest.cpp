// Our Avro binary against python3-avro, an independent implementation: every case is
// encoded here and decoded there, and encoded there and decoded here, to the same value.
// All cases go to one python process (its start-up is the slow part).
#include "agent/spf/serialisation/avro/Avro.h"

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
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

std::string toHex(const Bytes& bytes) {
    std::string hex;
    for (const auto byte : bytes) hex += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 0xF]};
    return hex;
}

Bytes fromHex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) bytes.push_back(std::stoul(hex.substr(i, 2), nullptr, 16));
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

struct OracleCase {
    std::string name;
    json schema;
    json value;  // the datum as the oracle script spells it
    Bytes ours;
    // Decodes bytes with our codec; whether that gives the case's C++ value.
    std::function<bool(const Bytes&)> decodesToValue;
};

struct CaseTable {
    template <class T>
    void add(std::string name, json schema, const T& value, json valueJson) {
        cases.push_back({std::move(name), std::move(schema), std::move(valueJson), avroEncode(value).bytes(),
                         [value](const Bytes& bytes) {
                             try {
                                 return sameValue(avroDecode<T>(bytes.data(), bytes.size()), value);
                             } catch (const std::exception&) {
                                 return false;
                             }
                         }});
    }
    std::vector<OracleCase> cases;
};

json uuidSchema() { return {{"type", "fixed"}, {"name", "uuid"}, {"size", 16}}; }
json arrayOf(json items) { return {{"type", "array"}, {"items", std::move(items)}}; }
json mapOf(json values) { return {{"type", "map"}, {"values", std::move(values)}}; }
json pointSchema() {
    return {{"type", "record"}, {"name", "Point"},
            {"fields", {{{"name", "x"}, {"type", "int"}}, {{"name", "y"}, {"type", "int"}},
                        {{"name", "label"}, {"type", "string"}}, {{"name", "weight"}, {"type", {"null", "double"}}}}}};
}

std::vector<OracleCase> makeCases() {
    using I32 = std::int32_t;
    using I64 = std::int64_t;
    CaseTable t;
    for (bool v : {true, false}) t.add("boolean", "boolean", v, v);
    for (I32 v : {0, -1, 1, 63, -64, 64, -65, 8191, std::numeric_limits<I32>::max(), std::numeric_limits<I32>::min()}) {
        t.add("int " + std::to_string(v), "int", v, v);
    }
    for (I64 v : {I64{0}, I64{-1}, I64{1} << 31, -(I64{1} << 40), std::numeric_limits<I64>::max(),
                  std::numeric_limits<I64>::min()}) {
        t.add("long " + std::to_string(v), "long", v, v);
    }
    for (float v : {0.0f, -0.0f, 1.5f, 0.1f, -3.25e-7f, std::numeric_limits<float>::max(),
                    std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::infinity(),
                    -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
        t.add("float " + std::to_string(v), "float", v, floatJson(v));
    }
    for (double v : {0.0, -0.0, 0.1, -1e300, std::numeric_limits<double>::max(), std::numeric_limits<double>::denorm_min(),
                     std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                     std::numeric_limits<double>::quiet_NaN()}) {
        t.add("double " + std::to_string(v), "double", v, floatJson(v));
    }
    for (const std::string& v : {std::string(), std::string("hello"), std::string("gr\xc3\xbc\xc3\x9f" "e \xe2\x9c\x93"),
                                 std::string("a\0b", 3), std::string(300, 'x')}) {
        t.add("string of " + std::to_string(v.size()) + " bytes", "string", v, v);
    }
    Bytes many(200);
    for (std::size_t i = 0; i < many.size(); ++i) many[i] = static_cast<std::uint8_t>(i * 7);
    for (const Bytes& v : {Bytes(), Bytes{0x00, 0xFF, 0x80}, many}) {
        t.add("bytes of " + std::to_string(v.size()), "bytes", v, toHex(v));
    }
    const auto nil = boost::uuids::uuid{};
    const auto id = boost::uuids::string_generator()("7ce1dbaf-c044-46ec-b423-fbf560ad4cc5");
    const std::string idHex = "7ce1dbafc04446ecb423fbf560ad4cc5";
    t.add("uuid", uuidSchema(), id, idHex);

    std::vector<I32> thousand(1000);
    for (I32 i = 0; i < 1000; ++i) thousand[i] = i * 1000 - 500000;
    t.add("array<int> empty", arrayOf("int"), std::vector<I32>{}, json::array());
    t.add("array<int> of 1000", arrayOf("int"), thousand, thousand);
    t.add("array<boolean>", arrayOf("boolean"), std::vector<bool>{true, false, true}, {true, false, true});
    t.add("array<double>", arrayOf("double"), std::vector<double>{0.5, -2.0}, {0.5, -2.0});
    t.add("array<float>", arrayOf("float"), std::vector<float>{0.1f}, {static_cast<double>(0.1f)});
    t.add("array<uuid>", arrayOf(uuidSchema()), std::vector<boost::uuids::uuid>{id}, {idHex});
    t.add("array<array<int>>", arrayOf(arrayOf("int")), std::vector<std::vector<I32>>{{}, {7}}, {json::array(), {7}});
    t.add("map<long> empty", mapOf("long"), std::map<std::string, I64>{}, json::object());
    t.add("map<long>", mapOf("long"), std::map<std::string, I64>{{"a", 1}, {"b", -2}}, {{"a", 1}, {"b", -2}});
    t.add("map<string>", mapOf("string"), std::map<std::string, std::string>{{"k", "v"}, {"", "empty key"}},
          {{"k", "v"}, {"", "empty key"}});
    t.add("array<map<string>>", arrayOf(mapOf("string")), std::vector<std::map<std::string, std::string>>{{{"a", "b"}}, {}},
          {{{"a", "b"}}, json::object()});

    t.add("union<null,int> null", json{"null", "int"}, std::optional<I32>{}, nullptr);
    t.add("union<null,int> 5", json{"null", "int"}, std::optional<I32>{5}, 5);
    t.add("union<null,uuid>", json{"null", uuidSchema()}, std::optional<boost::uuids::uuid>{id}, idHex);

    t.add("record", pointSchema(), oracle::Point{3, -4, "p", 0.25}, {{"x", 3}, {"y", -4}, {"label", "p"}, {"weight", 0.25}});
    t.add("array<record>", arrayOf(pointSchema()), std::vector<oracle::Point>{{1, 2, "a", std::nullopt}},
          {{{"x", 1}, {"y", 2}, {"label", "a"}, {"weight", nullptr}}});
    // The second field names the fixed type the first defines, as Avro requires.
    t.add("callback reference",
          json{{"type", "record"}, {"name", "Ref"},
               {"fields", {{{"name", "c"}, {"type", uuidSchema()}}, {{"name", "r"}, {"type", "uuid"}}}}},
          agent::spf::core::ExportedCallbackReference{id, nil}, {{"c", idHex}, {"r", std::string(32, '0')}});
    t.add("stream reference", json{{"type", "record"}, {"name", "Stream"}, {"fields", {{{"name", "s"}, {"type", uuidSchema()}}}}},
          agent::spf::core::ExportedStreamReference{id}, {{"s", idHex}});
    return t.cases;
}

// Hands every case to the oracle script in one run; the results, one per case, or why there are none.
json runOracle(const std::vector<OracleCase>& cases, std::string& whyNot) {
    const std::string python = AVRO_ORACLE_PYTHON;
    if (std::system((python + " -c 'import avro.io, avro.schema' >/dev/null 2>&1").c_str()) != 0) {
        whyNot = "python3-avro cannot be imported by " + python + "; install the Debian package python3-avro";
        return {};
    }
    const auto folder = std::filesystem::temp_directory_path() / ("avro-oracle-" + std::to_string(std::random_device()()));
    std::filesystem::create_directories(folder);
    json input = json::array();
    for (const auto& c : cases) {
        input.push_back({{"schema", c.schema}, {"value", c.value}, {"ours", toHex(c.ours)}});
    }
    std::ofstream(folder / "cases.json") << input.dump();
    const int status = std::system((python + " " AVRO_ORACLE_SCRIPT " " + (folder / "cases.json").string() + " >" +
                                    (folder / "results.json").string() + " 2>" + (folder / "errors.txt").string())
                                       .c_str());
    std::stringstream results, errors;
    results << std::ifstream(folder / "results.json").rdbuf();
    errors << std::ifstream(folder / "errors.txt").rdbuf();
    std::filesystem::remove_all(folder);
    EXPECT_EQ(0, status) << "the oracle script failed: " << errors.str();
    return json::parse(results.str(), nullptr, false);
}

}  // namespace

// Bytes we encode decode there to the same value, and bytes python3-avro encodes decode here to
// the same value and equal ours: the encoding is canonical for these types.
TEST(AvroOracleTest, OurBytesAndPythonsAgreeBothWays) {
    const auto cases = makeCases();
    std::string whyNot;
    const json results = runOracle(cases, whyNot);
    if (!whyNot.empty()) GTEST_SKIP() << whyNot;
    ASSERT_TRUE(results.is_array() && results.size() == cases.size()) << "unreadable oracle output";
    for (std::size_t i = 0; i < cases.size(); ++i) {
        SCOPED_TRACE(cases[i].name);
        const json& result = results[i];
        ASSERT_TRUE(result.contains("decoded")) << result.value("decodeError", "");
        // Numbers compare by value (python writes 1.0 where we write 1); special floats are text,
        // and a lost sign of zero shows in the bytes python encodes.
        EXPECT_EQ(result["decoded"], cases[i].value);
        ASSERT_TRUE(result.contains("encoded")) << result.value("encodeError", "");
        const Bytes theirs = fromHex(result["encoded"].get<std::string>());
        EXPECT_TRUE(cases[i].decodesToValue(theirs));
        EXPECT_EQ(toHex(theirs), toHex(cases[i].ours));
    }
}

// Every strict prefix is refused; random corruptions decode or fail cleanly, with no crash,
// over-read (exact-size copies show one under the address sanitizer) or runaway allocation.
TEST(AvroOracleTest, PrefixesAreRefusedAndCorruptionsFailCleanlyOrDecode) {
    std::mt19937 random(20240607);
    for (const OracleCase& c : makeCases()) {
        SCOPED_TRACE(c.name);
        for (std::size_t length = 0; length < c.ours.size(); ++length) {
            EXPECT_FALSE(c.decodesToValue(Bytes(c.ours.begin(), c.ours.begin() + static_cast<std::ptrdiff_t>(length))))
                << "prefix of " << length << " bytes";
        }
        for (int round = 0; round < 50 && !c.ours.empty(); ++round) {
            Bytes corrupt = c.ours;
            corrupt[random() % corrupt.size()] = static_cast<std::uint8_t>(random());
            (void)c.decodesToValue(corrupt);
        }
    }
}
