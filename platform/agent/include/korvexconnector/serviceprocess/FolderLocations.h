#pragma once

#include <boost/optional.hpp>

#include <filesystem>
#include <string>

namespace korvexconnector::serviceprocess {

// Where the agents of mode desktopservices keep their registry (the "lock root"); each
// desktop services realm has its own.
//
//   lockRoot() =
//     lockRootOverride                                            when given, as given;
//     <userStorageRootOverride>/desktopservices/<realm>/agents    when that is given;
//     <base>/desktopservices/<realm>/agents                       otherwise, where <base> is
//        $XDG_RUNTIME_DIR                  if set to an absolute path, else
//        $HOME/.local/state                if HOME is set to an absolute path, else
//        <system temp folder>/user-<uid>   (one folder per user, so users never share a registry).
//
// <realm> is the realm name given to the constructor (usually
// DesktopServicesRealm::instance().name()). The environment is read once, by the
// constructor. Nothing is created on disk. A value type; const members are safe from any
// thread.
class FolderLocations {
public:
    // Throws std::invalid_argument("User storage root override is empty"),
    // ("Desktop services realm name must be a single folder name") for an empty name, ".",
    // "..", or one holding '/' or a NUL, and, for an override that is not valid UTF-16, the
    // error of foundation::text::toUtf8. The realm name is checked even when
    // lockRootOverride is given.
    FolderLocations(const boost::optional<std::u16string>& userStorageRootOverride,
                    const boost::optional<std::filesystem::path>& lockRootOverride, const std::string& realmName);

    // The registry root of mode desktopservices for the realm. Creates nothing; never throws.
    const std::filesystem::path& lockRoot() const noexcept { return lockRoot_; }

private:
    std::filesystem::path lockRoot_;
};

}  // namespace korvexconnector::serviceprocess
