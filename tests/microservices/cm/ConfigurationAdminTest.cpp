// The ConfigurationAdmin service and its configurations, driven through a
// framework with the real bundle: PIDs, change counts, removal and listing.

#include "CmTestSupport.h"
#include "support/Thrown.h"

#include <regex>
#include <set>
#include <stdexcept>

using namespace cmtest;
using cppmicroservices::Any;
using cppmicroservices::AnyMap;
using cppmicroservices::any_cast;
using cppmicroservices::service::cm::Configuration;

namespace
{
    std::set<std::string>
    Pids(std::vector<std::shared_ptr<Configuration>> const& configurations)
    {
        std::set<std::string> pids;
        for (auto const& c : configurations)
        {
            pids.insert(c->GetPid());
        }
        return pids;
    }

    using ConfigurationAdminTest = ConfigurationAdminFixture;
} // namespace

TEST_F(ConfigurationAdminTest, GetConfigurationCreatesOnceFactoryPidIsTheTextBeforeTheFirstTildeAndCreatedPidsAreNew)
{
    auto first = admin->GetConfiguration("my.pid");
    EXPECT_EQ(first, admin->GetConfiguration("my.pid"));
    EXPECT_EQ(0u, first->GetChangeCount());
    EXPECT_TRUE(first->GetProperties().empty());

    struct Row
    {
        std::string pid;
        std::string factoryPid;
    };
    for (auto const& row : std::vector<Row>{ { "plain", "" },
                                             { "fp~name", "fp" },
                                             { "a.b.c~x~y", "a.b.c" },
                                             { "fp~", "fp" },
                                             { "~name", "" } })
    {
        EXPECT_EQ(row.factoryPid, admin->GetConfiguration(row.pid)->GetFactoryPid()) << row.pid;
    }
    auto const byParts = admin->GetFactoryConfiguration("fp", "inst");
    EXPECT_EQ("fp~inst", byParts->GetPid());
    EXPECT_EQ("fp", byParts->GetFactoryPid());
    EXPECT_EQ(admin->GetConfiguration("fp~inst"), byParts);

    // Created factory configurations get new PIDs of six random characters.
    std::regex const shape("my\\.factory~[0-9A-Za-z]{6}");
    std::set<std::string> created;
    for (int i = 0; i < 500; ++i)
    {
        auto const pid = admin->CreateFactoryConfiguration("my.factory")->GetPid();
        EXPECT_TRUE(std::regex_match(pid, shape)) << pid;
        created.insert(pid);
    }
    EXPECT_EQ(500u, created.size());

    EXPECT_THROW(admin->GetConfiguration(""), std::invalid_argument);
    EXPECT_THROW(admin->CreateFactoryConfiguration(""), std::invalid_argument);
    EXPECT_THROW(admin->GetFactoryConfiguration("", "x"), std::invalid_argument);
    EXPECT_THROW(admin->GetFactoryConfiguration("fp", ""), std::invalid_argument);
}

TEST_F(ConfigurationAdminTest, UpdateCountsEveryCallButUpdateIfDifferentOnlyChanges)
{
    auto configuration = admin->GetConfiguration("counted");
    AnyMap properties{ { "a", 1 } };
    EXPECT_TRUE(Ready(configuration->Update(properties)));
    EXPECT_TRUE(Ready(configuration->Update(properties)));
    EXPECT_EQ(2u, configuration->GetChangeCount());

    auto same = configuration->UpdateIfDifferent(properties);
    EXPECT_FALSE(same.first);
    EXPECT_TRUE(Ready(same.second));
    EXPECT_EQ(2u, configuration->GetChangeCount());

    auto different = configuration->UpdateIfDifferent(AnyMap{ { "a", 2 } });
    EXPECT_TRUE(different.first);
    EXPECT_TRUE(Ready(different.second));
    EXPECT_EQ(3u, configuration->GetChangeCount());
    EXPECT_EQ(2, any_cast<int>(configuration->GetProperties().at("A")));

    // Equal content in a map of another kind is a difference.
    AnyMap caseSensitive(AnyMap::UNORDERED_MAP);
    caseSensitive["a"] = 2;
    EXPECT_TRUE(configuration->UpdateIfDifferent(caseSensitive).first);
    EXPECT_EQ(4u, configuration->GetChangeCount());

    // An update with no properties keeps the configuration.
    EXPECT_TRUE(Ready(configuration->Update()));
    EXPECT_TRUE(configuration->GetProperties().empty());
    EXPECT_EQ(5u, configuration->GetChangeCount());
}

