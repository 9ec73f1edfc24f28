// spf-host as a user runs it: its command line, and a run from start to SIGTERM.

#include "ChildProcess.h"

#include "agent/control/AgentRegistry.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace {

using e2e::ChildProcess;
using ::testing::HasSubstr;

ChildProcess::Clock::time_point soon() {
    return ChildProcess::Clock::now() + std::chrono::seconds(30);
}

TEST(SpfHostProcessTest, ABadCommandLineEndsWithStatusTwoAndABadFolderWithOne) {
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* says;
    } rows[] = {
        {{"--bogus"}, 2, "--bogus"},
        {{"--log-level", "loud"}, 2, "loud"},
        {{"--config-dir"}, 2, "--config-dir"},
        {{"--bundles", "/nonexistent/bundles"}, 1, "Bundle folder /nonexistent/bundles does not exist"},
    };
    for (const auto& row : rows) {
        ChildProcess host(SPF_HOST_PATH, row.arguments, ChildProcess::Stderr::Capture);
        const auto status = host.waitForExit(soon());
        ASSERT_TRUE(status) << row.says;
        EXPECT_EQ(ChildProcess::describe(row.status << 8), ChildProcess::describe(*status)) << row.says;
        EXPECT_THAT(host.readRemainingStderr(soon()), HasSubstr(row.says));
    }
}

TEST(SpfHostProcessTest, ItAppliesItsConfigurationFolderAndStopsCleanlyOnSigterm) {
    const auto folder = std::filesystem::temp_directory_path() / ("spf-host-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "qz.spf.legacyservicepublisher~local.json")
        << R"({"config": {"endpointsToConnectTo": ["inprocess"]}, "serviceConfigurations": []})";

    const auto registry = folder / "registry";
    const auto socket = folder / "host.ipc";
    ChildProcess host(SPF_HOST_PATH,
                      {"--config-dir", folder.string(), "--log-level", "info", "--registry", registry.string(), "--name",
                       "test-host", "--listen", "ipc://" + socket.string()},
                      ChildProcess::Stderr::Capture);
    EXPECT_EQ("ready", host.readLine(soon()).value_or("(no line)"));
    // Other processes find the host's exchange in the registry while it runs.
    const auto agents = agent::control::enumerateAllRunningAgents(registry, 0);
    ASSERT_EQ(1u, agents.size());
    EXPECT_EQ("test-host", agents[0].getName());
    EXPECT_EQ("ipc://" + socket.string(), agents[0].getExchange());
    host.signal(SIGTERM);
    const auto status = host.waitForExit(soon());
    ASSERT_TRUE(status);
    EXPECT_EQ("exit status 0", ChildProcess::describe(*status));
    const auto log = host.readRemainingStderr(soon());
    EXPECT_THAT(log, HasSubstr("Creating configuration local"));
    EXPECT_THAT(log, HasSubstr("Stopping on Terminated"));
    EXPECT_TRUE(agent::control::enumerateAllRunningAgents(registry, 0).empty());
    std::filesystem::remove_all(folder);
}

}  // namespace
