#pragma once

#include "Console.h"

#include <filesystem>
#include <string>
#include <thread>

namespace spfhost {

// The host's local control socket: a Unix stream socket, readable and writable by its owner
// only, on which `spf-host ctl` sends one command line per connection. The answer is one byte,
// '0' when the command succeeded and '1' when it failed, then the command's output. Commands
// run one after the other, on a thread of the socket's own, from construction to destruction.
class ControlSocket {
public:
    // Throws std::runtime_error("Another host answers at <path>") when a live socket is there,
    // or naming the step that failed ("Cannot bind the control socket <path>: <reason>").
    ControlSocket(std::filesystem::path path, const Console& console);
    // Stops taking commands (one that runs is finished first) and removes the socket file.
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    const std::filesystem::path& path() const noexcept { return path_; }

    // The client's side: sends `command` to the host at `path`, writes its output to `out` and
    // returns whether it succeeded. Throws std::runtime_error("No host answers at <path>: <reason>").
    static bool send(const std::filesystem::path& path, const std::string& command, std::ostream& out);

private:
    void serve();
    void answer(int connection);

    const std::filesystem::path path_;
    const Console& console_;
    int listening_ = -1;
    int wake_[2] = {-1, -1};  // written to once, to end serve()
    std::thread thread_;
};

}  // namespace spfhost
