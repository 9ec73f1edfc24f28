#pragma once

// A child process running agent_test_peer (peer/AgentTestPeer.cpp), for the tests that need a
// peer in another process.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

extern char** environ;

namespace agent::testing {

// Reads the child's standard output; the destructor kills it and waits for it.
class PeerProcess {
public:
    explicit PeerProcess(std::vector<std::string> arguments) {
        int fromChild[2];
        if (::pipe2(fromChild, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe failed");
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
        arguments.insert(arguments.begin(), AGENT_TEST_PEER);
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        pid_t pid = -1;
        const int rv = posix_spawn(&pid, AGENT_TEST_PEER, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(fromChild[1]);
        output_ = ::fdopen(fromChild[0], "r");
        if (rv != 0) {
            std::fclose(output_);
            throw std::runtime_error("posix_spawn failed");
        }
        pid_ = pid;
    }
    ~PeerProcess() {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        std::fclose(output_);
    }

    // Its next line of output, without the newline; "" at the end. Blocks until then (the
    // test's timeout ends a child that never writes).
    std::string readLine() {
        char line[256];
        std::string text = std::fgets(line, sizeof line, output_) != nullptr ? line : "";
        if (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        return text;
    }

private:
    pid_t pid_ = -1;
    std::FILE* output_ = nullptr;
};

}  // namespace agent::testing
