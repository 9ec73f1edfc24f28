#include "support/Thrown.h"
#include "agent/utils/FolderLocations.h"
#include "korvexconnector/serviceprocess/DesktopServicesRealm.h"
#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "agent/TemporaryFolder.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

namespace agent::utils {
namespace {

using ConnectorLocations = korvexconnector::serviceprocess::FolderLocations;
using korvexconnector::serviceprocess::DesktopServicesRealm;
using agent::testing::TemporaryFolder;

// Sets or unsets an environment variable for one scope and puts the old value back.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
            hadOld_ = true;
        }
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        if (hadOld_) {
            ::setenv(name_.c_str(), old_.c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::string old_;
    bool hadOld_ = false;
};

// Where each mode's registry lives: an explicit lock root wins, then a user storage override
// (non-ASCII survives the conversion from UTF-16), then XDG_RUNTIME_DIR if absolute, then
// HOME, then TMPDIR; nothing is created on the way.
TEST(FolderLocationsTest, LockRootsFollowOverridesThenRuntimeThenHomeThenTemp) {
    using Storage = boost::optional<std::u16string>;
    using Locks = boost::optional<std::filesystem::path>;
    struct Row { const char* runtime; const char* home; Storage storage; Locks locks; std::string drive, services; };
    const std::string temp = "/var/tmp/user-" + std::to_string(::getuid());
    const Row rows[] = {
        {"/run/user/1", "/home/u", std::u16string(u"/s"), std::filesystem::path("/locks"), "/locks", "/locks"},
        {"/run/user/1", "/home/u", std::u16string(u"/home/z\u00fc/st\U0001F600"), boost::none,
         "/home/z\u00fc/st\U0001F600/korvexdrive/agents", "/home/z\u00fc/st\U0001F600/desktopservices/blue/agents"},
        {"/run/user/1", "/home/u", boost::none, boost::none, "/run/user/1/korvexdrive/agents",
         "/run/user/1/desktopservices/blue/agents"},
        {"relative/run", "/home/u", boost::none, boost::none, "/home/u/.local/state/korvexdrive/agents",
         "/home/u/.local/state/desktopservices/blue/agents"},
        {nullptr, nullptr, boost::none, boost::none, temp + "/korvexdrive/agents", temp + "/desktopservices/blue/agents"},
    };
    const ScopedEnvironment tmp("TMPDIR", "/var/tmp");
    for (const auto& row : rows) {
        const ScopedEnvironment runtime("XDG_RUNTIME_DIR", row.runtime);
        const ScopedEnvironment home("HOME", row.home);
        EXPECT_EQ(FolderLocations(row.storage, row.locks).lockRoot(), row.drive);
        EXPECT_EQ(ConnectorLocations(row.storage, row.locks, "blue").lockRoot(), row.services);
    }
    TemporaryFolder scratch;
    EXPECT_EQ(FolderLocations(scratch.path().u16string()).lockRoot(), scratch.path() / "korvexdrive" / "agents");
    EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

TEST(FolderLocationsTest, BadOverridesAndRealmNamesAreRefused) {
    const auto error = [](auto&& make) { return testsupport::ThrownText<std::invalid_argument>(make); };
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
    foundation::log::removeSink(foundation::log::defaultStderrSink());
    auto log = std::make_shared<foundation::log::capture_sink>("agent::control");
    foundation::log::addSink(log);
    const std::pair<const char*, const char*> rows[] = {{nullptr, "default"}, {"blue", "blue"}, {"", "default"},
                                                        {"..", "default"}, {"a/b", "default"}};
    for (const auto& [value, name] : rows) {
        const ScopedEnvironment realm("DESKTOPSERVICES_REALM", value);
        EXPECT_EQ(DesktopServicesRealm::nameFromEnvironment(), name) << (value ? value : "unset");
        if (value != nullptr && std::string(value) != name) {
            EXPECT_TRUE(log->contains(std::string("DESKTOPSERVICES_REALM \"") + value +
                                      "\" is not a single folder name; using the realm \"default\""))
                << value;
        }
    }
    foundation::log::removeSink(log);
    foundation::log::addSink(foundation::log::defaultStderrSink());
}

}  // namespace
}  // namespace agent::utils
