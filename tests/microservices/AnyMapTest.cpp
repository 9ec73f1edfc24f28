#include "cppmicroservices/AnyMap.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

using cppmicroservices::Any;
using cppmicroservices::any_cast;
using cppmicroservices::any_map;
using cppmicroservices::AnyMap;

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

    template <typename E, typename F>
    std::string
    ErrorText(F&& f)
    {
        try
        {
            f();
        }
        catch (E const& e)
        {
            return e.what();
        }
        catch (...)
        {
            return "other exception";
        }
        return "no exception";
    }

    TEST(AnyMapTest, DefaultMapIgnoresKeyCase)
    {
        AnyMap m;
        EXPECT_EQ(m.GetType(), AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
        m["Service.Ranking"] = 3;
        EXPECT_EQ(any_cast<int>(m.at("service.ranking")), 3);
        EXPECT_EQ(m.count("SERVICE.RANKING"), 1u);
        EXPECT_NE(m.find("service.RANKING"), m.end());
        m["SERVICE.ranking"] = 4;
        EXPECT_EQ(m.size(), 1u);
        EXPECT_EQ(m.begin()->first, "Service.Ranking") << "the first spelling of a key is kept";
        EXPECT_EQ(m.erase("service.ranking"), 1u);
        EXPECT_TRUE(m.empty());
    }

    TEST(AnyMapTest, OrderedAndUnorderedKindsCompareKeysExactly)
    {
        for (auto kind : { AnyMap::ORDERED_MAP, AnyMap::UNORDERED_MAP })
        {
            AnyMap m(kind, { { "Key", 1 } });
            EXPECT_EQ(m.GetType(), kind);
            EXPECT_EQ(m.count("key"), 0u);
            EXPECT_EQ(m.find("key"), m.end());
            m["key"] = 2;
            EXPECT_EQ(m.size(), 2u);
        }
        AnyMap fromStd(std::unordered_map<std::string, Any>{ { "A", 1 } });
        EXPECT_EQ(fromStd.GetType(), AnyMap::UNORDERED_MAP);
        EXPECT_EQ(AnyMap(std::map<std::string, Any>{}).GetType(), AnyMap::ORDERED_MAP);
        EXPECT_EQ(AnyMap(cppmicroservices::unordered_any_cimap{}).GetType(),
                  AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
    }

    TEST(AnyMapTest, OrderedMapIteratesInKeyOrder)
    {
        AnyMap m(AnyMap::ORDERED_MAP, { { "c", 3 }, { "a", 1 }, { "b", 2 } });
        std::string keys;
        for (auto const& entry : m)
        {
            keys += entry.first;
        }
        EXPECT_EQ(keys, "abc");

        any_map::iterator it = m.begin();
        any_map::iterator previous = it++;
        EXPECT_EQ(previous->first, "a");
        EXPECT_EQ(it->first, "b");
        it->second = 20;
        EXPECT_EQ(any_cast<int>(m.at("b")), 20);
        any_map::const_iterator cit = it;
        EXPECT_TRUE(cit == it);
        EXPECT_TRUE(it == cit);
        EXPECT_FALSE(m.end() != m.cend());
    }

    TEST(AnyMapTest, EqualityRequiresTheSameKind)
    {
        AnyMap const ci{ { "a", 1 } };
        AnyMap const unordered(AnyMap::UNORDERED_MAP, { { "a", 1 } });
        AnyMap const ordered(AnyMap::ORDERED_MAP, { { "a", 1 } });
        EXPECT_FALSE(ci == unordered);
        EXPECT_FALSE(unordered == ordered);
        EXPECT_TRUE(ci != ordered);
        EXPECT_TRUE(ci == (AnyMap{ { "a", 1 } }));
        EXPECT_FALSE(ci == (AnyMap{ { "a", 2 } }));
        EXPECT_FALSE(ci == (AnyMap{ { "a", 1L } }));
        EXPECT_TRUE(ordered == AnyMap(std::map<std::string, Any>{ { "a", 1 } }));
    }

    TEST(AnyMapTest, InsertEmplaceAndAtBehaveLikeTheStandardMaps)
    {
        for (auto kind : { AnyMap::ORDERED_MAP, AnyMap::UNORDERED_MAP, AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS })
        {
            AnyMap m(kind);
            auto inserted = m.insert({ "k", 1 });
            EXPECT_TRUE(inserted.second);
            EXPECT_EQ(inserted.first->first, "k");
            EXPECT_FALSE(m.insert({ "k", 2 }).second);
            EXPECT_EQ(any_cast<int>(m.at("k")), 1);
            auto emplaced = m.emplace("e", std::string("v"));
            EXPECT_TRUE(emplaced.second);
            EXPECT_FALSE(m.emplace("e", 0).second);
            std::string key = "moved";
            m[std::move(key)] = 3;
            EXPECT_EQ(m.size(), 3u);
            EXPECT_EQ(ErrorText<std::out_of_range>([&] { m.at("missing"); }), "Key not found: missing");
            AnyMap const& cm = m;
            EXPECT_THROW(cm.at("missing"), std::out_of_range);
            AnyMap copy = m;
            copy["k"] = 9;
            EXPECT_EQ(any_cast<int>(m.at("k")), 1);
            m.clear();
            EXPECT_TRUE(m.empty());
            EXPECT_EQ(m.begin(), m.end());
            EXPECT_EQ(copy.size(), 3u);
        }
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
    }

    TEST(AnyMapTest, AtCompoundKeyFailuresNameTheFaultyStep)
    {
        AnyMap const m = Sample();
        struct Row
        {
            char const* key;
            char const* exceptionType;
            char const* text;
        };
        std::vector<Row> const rows = {
            { "missing", "out_of_range", "Key not found: missing" },
            { "a.missing", "out_of_range", "Key not found: missing" },
            { "n.x", "invalid_argument", "Unsupported Any type at 'n' for dotted get" },
            { "plain.k", "invalid_argument", "Unsupported Any type at 'plain' for dotted get" },
            { "a.b.c", "invalid_argument", "Unsupported Any type at 'b' for dotted get" },
            { "a.list.0.x", "invalid_argument", "Unsupported Any type at '0' for dotted get" },
            { "a.list.x", "invalid_argument", "Invalid vector index 'x' for dotted get" },
            { "a.list.1x", "invalid_argument", "Invalid vector index '1x' for dotted get" },
            { "a.list.", "invalid_argument", "Invalid vector index '' for dotted get" },
            { "a.list.3", "out_of_range", "Vector index 3 out of range for dotted get" },
            { "a.list.-4", "out_of_range", "Vector index -4 out of range for dotted get" },
            { "a.list.99999999999", "invalid_argument", "Invalid vector index '99999999999' for dotted get" },
            { "", "out_of_range", "Key not found: " },
            { "a.", "out_of_range", "Key not found: " },
        };
        for (auto const& row : rows)
        {
            std::string text;
            std::string type = "none";
            try
            {
                m.AtCompoundKey(row.key);
            }
            catch (std::out_of_range const& e)
            {
                type = "out_of_range";
                text = e.what();
            }
            catch (std::invalid_argument const& e)
            {
                type = "invalid_argument";
                text = e.what();
            }
            EXPECT_EQ(type, row.exceptionType) << row.key;
            EXPECT_EQ(text, row.text) << row.key;
        }
    }

    TEST(AnyMapTest, AtCompoundKeyWithDefaultNeverThrows)
    {
        AnyMap const m = Sample();
        Any const fallback = std::string("fallback");
        for (char const* key :
             { "missing", "a.missing", "n.x", "plain.k", "a.list.x", "a.list.3", "a.list.-4", "a.list.-3", "" })
        {
            EXPECT_EQ(m.AtCompoundKey(key, fallback), fallback) << key;
        }
        EXPECT_EQ(any_cast<int>(m.AtCompoundKey("a.list.-1.1", fallback)), 8);
        EXPECT_EQ(any_cast<std::string>(m.AtCompoundKey("a.list.1.deep", fallback)), "x");
        EXPECT_TRUE(m.AtCompoundKey("missing", Any()).Empty());
    }

    TEST(AnyMapTest, JsonPrintsEveryEntry)
    {
        AnyMap const m(AnyMap::ORDERED_MAP, { { "b", std::string("x") }, { "a", AnyMap{} } });
        EXPECT_EQ(Any(m).ToJSON(), R"({"a" : {}, "b" : "x"})");
        EXPECT_EQ(Any(m).ToString(), "{a : {}, b : x}");
    }
} // namespace
