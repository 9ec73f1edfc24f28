#include "storage/sharedlib/SharedLibraryError.h"

namespace storage::sharedlib {

SharedLibraryError::SharedLibraryError(const std::filesystem::path& path, const std::string& cause)
    : std::runtime_error("Unable to load shared library " + path.string() + ": " + cause), path_(path) {}

}  // namespace storage::sharedlib
