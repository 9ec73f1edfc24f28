#include "agent/spf/externalprocessdiscovery/FixedUserStorageRootOverride.h"

#include "agent/utils/FolderLocations.h"
#include "foundation/text/Utf.h"
#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "support/FrameworkFixture.h"

#include "cppmicroservices/ServiceReference.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace agent::spf::externalprocessdiscovery {
namespace {

using control::AgentMode;
using UserStorageRootOverrideTest = testsupport::FrameworkFixture;

boost::optional<std::filesystem::path> asPath(const boost::optional<std::u16string>& text) {
    if (!text) {
        return boost::none;
    }
    return std::filesystem::path(foundation::text::toUtf8(*text));
}

TEST(UserStorageRootOverrideNames, InterfaceIdAndFiltersAreTheOnesLookupsUse) {
    EXPECT_EQ(us_service_interface_iid<UserStorageRootOverride>(),
              "agent::spf::externalprocessdiscovery::UserStorageRootOverride");
    EXPECT_EQ(modeFilter(AgentMode::KorvexDrive), "(mode=korvexdrive)");
    EXPECT_EQ(modeFilter(AgentMode::DesktopServices), "(mode=desktopservices)");
}

TEST(UserStorageRootOverrideNames, EmptyOverridesAreRefusedAtOnce) {
    using Overrides = std::pair<boost::optional<std::u16string>, boost::optional<std::u16string>>;
    const Overrides rows[] = {{std::u16string(), boost::none}, {std::u16string(u"/x"), std::u16string()}};
    for (const auto& [root, lock] : rows) {
        try {
            FixedUserStorageRootOverride override(root, lock);
            ADD_FAILURE() << "an empty override was accepted";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), "User storage root override is empty");
        }
    }
}

// One override per mode, found by its filter, moves that mode's registry and only that.
TEST_F(UserStorageRootOverrideTest, EachModeFindsItsOwnOverrideAndFolderLocationsFollowIt) {
    auto korvex = std::make_shared<FixedUserStorageRootOverride>(std::u16string(u"/srv/k\u00e9 root"));
    auto desktop = std::make_shared<FixedUserStorageRootOverride>(std::u16string(u"/srv/d"),
                                                                  std::u16string(u"/srv/locks"));
    context.RegisterService<UserStorageRootOverride>(korvex, {{kModeProperty, std::string("korvexdrive")}});
    context.RegisterService<UserStorageRootOverride>(desktop, {{kModeProperty, std::string("desktopservices")}});

    auto lookup = [&](AgentMode mode) {
        auto references = context.GetServiceReferences<UserStorageRootOverride>(modeFilter(mode));
        EXPECT_EQ(references.size(), 1u);
        return references.empty() ? nullptr : context.GetService(references.front());
    };

    auto found = lookup(AgentMode::KorvexDrive);
    ASSERT_EQ(found, korvex);
    utils::FolderLocations korvexLocations(found->getUserStorageRootOverride(), asPath(found->getLockRootOverride()));
    EXPECT_EQ(korvexLocations.lockRoot(), std::filesystem::path("/srv/k\xc3\xa9 root/korvexdrive/agents"));

    found = lookup(AgentMode::DesktopServices);
    ASSERT_EQ(found, desktop);
    korvexconnector::serviceprocess::FolderLocations desktopLocations(
        found->getUserStorageRootOverride(), asPath(found->getLockRootOverride()), "realm");
    EXPECT_EQ(desktopLocations.lockRoot(), std::filesystem::path("/srv/locks"));
}

TEST_F(UserStorageRootOverrideTest, AnOverrideWithoutAModeIsNotFoundByEitherFilter) {
    context.RegisterService<UserStorageRootOverride>(std::make_shared<FixedUserStorageRootOverride>(std::u16string(u"/srv/x")));
    EXPECT_TRUE(context.GetServiceReferences<UserStorageRootOverride>(modeFilter(AgentMode::KorvexDrive)).empty());
    EXPECT_TRUE(context.GetServiceReferences<UserStorageRootOverride>(modeFilter(AgentMode::DesktopServices)).empty());
}

}  // namespace
}  // namespace agent::spf::externalprocessdiscovery
