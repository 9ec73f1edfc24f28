#pragma once

#include "agent/spf/externalprocessdiscovery/UserStorageRootOverride.h"

namespace agent::spf::externalprocessdiscovery {

// An override with answers fixed at construction. Immutable, so thread-safe.
class FixedUserStorageRootOverride final : public UserStorageRootOverride {
public:
    // Throws std::invalid_argument("User storage root override is empty") for an empty
    // string in either position: FolderLocations would refuse it later, far from here.
    explicit FixedUserStorageRootOverride(boost::optional<std::u16string> userStorageRoot,
                                          boost::optional<std::u16string> lockRoot = boost::none);

    boost::optional<std::u16string> getUserStorageRootOverride() const override { return userStorageRoot_; }
    boost::optional<std::u16string> getLockRootOverride() const override { return lockRoot_; }

private:
    const boost::optional<std::u16string> userStorageRoot_;
    const boost::optional<std::u16string> lockRoot_;
};

}  // namespace agent::spf::externalprocessdiscovery
