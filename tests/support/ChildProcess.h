#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace testsupport {

// A program run as a child process for a test: started with posix_spawn, its stdout read
// through a pipe line by line, its stderr inherited (so its log lands in the test's
// output) or captured. Every wait takes a deadline, so a child that misbehaves fails the
// test instead of hanging it.
//
// The child starts with no signal blocked and default dispositions, whatever the test
// process has; the pipes are close-on-exec, so no other child inherits them (a sibling
// holding a write end would hide the end of this child's output).
//
// One thread at a time (a test's). The destructor kills (SIGKILL) and reaps a child that
// is still running.
class ChildProcess {
public:
    using Clock = std::chrono::steady_clock;
    enum class Stderr { Inherit, Capture };

    // Throws std::runtime_error("Cannot start <program>: <reason>").
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                 Stderr stderrMode = Stderr::Inherit);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const noexcept { return pid_; }

    // The next line of its stdout without the newline; what is left of an unterminated
    // last line at the end of output; none at the end of output or when the deadline
    // passes first.
    std::optional<std::string> readLine(Clock::time_point deadline);
    // The rest of its stdout, or of its captured stderr (empty when not captured), up to
    // the end of output or the deadline.
    std::string readRemainingStdout(Clock::time_point deadline);
    std::string readRemainingStderr(Clock::time_point deadline);

    // Sends `number` to the child; nothing once it has been reaped.
    void signal(int number);
    // Its wait status (see describe) once it has ended, none if it is still running at
    // the deadline. Reaps it; later calls return the same status.
    std::optional<int> waitForExit(Clock::time_point deadline);
    bool hasExited() const noexcept { return status_.has_value(); }

    // "exit status 0", "killed by signal 9".
    static std::string describe(int status);

private:
    // Reads what `fd` has into `buffer` until `enough` holds, the output ends or the
    // deadline passes; returns whether the output ended.
    template <class Enough>
    bool fill(int& fd, std::string& buffer, Clock::time_point deadline, Enough enough);

    pid_t pid_ = -1;
    std::optional<int> status_;
    int stdout_ = -1;
    int stderr_ = -1;
    std::string stdoutBuffer_;
    std::string stderrBuffer_;
};

// The children of one kind a test starts and expects to end cleanly: each must say what it
// should on its first line, and endAll() sends SIGTERM to each still running and expects it to
// exit 0 in time. A child that hangs on the way out, crashes, or has a sanitizer report (which
// makes its exit status non-zero) fails the test. One thread at a time.
class ChildProcesses {
public:
    // Starts `program` and returns it with its first line, which must begin with `first`.
    // Throws std::runtime_error("<program> said '<line>'") otherwise.
    std::pair<ChildProcess*, std::string> start(const std::string& program, const std::vector<std::string>& arguments,
                                                const std::string& first);
    ChildProcess& at(std::size_t index) { return *children_.at(index); }
    ChildProcess& back() { return *children_.back(); }
    // Ends every child still running as described above, then forgets them all.
    void endAll(ChildProcess::Clock::time_point deadline);

private:
    std::vector<std::unique_ptr<ChildProcess>> children_;
};

}  // namespace testsupport
