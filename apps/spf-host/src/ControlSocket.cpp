#include "ControlSocket.h"

#include "HostLogger.h"

#include "foundation/log/Severity.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace spfhost {

namespace {

constexpr std::size_t kLongestCommand = 64 * 1024;

std::string failure(const std::string& what, const std::filesystem::path& path) {
    return what + " " + path.string() + ": " + std::strerror(errno);
}

sockaddr_un addressOf(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.string().size() >= sizeof address.sun_path) {
        throw std::runtime_error("The control socket path is too long: " + path.string());
    }
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// A socket connected to `path`, or -1 with errno set.
int connectTo(const std::filesystem::path& path) {
    const auto address = addressOf(path);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

bool writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const auto written = ::send(fd, data, size, MSG_NOSIGNAL);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace

ControlSocket::ControlSocket(std::filesystem::path path, const Console& console)
    : path_(std::move(path)), console_(console) {
    const auto address = addressOf(path_);
    if (const int other = connectTo(path_); other >= 0) {
        ::close(other);
        throw std::runtime_error("Another host answers at " + path_.string());
    }
    ::unlink(path_.c_str());  // a socket left by a host that ended without removing it
    listening_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listening_ < 0) {
        throw std::runtime_error(failure("Cannot open the control socket", path_));
    }
    // Owner-only from the start: no one else may connect between bind and chmod.
    const mode_t previous = ::umask(0077);
    const int bound = ::bind(listening_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    ::umask(previous);
    if (bound != 0 || ::listen(listening_, 8) != 0 || ::pipe2(wake_, O_CLOEXEC) != 0) {
        const auto why = failure("Cannot bind the control socket", path_);
        ::close(listening_);
        throw std::runtime_error(why);
    }
    thread_ = std::thread([this] { serve(); });
}

ControlSocket::~ControlSocket() {
    const char byte = 0;
    [[maybe_unused]] const auto ignored = ::write(wake_[1], &byte, 1);
    thread_.join();
    ::close(listening_);
    ::close(wake_[0]);
    ::close(wake_[1]);
    ::unlink(path_.c_str());
}

void ControlSocket::serve() {
    for (;;) {
        pollfd fds[2] = {{listening_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            FOUNDATION_LOG(logger(), foundation::log::severity::error)
                << "The control socket stops: " << std::strerror(errno);
            return;
        }
        if (fds[1].revents != 0) {
            return;
        }
        const int connection = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection >= 0) {
            answer(connection);
            ::close(connection);
        }
    }
}

void ControlSocket::answer(int connection) {
    // A client that stops sending is not waited for long.
    const timeval patience{5, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    std::string command;
    char buffer[4096];
    for (;;) {
        const auto received = ::recv(connection, buffer, sizeof buffer, 0);
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) break;
        command.append(buffer, static_cast<std::size_t>(received));
        if (command.find('\n') != std::string::npos || command.size() > kLongestCommand) break;
    }
    std::ostringstream out;
    bool succeeded = false;
    if (command.size() > kLongestCommand) {
        out << "error: the command is longer than " << kLongestCommand << " bytes\n";
    } else {
        succeeded = console_.execute(command.substr(0, command.find('\n')), out);
    }
    const std::string reply = (succeeded ? "0" : "1") + out.str();
    writeAll(connection, reply.data(), reply.size());
}

bool ControlSocket::send(const std::filesystem::path& path, const std::string& command, std::ostream& out) {
    const int fd = connectTo(path);
    if (fd < 0) {
        throw std::runtime_error(failure("No host answers at", path));
    }
    const std::string request = command + "\n";
    std::string reply;
    if (writeAll(fd, request.data(), request.size())) {
        ::shutdown(fd, SHUT_WR);
        char buffer[4096];
        for (;;) {
            const auto received = ::recv(fd, buffer, sizeof buffer, 0);
            if (received < 0 && errno == EINTR) continue;
            if (received <= 0) break;
            reply.append(buffer, static_cast<std::size_t>(received));
        }
    }
    ::close(fd);
    if (reply.empty()) {
        throw std::runtime_error("No answer from the host at " + path.string());
    }
    out << reply.substr(1);
    return reply[0] == '0';
}

}  // namespace spfhost
