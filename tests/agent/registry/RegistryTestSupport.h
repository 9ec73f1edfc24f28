#pragma once

#include "agent/TemporaryFolder.h"
#include "support/Barrier.h"
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

extern char** environ;

namespace agent::control::testing {

using agent::testing::TemporaryFolder;

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
