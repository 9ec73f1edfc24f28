#include "ConfigFolder.h"

#include "HostLogger.h"
#include "JsonToAny.h"

#include "foundation/log/Severity.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <sstream>
#include <utility>

namespace spfhost {

using foundation::log::severity::error;
using foundation::log::severity::info;

namespace {

const std::string kFactoryPid = "qz.spf.legacyservicepublisher";
const std::string kPrefix = kFactoryPid + "~";
const std::string kSuffix = ".json";

// The configuration name a file stands for; empty for files of other names.
std::string configurationName(const std::filesystem::path& file) {
    const auto name = file.filename().string();
    if (name.size() <= kPrefix.size() + kSuffix.size() || name.compare(0, kPrefix.size(), kPrefix) != 0 ||
        name.compare(name.size() - kSuffix.size(), kSuffix.size(), kSuffix) != 0) {
        return {};
    }
    return name.substr(kPrefix.size(), name.size() - kPrefix.size() - kSuffix.size());
}

}  // namespace

ConfigFolder::ConfigFolder(std::filesystem::path folder,
                           std::shared_ptr<cppmicroservices::service::cm::ConfigurationAdmin> admin,
                           std::chrono::milliseconds interval)
    : folder_(std::move(folder)), admin_(std::move(admin)), interval_(interval) {
    if (!admin_) {
        throw std::invalid_argument("Configuration folder needs Configuration Admin");
    }
    scan();
    thread = std::thread([this] {
        std::unique_lock<std::mutex> lock(stopMutex);
        while (!stopChanged.wait_for(lock, interval_, [this] { return stop; })) {
            lock.unlock();
            scan();
            lock.lock();
        }
    });
}

ConfigFolder::~ConfigFolder() {
    {
        std::lock_guard<std::mutex> lock(stopMutex);
        stop = true;
    }
    stopChanged.notify_all();
    thread.join();
}

std::vector<ConfigFolder::Applied> ConfigFolder::applied() const {
    std::lock_guard<std::mutex> lock(filesMutex);
    std::vector<Applied> result;
    for (const auto& [name, state] : files) {
        if (state.inForce) {
            result.push_back({name, folder_ / (kPrefix + name + kSuffix), state.modificationCount});
        }
    }
    return result;
}

void ConfigFolder::scan() {
    std::map<std::string, std::filesystem::path> present;
    std::error_code failure;
    for (std::filesystem::directory_iterator it(folder_, failure), end; !failure && it != end; it.increment(failure)) {
        const auto name = configurationName(it->path());
        if (!name.empty() && it->is_regular_file()) {
            present.emplace(name, it->path());
        }
    }
    std::lock_guard<std::mutex> lock(filesMutex);
    for (auto state = files.begin(); state != files.end();) {
        if (present.count(state->first) != 0) {
            ++state;
            continue;
        }
        if (state->second.inForce) {
            FOUNDATION_LOG(logger(), info) << "Removing configuration " << state->first << ": its file is gone";
            admin_->GetFactoryConfiguration(kFactoryPid, state->first)->Remove();
        }
        state = files.erase(state);
    }
    for (const auto& [name, file] : present) {
        std::ifstream in(file, std::ios::binary);
        std::stringstream content;
        content << in.rdbuf();
        if (!in) {
            continue;  // gone or unreadable between the listing and now: looked at again next time
        }
        apply(name, file, content.str());
    }
}

void ConfigFolder::apply(const std::string& name, const std::filesystem::path& file, std::string content) {
    auto& state = files[name];
    if (state.content == content) {
        return;
    }
    state.content = std::move(content);
    cppmicroservices::AnyMap properties(cppmicroservices::AnyMap::UNORDERED_MAP);
    int modificationCount = 0;
    try {
        const auto json = nlohmann::json::parse(*state.content);
        properties = jsonToProperties(json);
        if (json.contains("modificationCount")) {
            if (!json["modificationCount"].is_number_integer()) {
                throw std::invalid_argument("\"modificationCount\" must be an integer");
            }
            modificationCount = json["modificationCount"].get<int>();
        } else {
            modificationCount = state.modificationCount + 1;
            properties["modificationCount"] = modificationCount;
        }
    } catch (const std::exception& e) {
        FOUNDATION_LOG(logger(), error) << file.string() << ": " << e.what()
                                        << (state.inForce ? "; the configuration read before stays in force" : "");
        return;
    }
    FOUNDATION_LOG(logger(), info) << (state.inForce ? "Changing" : "Creating") << " configuration " << name
                                   << " from " << file.string();
    admin_->GetFactoryConfiguration(kFactoryPid, name)->Update(std::move(properties));
    state.inForce = true;
    state.modificationCount = modificationCount;
}

}  // namespace spfhost
