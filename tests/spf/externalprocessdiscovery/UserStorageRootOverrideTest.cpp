#include "agent/spf/externalprocessdiscovery/FixedUserStorageRootOverride.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace agent::spf::externalprocessdiscovery {
namespace {

// Finding an override by its mode, and exchanges through it, runs end to end; an empty override
// is refused at once.
TEST(UserStorageRootOverrideTest, EmptyOverridesAreRefused) {
    using Overrides = std::pair<boost::optional<std::u16string>, boost::optional<std::u16string>>;
    for (const auto& [root, lock] : {Overrides{std::u16string(), boost::none}, {std::u16string(u"/x"), std::u16string()}}) {
        try {
            FixedUserStorageRootOverride override(root, lock);
            ADD_FAILURE() << "an empty override was accepted";
        } catch (const std::invalid_argument& e) {
            EXPECT_STREQ(e.what(), "User storage root override is empty");
        }
    }
}

}  // namespace
}  // namespace agent::spf::externalprocessdiscovery
