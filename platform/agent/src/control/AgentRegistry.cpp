#include "agent/control/AgentRegistry.h"

#include "control/AgentRecord.h"
#include "control/ControlLogger.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>

namespace agent::control {

using foundation::log::severity::info;
using foundation::log::severity::warning;

namespace {

constexpr unsigned int kMaxRetries = 50;
constexpr auto kRetryPause = std::chrono::milliseconds(10);

// Why a file was not read: it is gone (deregistered meanwhile), it is no registry file
// at all (no point trying again), or some failure that a later attempt may not see.
struct ReadFailure {
    bool vanished = false;
    bool permanent = false;
    std::string reason;
};

// Reads the whole of a regular file of at most kMaxFileSize bytes, not following a link
// and never blocking on a FIFO that replaced the file after it was listed.
bool readRecordFile(const std::filesystem::path& path, std::string& content, ReadFailure& failure) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        failure.vanished = error == ENOENT;
        failure.permanent = error == ELOOP;
        failure.reason = error == ELOOP ? "it is a symbolic link" : std::generic_category().message(error);
        return false;
    }
    bool ok = false;
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        failure.reason = std::generic_category().message(errno);
    } else if (!S_ISREG(status.st_mode)) {
        failure.permanent = true;
        failure.reason = "it is not a regular file";
    } else if (static_cast<std::uint64_t>(status.st_size) > AgentRecord::kMaxFileSize) {
        failure.permanent = true;
        failure.reason = "it is larger than " + std::to_string(AgentRecord::kMaxFileSize) + " bytes";
    } else {
        // One byte more than allowed, to notice a file that grew since fstat.
        content.assign(AgentRecord::kMaxFileSize + 1, '\0');
        std::size_t size = 0;
        ok = true;
        while (size < content.size()) {
            const auto n = ::read(fd, content.data() + size, content.size() - size);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n < 0) {
                failure.reason = std::generic_category().message(errno);
                ok = false;
                break;
            }
            if (n == 0) {
                break;
            }
            size += static_cast<std::size_t>(n);
        }
        content.resize(size);
        if (ok && size > AgentRecord::kMaxFileSize) {
            failure.permanent = true;
            failure.reason = "it is larger than " + std::to_string(AgentRecord::kMaxFileSize) + " bytes";
            ok = false;
        }
    }
    ::close(fd);
    return ok;
}

bool isAlive(pid_t pid) {
    return ::kill(pid, 0) == 0 || errno == EPERM;
}

struct Found {
    AgentRecord record;
    std::string fileName;
};

// The record in `path`, or none when it vanished or stayed unreadable through `retries`
// more attempts (logged).
boost::optional<AgentRecord> readRecord(const std::filesystem::path& path, unsigned int retries) {
    std::string reason;
    for (unsigned int attempt = 0;; ++attempt) {
        std::string content;
        ReadFailure failure;
        if (readRecordFile(path, content, failure)) {
            try {
                return AgentRecord::parse(content);
            } catch (const std::invalid_argument& e) {
                reason = e.what();
            }
        } else if (failure.vanished) {
            return boost::none;
        } else {
            reason = failure.reason;
            if (failure.permanent) {
                break;
            }
        }
        if (attempt >= retries) {
            break;
        }
        std::this_thread::sleep_for(kRetryPause);
    }
    FOUNDATION_LOG(controlLogger(), warning) << "Skipping the agent registry file " << path.string() << ": " << reason;
    return boost::none;
}

void removeDeadEntry(const std::filesystem::path& path, const AgentInfo& agent) {
    // The file name holds a random part, so no later agent that reuses the process ID can
    // own this file: removing it can only remove the dead agent's entry.
    if (::unlink(path.c_str()) == 0) {
        FOUNDATION_LOG(controlLogger(), info) << "Removed the agent registry file " << path.string() << " of agent "
                                              << agent.getName() << ", whose process "
                                              << agent.getProcessID() << " is gone";
        return;
    }
    const int error = errno;
    if (error != ENOENT) {
        FOUNDATION_LOG(controlLogger(), warning) << "Cannot remove the agent registry file " << path.string()
                                                 << " of a dead process: " << std::generic_category().message(error);
    }
}

}  // namespace

std::vector<AgentInfo> enumerateAllRunningAgents(const std::filesystem::path& root, unsigned int retries) {
    retries = std::min(retries, kMaxRetries);
    std::vector<Found> found;
    std::error_code ec;
    std::filesystem::directory_iterator entries(root, ec);
    if (ec) {
        if (ec != std::errc::no_such_file_or_directory && ec != std::errc::not_a_directory) {
            FOUNDATION_LOG(controlLogger(), warning)
                << "Cannot list the agent registry folder " << root.string() << ": " << ec.message();
        }
        return {};
    }
    for (const std::filesystem::directory_iterator end; entries != end; entries.increment(ec)) {
        if (ec) {
            FOUNDATION_LOG(controlLogger(), warning)
                << "Cannot list the agent registry folder " << root.string() << ": " << ec.message();
            break;
        }
        const auto path = entries->path();
        auto fileName = path.filename().string();
        if (!AgentRecord::isRecordFileName(fileName)) {
            continue;
        }
        auto record = readRecord(path, retries);
        if (!record) {
            continue;
        }
        if (!isAlive(record->info.getProcessID())) {
            removeDeadEntry(path, record->info);
            continue;
        }
        found.push_back(Found{std::move(*record), std::move(fileName)});
    }
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
        return std::tie(a.record.registered, a.fileName) < std::tie(b.record.registered, b.fileName);
    });
    std::vector<AgentInfo> agents;
    agents.reserve(found.size());
    for (auto& entry : found) {
        agents.push_back(std::move(entry.record.info));
    }
    return agents;
}

}  // namespace agent::control
