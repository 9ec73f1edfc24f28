#pragma once

#include <cppmicroservices/cm/ConfigurationAdmin.hpp>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace spfhost {

// A folder of publisher configurations kept in force: each file
// "qz.spf.legacyservicepublisher~<name>.json" is the factory configuration <name>, created,
// changed and removed as the file is. A file without "modificationCount" gets one that grows
// with each change of the file. A file that cannot be read or parsed gets one error line naming
// it and the problem, and the configuration last taken from it stays in force.
//
// Starts by applying the folder as it is, then looks again every `interval` on a thread of its
// own until destroyed. The folder need not exist yet.
class ConfigFolder {
public:
    struct Applied {
        std::string name;
        std::filesystem::path file;
        int modificationCount = 0;
    };

    ConfigFolder(std::filesystem::path folder, std::shared_ptr<cppmicroservices::service::cm::ConfigurationAdmin> admin,
                 std::chrono::milliseconds interval = std::chrono::milliseconds(500));
    ~ConfigFolder();
    ConfigFolder(const ConfigFolder&) = delete;
    ConfigFolder& operator=(const ConfigFolder&) = delete;

    // The configurations in force that came from the folder, by name.
    std::vector<Applied> applied() const;

private:
    struct FileState {
        std::optional<std::string> content;  // as last read, good or not
        bool inForce = false;  // a configuration was taken from it
        int modificationCount = 0;
    };

    void scan();
    // Call with filesMutex held.
    void apply(const std::string& name, const std::filesystem::path& file, std::string content);

    const std::filesystem::path folder_;
    const std::shared_ptr<cppmicroservices::service::cm::ConfigurationAdmin> admin_;
    const std::chrono::milliseconds interval_;

    mutable std::mutex filesMutex;  // guards files
    std::map<std::string, FileState> files;

    std::mutex stopMutex;  // guards stop
    std::condition_variable stopChanged;
    bool stop = false;
    std::thread thread;
};

}  // namespace spfhost