TEST_F(ConfigurationAdminTest, EveryMemberThrowsOnceRemovedAndThePidStartsAfresh)
{
    auto configuration = admin->GetConfiguration("gone");
    configuration->Update(AnyMap{ { "a", 1 } });
    EXPECT_TRUE(Ready(configuration->Remove()));

    EXPECT_THROW(configuration->GetPid(), std::runtime_error);
    EXPECT_THROW(configuration->GetFactoryPid(), std::runtime_error);
    EXPECT_THROW(configuration->GetChangeCount(), std::runtime_error);
    EXPECT_THROW(configuration->Update(), std::runtime_error);
    EXPECT_THROW(configuration->UpdateIfDifferent(), std::runtime_error);
    EXPECT_THROW(configuration->Remove(), std::runtime_error);
    EXPECT_EQ("Configuration gone has been removed",
              testsupport::ThrownText<std::runtime_error>([&] { configuration->GetProperties(); }));

    auto again = admin->GetConfiguration("gone");
    EXPECT_NE(configuration, again);
    EXPECT_EQ(0u, again->GetChangeCount());
    EXPECT_TRUE(again->GetProperties().empty());
}

TEST_F(ConfigurationAdminTest, ListConfigurationsShowsOnlyUpdatedOnesAndFiltersWithASyntheticPid)
{
    admin->GetConfiguration("never.updated");
    admin->GetConfiguration("plain")->Update(AnyMap{ { "port", 80 }, { "Host", std::string("a") } });
    admin->GetFactoryConfiguration("fp", "one")->Update(AnyMap{ { "port", 8080 } });
    admin->GetFactoryConfiguration("fp", "two")->Update(AnyMap{ { "port", 9090 } });
    admin->GetFactoryConfiguration("other", "x")->Update(AnyMap{ { "pid", std::string("lies") } });
    auto removed = admin->GetFactoryConfiguration("fp", "removed");
    removed->Update(AnyMap{ { "port", 1 } });
    removed->Remove();
    AnyMap variants(AnyMap::UNORDERED_MAP);
    variants["Key"] = 1;
    variants["key"] = 2;
    admin->GetConfiguration("variants")->Update(variants);

    using Set = std::set<std::string>;
    EXPECT_EQ((Set{ "plain", "fp~one", "fp~two", "other~x", "variants" }), Pids(admin->ListConfigurations()));
    EXPECT_EQ((Set{ "variants" }), Pids(admin->ListConfigurations("(key=*)"))) << "case variants do not throw";
    EXPECT_EQ((Set{ "fp~one", "fp~two" }), Pids(admin->ListConfigurations("(pid=fp~*)")));
    EXPECT_EQ((Set{ "fp~one", "fp~two" }), Pids(admin->ListConfigurations("(port>=1000)")));
    EXPECT_EQ((Set{ "plain" }), Pids(admin->ListConfigurations("(&(HOST=a)(PID=plain))")));
    EXPECT_EQ((Set{ "other~x" }), Pids(admin->ListConfigurations("(pid=other~x)")))
        << "the real PID wins over a property called pid";
    EXPECT_TRUE(admin->ListConfigurations("(pid=never.updated)").empty());
    EXPECT_THROW(admin->ListConfigurations("(pid=unbalanced"), std::invalid_argument);
}
