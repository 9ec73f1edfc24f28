#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace agent::testing {

// A fresh folder for one test, removed with everything in it afterwards. Short, for ipc://
// socket files (their paths are limited to 107 bytes).
class TemporaryFolder {
public:
    TemporaryFolder() {
        char pattern[] = "/tmp/agent-XXXXXX";
        path_ = ::mkdtemp(pattern);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::string ipcUrl(const std::string& name) const { return "ipc://" + (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

}  // namespace agent::testing
