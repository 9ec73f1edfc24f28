#include "agent/control/AgentRegistration.h"

#include "control/AgentRecord.h"
#include "control/ControlLogger.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <random>
#include <stdexcept>
#include <system_error>

namespace agent::control {

using foundation::log::severity::warning;

namespace {

std::string randomHex() {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::random_device device;
    std::uint64_t bits = (static_cast<std::uint64_t>(device()) << 32) ^ device();
    std::string text(16, '0');
    for (auto& digit : text) {
        digit = kDigits[bits & 0xf];
        bits >>= 4;
    }
    return text;
}

std::int64_t nowNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Writes `content` to the new file `path`; returns 0 or the errno of the failure, having
// removed whatever it created.
int writeNewFile(const std::filesystem::path& path, const std::string& content) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        return errno;
    }
    int failure = 0;
    std::size_t written = 0;
    while (written < content.size()) {
        const auto n = ::write(fd, content.data() + written, content.size() - written);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            failure = errno;
            break;
        }
        written += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0 && failure == 0) {
        failure = errno;
    }
    if (failure != 0) {
        ::unlink(path.c_str());
    }
    return failure;
}

void check(const AgentInfo& info) {
    if (info.getName().empty()) {
        throw std::invalid_argument("Agent needs a name");
    }
    if (info.getExchange().empty()) {
        throw std::invalid_argument("Agent needs an exchange");
    }
    if (info.getProcessID() <= 0) {
        throw std::invalid_argument("Agent needs a positive process ID");
    }
}

}  // namespace

AgentRegistration::AgentRegistration(const std::filesystem::path& root, AgentInfo info) : info_(std::move(info)) {
    check(info_);
    std::error_code ec;
    std::filesystem::create_directories(root, ec);
    if (ec) {
        throw std::runtime_error("Cannot create the agent registry folder " + root.string() + ": " + ec.message());
    }
    const auto stem = std::to_string(info_.getProcessID()) + "-" + randomHex();
    path_ = root / (std::string(AgentRecord::kFilePrefix) + stem + std::string(AgentRecord::kFileSuffix));
    // Hidden and without the ".json" ending, so no reader ever opens a half-written entry.
    const auto temporary = root / ("." + stem + ".tmp");

    const AgentRecord record{info_, nowNanoseconds()};
    int failure = writeNewFile(temporary, record.serialise());
    if (failure == 0 && ::rename(temporary.c_str(), path_.c_str()) != 0) {
        failure = errno;
        ::unlink(temporary.c_str());
    }
    if (failure != 0) {
        throw std::runtime_error("Cannot write the agent registry file " + path_.string() + ": " +
                                 std::generic_category().message(failure));
    }
}

AgentRegistration::~AgentRegistration() {
    if (::unlink(path_.c_str()) != 0 && errno != ENOENT) {
        const int failure = errno;
        FOUNDATION_LOG(controlLogger(), warning)
            << "Cannot remove the agent registry file " << path_.string() << ": " << std::generic_category().message(failure);
    }
}

}  // namespace agent::control
