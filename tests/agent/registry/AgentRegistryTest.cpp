#include "support/Thrown.h"
#include "agent/control/AgentRegistration.h"
#include "agent/control/AgentRegistry.h"

#include "agent/TemporaryFolder.h"
#include "support/Barrier.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <memory>
#include <vector>

extern char** environ;

namespace agent::control {
namespace {

using agent::testing::TemporaryFolder;

void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    ASSERT_TRUE(out.good()) << path;
}

// The process ID of a process that ran /bin/true and has been reaped: nobody owns it
// until the kernel hands it out again, which takes a full turn of the PID space.
pid_t deadProcessID() {
    pid_t pid = 0;
    char program[] = "/bin/true";
    char* argv[] = {program, nullptr};
    EXPECT_EQ(::posix_spawn(&pid, program, nullptr, nullptr, argv, environ), 0);
    int status = 0;
    EXPECT_EQ(::waitpid(pid, &status, 0), pid);
    return pid;
}

// A record file as another writer would leave it.
std::string record(const std::string& name, pid_t pid, long long registered) {
    return R"({"formatVersion":1,"name":")" + name + R"(","exchange":"ipc:///tmp/)" + name +
           R"(","processID":)" + std::to_string(pid) + R"(,"mode":"korvexdrive","registered":)" +
           std::to_string(registered) + "}";
}

std::vector<std::string> names(const std::vector<AgentInfo>& agents) {
    std::vector<std::string> result;
    for (const auto& agent : agents) {
        result.push_back(agent.getName());
    }
    return result;
}

// Captures the registry's log lines, and keeps stderr quiet while a test provokes warnings.
class AgentRegistryTest : public ::testing::Test {
protected:
    void SetUp() override {
        foundation::log::removeSink(foundation::log::defaultStderrSink());
        foundation::log::addSink(log_);
    }
    void TearDown() override {
        foundation::log::removeSink(log_);
        foundation::log::addSink(foundation::log::defaultStderrSink());
    }

    std::size_t skipped() const {
        return log_->count([](const foundation::log::record& r) {
            return r.text.find("Skipping the agent registry file") != std::string::npos;
        });
    }

    TemporaryFolder scratch_;
    std::shared_ptr<foundation::log::capture_sink> log_ = std::make_shared<foundation::log::capture_sink>("agent::control");
};

// Process 1 always exists; a process not ours answers kill(pid, 0) with EPERM unless we are
// root, and either answer means it runs. An entry whose process is gone is removed.
TEST_F(AgentRegistryTest, OldestRegistrationComesFirstThenFileNameAnotherUsersProcessCountsAndADeadOneGoes) {
    const auto self = ::getpid();
    writeFile(scratch_.path() / "agent-c.json", record("newest", self, 300));
    writeFile(scratch_.path() / "agent-b.json", record("tie-b", self, 200));
    writeFile(scratch_.path() / "agent-a.json", record("tie-a", self, 200));
    writeFile(scratch_.path() / "agent-z.json", record("oldest", self, 100));
    writeFile(scratch_.path() / "agent-init.json", record("init", 1, 150));
    const pid_t dead = deadProcessID();
    writeFile(scratch_.path() / "agent-dead.json", record("dead", dead, 50));
    EXPECT_EQ(names(enumerateAllRunningAgents(scratch_.path(), 0)),
              (std::vector<std::string>{"oldest", "init", "tie-a", "tie-b", "newest"}));
    EXPECT_FALSE(std::filesystem::exists(scratch_.path() / "agent-dead.json")) << "a dead process's entry stays";
    EXPECT_TRUE(log_->contains("whose process " + std::to_string(dead) + " is gone"));
}

