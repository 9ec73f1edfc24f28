#include "support/Thrown.h"
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
        EXPECT_EQ(testsupport::ThrownText<std::invalid_argument>([&] { FixedUserStorageRootOverride override(root, lock); }),
                  "User storage root override is empty");
    }
}

}  // namespace
}  // namespace agent::spf::externalprocessdiscovery
