#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

extern char** environ;

namespace testsupport {

namespace {

void closeFd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           Stderr stderrMode) {
    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    if (::pipe2(out, O_CLOEXEC) != 0 || (stderrMode == Stderr::Capture && ::pipe2(err, O_CLOEXEC) != 0)) {
        const std::string reason = std::strerror(errno);
        closeFd(out[0]);
        closeFd(out[1]);
        throw std::runtime_error("Cannot start " + program + ": " + reason);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // dup2 clears close-on-exec on the copy, so only the child's own stdout/stderr survive exec.
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    if (stderrMode == Stderr::Capture) posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int number : {SIGINT, SIGTERM, SIGPIPE, SIGCHLD}) sigaddset(&defaults, number);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> all{program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& argument : all) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const int rv = ::posix_spawn(&pid_, program.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    closeFd(out[1]);
    closeFd(err[1]);
    stdout_ = out[0];
    stderr_ = err[0];
    if (rv != 0) {
        pid_ = -1;
        closeFd(stdout_);
        closeFd(stderr_);
        throw std::runtime_error("Cannot start " + program + ": " + std::strerror(rv));
    }
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0 && !status_) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
    closeFd(stdout_);
    closeFd(stderr_);
}

template <class Enough>
bool ChildProcess::fill(int& fd, std::string& buffer, Clock::time_point deadline, Enough enough) {
    while (fd >= 0 && !enough()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        pollfd readable{fd, POLLIN, 0};
        const int ready = ::poll(&readable, 1, static_cast<int>(left));
        if (ready < 0 && errno != EINTR) closeFd(fd);
        if (ready <= 0) continue;
        char chunk[4096];
        const ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got > 0) {
            buffer.append(chunk, static_cast<std::size_t>(got));
        } else if (got == 0 || errno != EINTR) {
            closeFd(fd);
        }
    }
    return fd < 0;
}

std::optional<std::string> ChildProcess::readLine(Clock::time_point deadline) {
    fill(stdout_, stdoutBuffer_, deadline, [&] { return stdoutBuffer_.find('\n') != std::string::npos; });
    const auto newline = stdoutBuffer_.find('\n');
    if (newline != std::string::npos) {
        std::string line = stdoutBuffer_.substr(0, newline);
        stdoutBuffer_.erase(0, newline + 1);
        return line;
    }
    return stdout_ < 0 && !stdoutBuffer_.empty() ? std::optional(std::exchange(stdoutBuffer_, {})) : std::nullopt;
}

std::string ChildProcess::readRemainingStdout(Clock::time_point deadline) {
    fill(stdout_, stdoutBuffer_, deadline, [] { return false; });
    return std::exchange(stdoutBuffer_, {});
}

std::string ChildProcess::readRemainingStderr(Clock::time_point deadline) {
    fill(stderr_, stderrBuffer_, deadline, [] { return false; });
    return std::exchange(stderrBuffer_, {});
}

void ChildProcess::signal(int number) {
    if (pid_ > 0 && !status_) ::kill(pid_, number);
}

std::optional<int> ChildProcess::waitForExit(Clock::time_point deadline) {
    // waitpid has no timeout; a child's end has no other signal that is cheap to wait on.
    while (pid_ > 0 && !status_) {
        int status = 0;
        const pid_t reaped = ::waitpid(pid_, &status, WNOHANG);
        if (reaped == pid_) {
            status_ = status;
        } else if (reaped < 0 && errno != EINTR) {
            throw std::runtime_error(std::string("waitpid failed: ") + std::strerror(errno));
        } else if (Clock::now() >= deadline) {
            break;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }
    return status_;
}

std::string ChildProcess::describe(int status) {
    return WIFEXITED(status)     ? "exit status " + std::to_string(WEXITSTATUS(status))
           : WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status))
                                 : "wait status " + std::to_string(status);
}

std::pair<ChildProcess*, std::string> ChildProcesses::start(const std::string& program,
                                                            const std::vector<std::string>& arguments,
                                                            const std::string& first) {
    auto& child = children_.emplace_back(std::make_unique<ChildProcess>(program, arguments));
    const auto line = child->readLine(ChildProcess::Clock::now() + std::chrono::seconds(20));
    if (!line || line->rfind(first, 0) != 0) {
        throw std::runtime_error(program + " said '" + line.value_or("<nothing>") + "'");
    }
    return {child.get(), *line};
}

void ChildProcesses::endAll(ChildProcess::Clock::time_point deadline) {
    for (auto& child : children_) {
        if (!child->hasExited()) {
            child->signal(SIGTERM);
            const auto status = child->waitForExit(deadline);
            if (!status) {
                ADD_FAILURE() << "child " << child->pid() << " did not end on SIGTERM";
                continue;
            }
            EXPECT_EQ(ChildProcess::describe(*status), "exit status 0") << "child " << child->pid();
        }
    }
    children_.clear();
}

}  // namespace testsupport
