#include "nanomsgtransport/AcceptedConnections.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>

namespace agent::nanomsgtransport {

namespace {

// Accepted connections carry their listener's local address: the bound path of an ipc
// listener, the port of a tcp one (on whichever local address the peer reached).
bool belongsTo(const sockaddr_storage& local, const nng_sockaddr& listener) {
    switch (listener.s_family) {
        case NNG_AF_IPC: {
            if (local.ss_family != AF_UNIX) {
                return false;
            }
            const auto& path = reinterpret_cast<const sockaddr_un&>(local).sun_path;
            return path[0] != '\0' && std::strncmp(path, listener.s_ipc.sa_path, sizeof(path)) == 0;
        }
        case NNG_AF_INET:
            return local.ss_family == AF_INET &&
                   reinterpret_cast<const sockaddr_in&>(local).sin_port == listener.s_in.sa_port;
        case NNG_AF_INET6:
            return local.ss_family == AF_INET6 &&
                   reinterpret_cast<const sockaddr_in6&>(local).sin6_port == listener.s_in6.sa_port;
        default:
            return false;
    }
}

}  // namespace

std::size_t AcceptedConnections::shutDown(const std::vector<nng_sockaddr>& listeners) noexcept {
    if (listeners.empty()) {
        return 0;
    }
    DIR* descriptors = ::opendir("/proc/self/fd");
    if (descriptors == nullptr) {
        return 0;
    }
    std::size_t count = 0;
    while (const dirent* entry = ::readdir(descriptors)) {
        char* end = nullptr;
        const long fd = std::strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0' || fd == ::dirfd(descriptors)) {
            continue;
        }
        struct stat status {};
        if (::fstat(static_cast<int>(fd), &status) != 0 || !S_ISSOCK(status.st_mode)) {
            continue;
        }
        sockaddr_storage local{};
        socklen_t length = sizeof(local);
        if (::getsockname(static_cast<int>(fd), reinterpret_cast<sockaddr*>(&local), &length) != 0) {
            continue;
        }
        for (const auto& listener : listeners) {
            if (!belongsTo(local, listener)) {
                continue;
            }
            // A connection only stops sending: the peer reads to the end and closes from its
            // receive path, which ends our reading the same way. Stopping our reading too
            // would fail the peer's next write and close its pipe from the send path while
            // its receive callback may be running.
            int listening = 0;
            socklen_t size = sizeof(listening);
            ::getsockopt(static_cast<int>(fd), SOL_SOCKET, SO_ACCEPTCONN, &listening, &size);
            if (::shutdown(static_cast<int>(fd), listening != 0 ? SHUT_RDWR : SHUT_WR) == 0) {
                ++count;
            }
            break;
        }
    }
    ::closedir(descriptors);
    return count;
}

}  // namespace agent::nanomsgtransport
