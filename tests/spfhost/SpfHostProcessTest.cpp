// spf-host as a user runs it: its command line, and a run from start to SIGTERM.

#include "support/ChildProcess.h"
#include "support/WaitFor.h"

#include "agent/control/AgentRegistry.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <tuple>

namespace {

using testsupport::ChildProcess;
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

// A configuration folder that runs the demo services on the host's own exchange.
std::filesystem::path demoConfiguration() {
    const auto folder = std::filesystem::temp_directory_path() / ("spf-host-test-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "qz.spf.legacyservicepublisher~local.json") << R"({
        "config": {"endpointsToConnectTo": ["inprocess"]},
        "serviceConfigurations": [
            {"name": "demo.Calculator", "version": {"major": 1}, "requestedProperties": {}, "uniqueID": "calculator"},
            {"name": "demo.Text", "version": {"major": 1}, "requestedProperties": {}, "uniqueID": "text"}]})";
    return folder;
}

// The console's commands through --exec and through the control socket: results, and one line
// for each command that fails, with the exit status saying whether all succeeded. While the host
// runs, its exchange is in the agent registry; SIGTERM stops it cleanly and takes both away.
TEST(SpfHostProcessTest, ConsoleCommandsAnswerThroughExecAndTheControlSocketOfAHostThatStopsCleanlyOnSigterm) {
    const auto folder = demoConfiguration();
    const struct {
        const char* command;
        const char* answer;
    } rows[] = {
        {"wait demo.Calculator", "demo.Calculator 1.0.0.0 is published on inprocess"},
        {"wait demo.Text", "demo.Text 1.0.0.0 is published on inprocess"},
        {"describe demo.Calculator", "  divide (double, double) -> double"},
        {"call demo.Calculator add 2 40", "42\n"},
        {"call demo.Text words 'three small words'", "[\"three\",\"small\",\"words\"]"},
        {"call demo.Text length \"two words\"", "9\n"},
        {"call demo.Calculator sum [1,2,3] --timeout 2000", "6\n"},
        {"call demo.Calculator add long:1 long:2 --returns long", "3\n"},
        {"call demo.Calculator divide 1 0", "error: Division by zero"},
        {"call demo.Calculator add 1", "error: add takes 2 arguments (long, long) -> long, got 1"},
        {"call demo.Calculator add x 1", "error: Argument 1: not JSON: x"},
        {"call demo.Calculator add 1 2 --version 2", "error: No invokable named demo.Calculator of version 2"},
        {"call demo.Text upper 'open", "error: Unbalanced quotes"},
        {"bogus", "error: Unknown command bogus (try help)"},
        {"configs", "local  from /"},
        // add, sum, the typed add and divide reached the service; divide failed.
        {"status", "  demo.Calculator  1.0.0.0  inprocess  4      1         0"},
    };
    std::vector<std::string> arguments = {"--config-dir", folder.string(), "--no-listen", "--log-level", "error"};
    for (const auto& row : rows) {
        arguments.insert(arguments.end(), {"--exec", row.command});
    }
    ChildProcess scripted(SPF_HOST_PATH, arguments);
    const auto output = scripted.readRemainingStdout(soon());
    for (const auto& row : rows) {
        EXPECT_THAT(output, HasSubstr(row.answer)) << row.command;
    }
    EXPECT_THAT(output, HasSubstr("  inprocess  connected\n"));
    EXPECT_THAT(output, HasSubstr("  demo.Text 1 (local/text)  running on inprocess\n"));
    const auto status = scripted.waitForExit(soon());
    ASSERT_TRUE(status);
    EXPECT_EQ("exit status 1", ChildProcess::describe(*status)) << "some commands failed";

    // An endpoint with nothing behind it fails for good, and its service says why it does not run.
    const std::string nowhere = "ipc://" + (folder / "nowhere.ipc").string();
    std::ofstream(folder / "qz.spf.legacyservicepublisher~far.json") << R"({
        "config": {"endpointsToConnectTo": [")" << nowhere << R"("]},
        "serviceConfigurations": [
            {"name": "demo.Text", "version": {"major": 1}, "requestedProperties": {}, "uniqueID": "far"}]})";
    const auto control = (folder / "host.control").string();
    const auto registry = folder / "registry";
    const auto socket = "ipc://" + (folder / "host.ipc").string();
    ChildProcess host(SPF_HOST_PATH, {"--config-dir", folder.string(), "--control", control, "--log-level", "error",
                                      "--registry", registry.string(), "--name", "test-host", "--listen", socket});
    ASSERT_EQ("ready", host.readLine(soon()).value_or("(no line)"));
    const auto agents = agent::control::enumerateAllRunningAgents(registry, 0);
    ASSERT_EQ(1u, agents.size());
    EXPECT_EQ("test-host", agents[0].getName());
    EXPECT_EQ(socket, agents[0].getExchange());
    for (const auto& [command, answer, exitStatus] :
         {std::make_tuple(std::vector<std::string>{"wait", "demo.Text"}, "is published", 0),
          std::make_tuple(std::vector<std::string>{"call", "demo.Text", "upper", "\"two words\""}, "\"TWO WORDS\"", 0),
          std::make_tuple(std::vector<std::string>{"call", "nothing", "x"}, "error: No invokable named nothing", 1)}) {
        std::vector<std::string> ctl = {"ctl", "--control", control};
        ctl.insert(ctl.end(), command.begin(), command.end());
        ChildProcess client(SPF_HOST_PATH, ctl);
        EXPECT_THAT(client.readRemainingStdout(soon()), HasSubstr(answer));
        const auto clientStatus = client.waitForExit(soon());
        ASSERT_TRUE(clientStatus);
        EXPECT_EQ(ChildProcess::describe(exitStatus << 8), ChildProcess::describe(*clientStatus));
    }
    std::string report;
    EXPECT_TRUE(testsupport::WaitFor(
        [&] {
            ChildProcess client(SPF_HOST_PATH, {"ctl", "--control", control, "status"});
            report = client.readRemainingStdout(soon());
            client.waitForExit(soon());
            return report.find("  " + nowhere + "  failed for good  (") != std::string::npos;
        },
        std::chrono::seconds(30)))
        << report;
    EXPECT_THAT(report, HasSubstr("  demo.Text 1 (far/far)\n    not running on " + nowhere + ": not connected\n"));
    EXPECT_EQ(std::filesystem::perms::owner_all,
              std::filesystem::status(control).permissions() & std::filesystem::perms::all) << "owner only";
    host.signal(SIGTERM);
    const auto hostStatus = host.waitForExit(soon());
    ASSERT_TRUE(hostStatus);
    EXPECT_EQ("exit status 0", ChildProcess::describe(*hostStatus));
    EXPECT_FALSE(std::filesystem::exists(control));
    EXPECT_TRUE(agent::control::enumerateAllRunningAgents(registry, 0).empty());
    std::filesystem::remove_all(folder);
}

}  // namespace
