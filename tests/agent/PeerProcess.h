#pragma once

// Child processes for the multi-process tests: agent_test_peer (peer/AgentTestPeer.cpp)
// in one of its modes.

#include "AgentTestSupport.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace agent::testing {

// A child process running agent_test_peer, talking to us through its stdin and stdout.
// Closing its stdin ends it; the destructor kills it if it lingers.
class PeerProcess {
public:
    explicit PeerProcess(const std::vector<std::string>& arguments) {
        int toChild[2];
        int fromChild[2];
        // Close-on-exec: a later child must not hold this one's input open.
        if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe failed");
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, toChild[1]);
        posix_spawn_file_actions_addclose(&actions, fromChild[0]);
        std::vector<std::string> all{AGENT_TEST_PEER};
        all.insert(all.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& argument : all) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const int rv = posix_spawn(&pid_, AGENT_TEST_PEER, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(toChild[0]);
        ::close(fromChild[1]);
        stdin_ = toChild[1];
        stdout_ = fromChild[0];
        if (rv != 0) {
            throw std::runtime_error("posix_spawn failed");
        }
    }
    ~PeerProcess() {
        signal(SIGCONT);
        closeInput();
        if (!exited(deadline(5s))) {
            signal(SIGKILL);
            exited(deadline(5s));
        }
        ::close(stdout_);
    }

    // The next line of its output, or "" at the deadline or end of output.
    std::string readLine(Clock::time_point until = deadline()) {
        std::string line;
        while (Clock::now() < until) {
            pollfd readable{stdout_, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now());
            if (::poll(&readable, 1, static_cast<int>(std::max<long>(left.count(), 1))) <= 0) {
                continue;
            }
            char c;
            if (::read(stdout_, &c, 1) != 1) {
                return line;
            }
            if (c == '\n') {
                return line;
            }
            line += c;
        }
        return line;
    }
    // Ends it the orderly way (each mode's own shutdown runs). Idempotent.
    void closeInput() {
        if (stdin_ >= 0) {
            ::close(stdin_);
            stdin_ = -1;
        }
    }
    void signal(int number) {
        if (pid_ > 0) {
            ::kill(pid_, number);
        }
    }
    bool exited(Clock::time_point until) {
        if (pid_ <= 0) {
            return true;
        }
        while (Clock::now() < until) {
            if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                pid_ = -1;
                return true;
            }
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }

private:
    pid_t pid_ = -1;
    int stdin_ = -1;
    int stdout_ = -1;
};

}  // namespace agent::testing
