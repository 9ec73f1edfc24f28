#pragma once

#include <boost/optional.hpp>

#include <filesystem>
#include <string>
#include <string_view>

namespace agent::utils {

// The folder under which both modes put their registry roots: the user storage root
// override when given (converted from UTF-16), else $XDG_RUNTIME_DIR, else
// $HOME/.local/state, else <temp>/user-<uid> (see FolderLocations.h). Reads the
// environment; creates nothing. Throws std::invalid_argument("User storage root override
// is empty") and the errors of foundation::text::toUtf8.
std::filesystem::path registryBaseFolder(const boost::optional<std::u16string>& userStorageRootOverride);

// True when `name` can stand as one path component: not empty, ".", "..", and no '/' or NUL.
bool isSingleFolderName(std::string_view name) noexcept;

}  // namespace agent::utils
