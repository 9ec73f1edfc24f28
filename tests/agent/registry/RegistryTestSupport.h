#pragma once

#include "support/Barrier.h"
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

extern char** environ;

namespace agent::control::testing {

// A fresh, empty folder for one test, removed with everything in it afterwards.
class ScratchFolder {
public:
    ScratchFolder() {
        static std::atomic<int> counter{0};
        path_ = std::filesystem::temp_directory_path() /
                ("agent-registry-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~ScratchFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

inline void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    ASSERT_TRUE(out.good()) << path;
}

// The process ID of a process that ran /bin/true and has been reaped: nobody owns it
// until the kernel hands it out again, which takes a full turn of the PID space.
inline pid_t deadProcessID() {
    pid_t pid = 0;
    char program[] = "/bin/true";
    char* argv[] = {program, nullptr};
    EXPECT_EQ(::posix_spawn(&pid, program, nullptr, nullptr, argv, environ), 0);
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    return pid;
}

// Sets or unsets an environment variable for one scope and puts the old value back.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
            hadOld_ = true;
        }
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        if (hadOld_) {
            ::setenv(name_.c_str(), old_.c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name_;
    std::string old_;
    bool hadOld_ = false;
};

}  // namespace agent::control::testing
