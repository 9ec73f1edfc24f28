#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace storage::sharedlib {

// A library could not be loaded. what() is
// "Unable to load shared library <path>: <loader's cause>".
class SharedLibraryError : public std::runtime_error {
public:
    SharedLibraryError(const std::filesystem::path& path, const std::string& cause);
    const std::filesystem::path& path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace storage::sharedlib
