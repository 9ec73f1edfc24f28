#include "cppmicroservices/AnyMap.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::AnyMap;
using testsupport::ThrownText;

namespace
{
    // {"a": {"b": 1, "list": [10, {"deep": "x"}, [7, 8]]}, "n": 5, "plain": std::map{"k": 1},
    //  "a.b": "literal dotted key"}
    AnyMap
    Sample()
    {
        AnyMap inner{ { "b", 1 },
                      { "list", std::vector<Any>{ 10, AnyMap{ { "deep", std::string("x") } },
                                                  std::vector<Any>{ 7, 8 } } } };
        return AnyMap{ { "a", inner },
                       { "n", 5 },
                       { "plain", std::map<std::string, Any>{ { "k", 1 } } },
                       { "a.b", std::string("literal dotted key") } };
    }

    TEST(AnyMapTest, KeyRulesAndEqualityFollowTheKind)
    {
        AnyMap ci;
        EXPECT_EQ(ci.GetType(), AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
        ci["Service.Ranking"] = 3;
        ci["SERVICE.ranking"] = 4;
        EXPECT_EQ(ci.size(), 1u);
        EXPECT_EQ(ci.begin()->first, "Service.Ranking") << "the first spelling of a key is kept";
        EXPECT_EQ(any_cast<int>(ci.at("service.RANKING")), 4);
        EXPECT_EQ(ci.erase("service.ranking"), 1u);

        for (auto kind : { AnyMap::ORDERED_MAP, AnyMap::UNORDERED_MAP })
        {
            AnyMap m(kind, { { "Key", 1 } });
            EXPECT_EQ(m.find("key"), m.end());
            m["key"] = 2;
            EXPECT_EQ(m.size(), 2u);
            EXPECT_FALSE(m.insert({ "key", 3 }).second);
            EXPECT_THROW(m.at("missing"), std::out_of_range);
        }
        AnyMap const ordered(AnyMap::ORDERED_MAP, { { "c", 3 }, { "a", 1 }, { "b", 2 } });
        std::string keys;
        for (auto const& entry : ordered)
        {
            keys += entry.first;
        }
        EXPECT_EQ(keys, "abc");

        AnyMap const a{ { "a", 1 } };
        EXPECT_FALSE(a == AnyMap(AnyMap::UNORDERED_MAP, { { "a", 1 } })) << "equality requires the same kind";
        EXPECT_FALSE(a == (AnyMap{ { "a", 1L } }));
        EXPECT_TRUE(AnyMap(AnyMap::ORDERED_MAP, { { "a", 1 } }) == AnyMap(std::map<std::string, Any>{ { "a", 1 } }));
    }

    TEST(AnyMapTest, AtCompoundKeyWalksMapsAndVectors)
    {
        AnyMap const m = Sample();
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("n")), 5);
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("a.b")), 1) << "the whole key is never tried first";
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("A.B")), 1) << "each level uses its map's key rules";
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("a.list.0")), 10);
        EXPECT_EQ(any_cast<std::string>(m.AtCompoundKey("a.list.1.deep")), "x");
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("a.list.2.1")), 8);
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("a.list.-1.0")), 7);
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("a.list.-3")), 10) << "-size is the first element";
        EXPECT_EQ(m.AtCompoundKey("a.list").Type(), typeid(std::vector<Any>));
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("a.list.-1.1", Any())), 8) << "a default is not used when found";
        EXPECT_TRUE(m.AtCompoundKey("a.list.-3", Any()).Empty()) << "with a default, -size is out of range";
    }

    TEST(AnyMapTest, AtCompoundKeyFailuresNameTheFaultyStep)
    {
        AnyMap const m = Sample();
        Any const fallback = std::string("fallback");
        struct Row
        {
            char const* key;
            bool outOfRange; // else std::invalid_argument
            char const* text;
        };
        std::vector<Row> const rows = {
            { "missing", true, "Key not found: missing" },
            { "a.missing", true, "Key not found: missing" },
            { "n.x", false, "Unsupported Any type at 'n' for dotted get" },
            { "plain.k", false, "Unsupported Any type at 'plain' for dotted get" },
            { "a.list.0.x", false, "Unsupported Any type at '0' for dotted get" },
            { "a.list.x", false, "Invalid vector index 'x' for dotted get" },
            { "a.list.1x", false, "Invalid vector index '1x' for dotted get" },
            { "a.list.", false, "Invalid vector index '' for dotted get" },
            { "a.list.3", true, "Vector index 3 out of range for dotted get" },
            { "a.list.-4", true, "Vector index -4 out of range for dotted get" },
            { "a.list.99999999999", false, "Invalid vector index '99999999999' for dotted get" },
            { "", true, "Key not found: " },
        };
        for (auto const& row : rows)
        {
            auto const get = [&] { m.AtCompoundKey(row.key); };
            EXPECT_EQ(row.outOfRange ? ThrownText<std::out_of_range>(get) : ThrownText<std::invalid_argument>(get),
                      row.text)
                << row.key;
            EXPECT_EQ(m.AtCompoundKey(row.key, fallback), fallback) << "with a default: " << row.key;
        }
    }
} // namespace
