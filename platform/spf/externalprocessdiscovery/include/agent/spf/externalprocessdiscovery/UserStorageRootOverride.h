#pragma once

#include "agent/control/AgentMode.h"

#include <boost/optional.hpp>

#include <string>

namespace agent::spf::externalprocessdiscovery {

// Moves the agent registry of one connector mode away from the user's default storage
// root, for hosts (and tests) that keep their agents apart. Registered under
// "agent::spf::externalprocessdiscovery::UserStorageRootOverride" with the service
// property kModeProperty ("mode") set to "korvexdrive" or "desktopservices" (a
// std::string), so that a lookup with modeFilter(mode) finds the override of one mode.
//
// The answers feed agent::utils::FolderLocations (mode korvexdrive) and
// korvexconnector::serviceprocess::FolderLocations (mode desktopservices), which say what
// each override means. Implementations are thread-safe; the members are non-blocking and
// throw nothing but std::bad_alloc.
class UserStorageRootOverride {
public:
    // The folder that replaces the user storage root (the registry is then found below
    // it, in the mode's own sub-folders); none = the default root.
    virtual boost::optional<std::u16string> getUserStorageRootOverride() const = 0;
    // The registry folder itself, taking precedence over the storage root; none = derive
    // it from the storage root.
    virtual boost::optional<std::u16string> getLockRootOverride() const = 0;

    virtual ~UserStorageRootOverride();

protected:
    UserStorageRootOverride() = default;
    UserStorageRootOverride(const UserStorageRootOverride&) = delete;
    UserStorageRootOverride& operator=(const UserStorageRootOverride&) = delete;
};

// The service property naming the mode an override applies to.
inline constexpr const char* kModeProperty = "mode";

// "(mode=korvexdrive)" or "(mode=desktopservices)": the LDAP filter selecting the
// override of `mode`. Throws nothing but std::bad_alloc.
std::string modeFilter(control::AgentMode mode);

}  // namespace agent::spf::externalprocessdiscovery
