#pragma once

#include <boost/optional.hpp>

#include <filesystem>
#include <string>

namespace agent::utils {

// Where the agents of mode korvexdrive keep their registry (the "lock root").
//
//   lockRoot() =
//     lockRootOverride                                   when given, as given;
//     <userStorageRootOverride>/korvexdrive/agents       when that is given;
//     <base>/korvexdrive/agents                          otherwise, where <base> is
//        $XDG_RUNTIME_DIR                  if set to an absolute path, else
//        $HOME/.local/state                if HOME is set to an absolute path, else
//        <system temp folder>/user-<uid>   (one folder per user, so users never share a registry).
//
// The environment is read once, by the constructor. Nothing is created on disk: an
// AgentRegistration creates its root when it writes the first entry. A value type; const
// members are safe from any thread.
class FolderLocations {
public:
    // Throws std::invalid_argument("User storage root override is empty") and, for an
    // override that is not valid UTF-16, the error of foundation::text::toUtf8.
    explicit FolderLocations(const boost::optional<std::u16string>& userStorageRootOverride = boost::none,
                             const boost::optional<std::filesystem::path>& lockRootOverride = boost::none);

    // The registry root of mode korvexdrive. Creates nothing; never throws.
    const std::filesystem::path& lockRoot() const noexcept { return lockRoot_; }

private:
    std::filesystem::path lockRoot_;
};

}  // namespace agent::utils