TEST_F(AgentRegistryTest, JunkInTheRootIsSkippedAndReportedAndAMissingRootListsNothingQuietly) {
    const auto self = ::getpid();
    const auto root = scratch_.path();
    writeFile(root / "plain-file", "x");
    for (const auto& nothing : {root, root / "absent", std::filesystem::path(), root / "plain-file"}) {
        EXPECT_TRUE(enumerateAllRunningAgents(nothing, 3).empty()) << nothing;  // and quietly
    }
    EXPECT_TRUE(log_->records().empty());
    writeFile(root / "agent-good.json", record("good", self, 1));
    writeFile(root / "agent-corrupt.json", R"({"formatVersion":1,"name":)");
    writeFile(root / "agent-empty.json", "");
    writeFile(root / "agent-huge.json", std::string(64 * 1024 + 1, ' '));
    std::filesystem::create_directory(root / "agent-folder.json");
    std::filesystem::create_symlink(root / "agent-good.json", root / "agent-link.json");
    ASSERT_EQ(::mkfifo((root / "agent-fifo.json").c_str(), 0600), 0);
    // Not registry files by name: never opened, so never reported.
    writeFile(root / "README.txt", record("foreign", self, 1));
    writeFile(root / ".agent-hidden.json", record("hidden", self, 1));
    std::filesystem::create_directory(root / "subfolder");
    writeFile(root / "subfolder" / "agent-deeper.json", record("deeper", self, 1));

    EXPECT_EQ(names(enumerateAllRunningAgents(root, 1)), std::vector<std::string>{"good"});
    const std::pair<const char*, const char*> skips[] = {
        {"agent-corrupt.json", "Agent record is not valid JSON"}, {"agent-empty.json", "Agent record is not valid JSON"},
        {"agent-huge.json", "it is larger than 65536 bytes"},     {"agent-folder.json", "it is not a regular file"},
        {"agent-link.json", "it is a symbolic link"},             {"agent-fifo.json", "it is not a regular file"},
    };
    for (const auto& [file, reason] : skips) {
        EXPECT_TRUE(log_->contains("Skipping the agent registry file " + (root / file).string() + ": " + reason)) << file;
    }
    EXPECT_EQ(skipped(), 6u);  // each once
    // Junk is reported, never deleted: only entries of dead processes are.
    EXPECT_TRUE(std::filesystem::exists(root / "agent-corrupt.json"));
}

TEST_F(AgentRegistryTest, RegistrationRefusesIncompleteInfo) {
    struct Row {
        AgentInfo info;
        const char* error;
    };
    const Row rows[] = {
        {AgentInfo("", "inproc://x", ::getpid(), AgentMode::KorvexDrive), "Agent needs a name"},
        {AgentInfo("x", "", ::getpid(), AgentMode::KorvexDrive), "Agent needs an exchange"},
        {AgentInfo("x", "inproc://x", 0, AgentMode::KorvexDrive), "Agent needs a positive process ID"},
        {AgentInfo("x", "inproc://x", -3, AgentMode::KorvexDrive), "Agent needs a positive process ID"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(testsupport::ThrownText<std::invalid_argument>(
                      [&] { AgentRegistration registration(scratch_.path(), row.info); }),
                  row.error);
    }
    EXPECT_TRUE(std::filesystem::is_empty(scratch_.path()));
}

TEST_F(AgentRegistryTest, ReadersNeverSeeAPartEntryWhileAgentsComeAndGo) {
    constexpr int kWriters = 4;
    constexpr int kReaders = 4;
    constexpr int kRounds = 100;
    std::atomic<int> writersDone{0};
    std::atomic<std::size_t> maxListed{0};
    testsupport::RunConcurrently(kWriters + kReaders, [&](int t) {
        if (t < kWriters) {
            for (int round = 0; round < kRounds; ++round) {
                AgentRegistration registration(
                    scratch_.path(), AgentInfo("writer-" + std::to_string(t), "inproc://w", ::getpid(), AgentMode::KorvexDrive));
            }
            ++writersDone;
            return;
        }
        while (writersDone.load() < kWriters) {
            const auto listed = enumerateAllRunningAgents(scratch_.path(), 0);
            std::size_t seen = listed.size();
            for (const auto& agent : listed) {
                EXPECT_EQ(agent.getName().rfind("writer-", 0), 0u);
                EXPECT_EQ(agent.getProcessID(), ::getpid());
            }
            auto previous = maxListed.load();
            while (seen > previous && !maxListed.compare_exchange_weak(previous, seen)) {
            }
        }
    });
    EXPECT_EQ(skipped(), 0u);
    EXPECT_LE(maxListed.load(), static_cast<std::size_t>(kWriters));
    EXPECT_TRUE(std::filesystem::is_empty(scratch_.path()));
}

}  // namespace
}  // namespace agent::control
