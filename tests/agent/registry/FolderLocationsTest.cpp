#include "agent/utils/FolderLocations.h"
#include "korvexconnector/serviceprocess/DesktopServicesRealm.h"
#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "agent/registry/RegistryTestSupport.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <gtest/gtest.h>

#include <memory>

#include <stdexcept>

namespace agent::utils {
namespace {

using ConnectorLocations = korvexconnector::serviceprocess::FolderLocations;
using korvexconnector::serviceprocess::DesktopServicesRealm;
using control::testing::ScopedEnvironment;
using control::testing::ScratchFolder;

TEST(FolderLocationsTest, LockRootOverrideWinsOverEverything) {
    const ScopedEnvironment runtime("XDG_RUNTIME_DIR", "/run/user/1");
    EXPECT_EQ(FolderLocations(std::u16string(u"/storage"), std::filesystem::path("/locks")).lockRoot(), "/locks");
    EXPECT_EQ(ConnectorLocations(std::u16string(u"/storage"), std::filesystem::path("/locks"), "blue").lockRoot(),
              "/locks");
}

TEST(FolderLocationsTest, UserStorageOverrideReplacesTheBaseAndKeepsTheModeSubPath) {
    const ScopedEnvironment runtime("XDG_RUNTIME_DIR", "/run/user/1");
    // Non-ASCII survives the conversion from UTF-16.
    const std::u16string storage = u"/home/z\u00fc/st\U0001F600";
    EXPECT_EQ(FolderLocations(storage).lockRoot(), "/home/z\u00fc/st\U0001F600/korvexdrive/agents");
    EXPECT_EQ(ConnectorLocations(storage, boost::none, "blue").lockRoot(),
              "/home/z\u00fc/st\U0001F600/desktopservices/blue/agents");
}

TEST(FolderLocationsTest, DefaultsFollowRuntimeThenHomeThenTemp) {
    {
        const ScopedEnvironment runtime("XDG_RUNTIME_DIR", "/run/user/1");
        const ScopedEnvironment home("HOME", "/home/u");
        EXPECT_EQ(FolderLocations().lockRoot(), "/run/user/1/korvexdrive/agents");
        EXPECT_EQ(ConnectorLocations(boost::none, boost::none, "default").lockRoot(),
                  "/run/user/1/desktopservices/default/agents");
    }
    {
        // A relative runtime folder is not trusted, as the XDG rules say.
        const ScopedEnvironment runtime("XDG_RUNTIME_DIR", "relative/run");
        const ScopedEnvironment home("HOME", "/home/u");
        EXPECT_EQ(FolderLocations().lockRoot(), "/home/u/.local/state/korvexdrive/agents");
    }
    {
        const ScopedEnvironment runtime("XDG_RUNTIME_DIR", nullptr);
        const ScopedEnvironment home("HOME", nullptr);
        const ScopedEnvironment tmp("TMPDIR", "/var/tmp");
        const std::filesystem::path base = "/var/tmp/user-" + std::to_string(::getuid());
        EXPECT_EQ(FolderLocations().lockRoot(), base / "korvexdrive" / "agents");
        EXPECT_EQ(ConnectorLocations(boost::none, boost::none, "r").lockRoot(), base / "desktopservices" / "r" / "agents");
    }
}

TEST(FolderLocationsTest, LockRootCreatesNothing) {
    ScratchFolder scratch;
    const auto storage = scratch.path().u16string();
    EXPECT_EQ(FolderLocations(storage).lockRoot(), scratch.path() / "korvexdrive" / "agents");
    EXPECT_EQ(ConnectorLocations(storage, boost::none, "x").lockRoot(),
              scratch.path() / "desktopservices" / "x" / "agents");
    EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

TEST(FolderLocationsTest, BadOverridesAndRealmNamesAreRefused) {
    auto error = [](auto&& make) -> std::string {
        try {
            make();
        } catch (const std::invalid_argument& e) {
            return e.what();
        }
        return "accepted";
    };
    EXPECT_EQ(error([] { FolderLocations(std::u16string()); }), "User storage root override is empty");
    EXPECT_EQ(error([] { FolderLocations(std::u16string(u"/a\xD800")); }), "Unpaired high surrogate at unit offset 2");
    EXPECT_EQ(error([] { ConnectorLocations(std::u16string(), boost::none, "r"); }),
              "User storage root override is empty");
    for (const std::string& realm : {std::string(), std::string("."), std::string(".."), std::string("a/b"),
                                    std::string("a\0b", 3)}) {
        EXPECT_EQ(error([&] { ConnectorLocations(boost::none, std::filesystem::path("/locks"), realm); }),
                  "Desktop services realm name must be a single folder name")
            << realm;
    }
}

TEST(DesktopServicesRealmTest, NameComesFromTheEnvironmentWhenUsable) {
    {
        const ScopedEnvironment realm("DESKTOPSERVICES_REALM", nullptr);
        EXPECT_EQ(DesktopServicesRealm::nameFromEnvironment(), "default");
    }
    {
        const ScopedEnvironment realm("DESKTOPSERVICES_REALM", "blue");
        EXPECT_EQ(DesktopServicesRealm::nameFromEnvironment(), "blue");
    }
    foundation::log::removeSink(foundation::log::defaultStderrSink());
    auto log = std::make_shared<foundation::log::capture_sink>("agent::control");
    foundation::log::addSink(log);
    for (const char* unusable : {"", "..", "a/b"}) {
        const ScopedEnvironment realm("DESKTOPSERVICES_REALM", unusable);
        EXPECT_EQ(DesktopServicesRealm::nameFromEnvironment(), "default") << unusable;
        EXPECT_TRUE(log->contains(std::string("DESKTOPSERVICES_REALM \"") + unusable +
                                  "\" is not a single folder name; using the realm \"default\""))
            << unusable;
    }
    foundation::log::removeSink(log);
    foundation::log::addSink(foundation::log::defaultStderrSink());
}

TEST(DesktopServicesRealmTest, InstanceIsOneObjectNamedOnFirstUse) {
    auto& realm = DesktopServicesRealm::instance();
    EXPECT_EQ(&realm, &DesktopServicesRealm::instance());
    EXPECT_EQ(realm.name(), DesktopServicesRealm::nameFromEnvironment());
    // The realm's name is what the connector's registry path is made of.
    EXPECT_EQ(ConnectorLocations(std::u16string(u"/s"), boost::none, realm.name()).lockRoot(),
              std::filesystem::path("/s/desktopservices") / realm.name() / "agents");
}

}  // namespace
}  // namespace agent::utils
