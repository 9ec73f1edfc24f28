#include "agent/spf/externalprocessdiscovery/FixedUserStorageRootOverride.h"

#include <stdexcept>

namespace agent::spf::externalprocessdiscovery {
namespace {

boost::optional<std::u16string> checked(boost::optional<std::u16string> path) {
    if (path && path->empty()) {
        throw std::invalid_argument("User storage root override is empty");
    }
    return path;
}

}  // namespace

FixedUserStorageRootOverride::FixedUserStorageRootOverride(boost::optional<std::u16string> userStorageRoot,
                                                           boost::optional<std::u16string> lockRoot)
    : userStorageRoot_(checked(std::move(userStorageRoot))), lockRoot_(checked(std::move(lockRoot))) {}

}  // namespace agent::spf::externalprocessdiscovery
