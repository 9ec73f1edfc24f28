#include "utils/RegistryBaseFolder.h"

#include "foundation/text/Utf.h"

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace agent::utils {

namespace {

// The variable's value when it is an absolute path; relative values are ignored, as the
// XDG base directory rules ask.
boost::optional<std::filesystem::path> absoluteFromEnvironment(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr || value[0] != '/') {
        return boost::none;
    }
    return std::filesystem::path(value);
}

}  // namespace

std::filesystem::path registryBaseFolder(const boost::optional<std::u16string>& userStorageRootOverride) {
    if (userStorageRootOverride) {
        if (userStorageRootOverride->empty()) {
            throw std::invalid_argument("User storage root override is empty");
        }
        return std::filesystem::path(foundation::text::toUtf8(*userStorageRootOverride));
    }
    if (auto runtime = absoluteFromEnvironment("XDG_RUNTIME_DIR")) {
        return *runtime;
    }
    if (auto home = absoluteFromEnvironment("HOME")) {
        return *home / ".local" / "state";
    }
    std::error_code ec;
    auto temporary = std::filesystem::temp_directory_path(ec);
    if (ec) {
        temporary = "/tmp";
    }
    return temporary / ("user-" + std::to_string(::getuid()));
}

bool isSingleFolderName(std::string_view name) noexcept {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

}  // namespace agent::utils
