// agent-exchange as a process: its command line, its registry entry, and how it stops.

#include "ProcessFixture.h"

#include "agent/control/AgentRegistry.h"

#include <gmock/gmock.h>

#include <unistd.h>

#include <fstream>

namespace e2e {
namespace {

using agent::directory::DirectoryServiceClient;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const auto kDirectoryInstance =
    agent::core::transport::getWellKnowAddressFor(agent::core::transport::WellKnownAddressName::Directory).getUUID();

// Runs a program to its end and returns {wait status, stdout, stderr}.
std::tuple<int, std::string, std::string> runToEnd(const std::string& program,
                                                   const std::vector<std::string>& arguments) {
    ChildProcess child(program, arguments, ChildProcess::Stderr::Capture);
    auto out = child.readRemainingStdout(deadline());
    auto err = child.readRemainingStderr(deadline());
    const auto status = child.waitForExit(deadline());
    return {status.value_or(-1), out, err};
}

std::vector<std::filesystem::path> registryFiles(const std::string& root, pid_t pid) {
    std::vector<std::filesystem::path> files;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(root, ignored)) {
        if (entry.path().filename().string().rfind("agent-" + std::to_string(pid) + "-", 0) == 0) {
            files.push_back(entry.path());
        }
    }
    return files;
}

class AgentExchangeCommandLineTest : public ::testing::TestWithParam<CommandLine> {};

TEST_P(AgentExchangeCommandLineTest, BadCommandLineGetsItsErrorAndTheUsageOnStderrAndExitStatusTwo) {
    const auto [status, out, err] = runToEnd(AGENT_EXCHANGE_PATH, GetParam().arguments);
    EXPECT_EQ(ChildProcess::describe(status), "exit status 2");
    EXPECT_EQ(out, "");
    EXPECT_EQ(err.substr(0, err.find('\n')), "agent-exchange: " + GetParam().firstErrorLine);
    EXPECT_THAT(err, HasSubstr("\nusage: agent-exchange --name N --endpoint URL"));
}

const std::string kIpc = "ipc:///tmp/never-used.sock";

INSTANTIATE_TEST_SUITE_P(
    Refusals, AgentExchangeCommandLineTest,
    ::testing::Values(
        CommandLine{{}, "Option --name is required"},
        CommandLine{{"--name", "a"}, "Option --endpoint is required"},
        CommandLine{{"--endpoint", kIpc}, "Option --name is required"},
        CommandLine{{"--name"}, "Option --name needs a value"},
        CommandLine{{"--name=", "--endpoint", kIpc}, "Option --name needs a value"},
        CommandLine{{"--name", "--endpoint", kIpc}, "Option --name needs a value"},
        CommandLine{{"--name", "a", "--endpoint", kIpc, "--registry"}, "Option --registry needs a value"},
        CommandLine{{"--name", "a", "--name=b", "--endpoint", kIpc}, "Option --name is given twice"},
        CommandLine{{"--name", "a", "--endpoint", kIpc, "--registry", "/x", "--registry", "/y"},
                    "Option --registry is given twice"},
        CommandLine{{"--name", "a", "--endpoint", kIpc, "--verbose"}, "Unknown option '--verbose'"},
        CommandLine{{"--name", "a", "--endpoint", kIpc, "-v"}, "Unexpected argument '-v'"},
        CommandLine{{"--name", "a", "stray"}, "Unexpected argument 'stray'"},
        CommandLine{{"--name", "a", "--endpoint", "inproc://x"},
                    "Endpoint 'inproc://x' is not an ipc:// or tcp:// URL"},
        CommandLine{{"--name", "a", "--endpoint", "/tmp/x.sock"},
                    "Endpoint '/tmp/x.sock' is not an ipc:// or tcp:// URL"},
        CommandLine{{"--name", "a", "--endpoint", kIpc, "--mode", "KorvexDrive"},
                    "Unknown mode 'KorvexDrive' (use korvexdrive or desktopservices)"}));

TEST(AgentExchangeHelpTest, HelpDocumentsEveryOptionOnStdoutAndExitsZero) {
    for (const auto& flag : {"--help", "-h"}) {
        const auto [status, out, err] = runToEnd(AGENT_EXCHANGE_PATH, {"--name", "a", flag, "--bogus"});
        EXPECT_EQ(ChildProcess::describe(status), "exit status 0") << flag;
        EXPECT_EQ(err, "") << flag;
        EXPECT_THAT(out, StartsWith("usage: agent-exchange")) << flag;
        for (const auto& option : {"--name N", "--endpoint URL", "--mode M", "--registry DIR", "-h, --help"}) {
            EXPECT_THAT(out, HasSubstr("  " + std::string(option))) << flag;
        }
    }
}

class AgentExchangeTest : public ProcessFixture {};

TEST_F(AgentExchangeTest, ExchangeThatCannotStartSaysWhyAndExitsOneLeavingNoRegistryEntry) {
    std::ofstream(folder_ + "/occupied") << "a file where the registry folder would go";
    const std::vector<std::vector<std::string>> cases{
        {"--name", "a", "--endpoint", "ipc://" + folder_ + "/missing/folder.sock", "--registry", registry()},
        {"--name", "a", "--endpoint", endpoint(), "--registry", folder_ + "/occupied"},
    };
    const std::vector<std::string> expected{
        "agent-exchange: Cannot listen on ipc://" + folder_ + "/missing/folder.sock",
        "agent-exchange: Cannot create the agent registry folder " + folder_ + "/occupied",
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto [status, out, err] = runToEnd(AGENT_EXCHANGE_PATH, cases[i]);
        EXPECT_EQ(ChildProcess::describe(status), "exit status 1") << expected[i];
        EXPECT_EQ(out, "");
        EXPECT_THAT(err, HasSubstr(expected[i]));
    }
    EXPECT_TRUE(agent::control::enumerateAllRunningAgents(registry(), 0).empty());
}

TEST_F(AgentExchangeTest, RegistryListsTheRunningExchangeAndSkipsOneThatWasKilled) {
    const auto url = startExchange("e2e-live", endpoint("live"), {"--mode", "desktopservices"});
    const auto doomedUrl = startExchange("e2e-doomed", endpoint("doomed"));
    const pid_t doomed = exchange(1).pid();
    ASSERT_EQ(registryFiles(registry(), doomed).size(), 1u);

    exchange(1).signal(SIGKILL);
    ASSERT_TRUE(exchange(1).waitForExit(deadline()));
    // It had no chance to clean up: its file stays until an enumeration finds it dead.
    EXPECT_EQ(registryFiles(registry(), doomed).size(), 1u);

    const auto agents = agent::control::enumerateAllRunningAgents(registry(), 2);
    ASSERT_EQ(agents.size(), 1u);
    EXPECT_EQ(agents[0].getName(), "e2e-live");
    EXPECT_EQ(agents[0].getExchange(), url);
    EXPECT_EQ(agents[0].getProcessID(), exchange(0).pid());
    EXPECT_EQ(agents[0].getMode(), agent::control::AgentMode::DesktopServices);
    EXPECT_NE(url, doomedUrl);
}

TEST_F(AgentExchangeTest, TcpPortZeroIsResolvedInTheOutputAndTheRegistry) {
    const auto url = startExchange("e2e-tcp", "tcp://127.0.0.1:0");
    EXPECT_THAT(url, StartsWith("tcp://127.0.0.1:"));
    EXPECT_NE(url, "tcp://127.0.0.1:0");
    const auto agents = agent::control::enumerateAllRunningAgents(registry(), 2);
    ASSERT_EQ(agents.size(), 1u);
    EXPECT_EQ(agents[0].getExchange(), url);
    // And containers reach it there.
    EXPECT_EQ(client(url).queryDirectoryForServiceUUIDs("*"), std::vector<boost::uuids::uuid>{kDirectoryInstance});
}

TEST_F(AgentExchangeTest, TerminatedExchangeTellsSubscribersTheDirectoryStoppedThenLeavesTheRegistryAndExitsZero) {
    const auto url = startExchange("e2e", endpoint());
    auto& log = subscribe(url, DirectoryServiceClient::OnlyNewChanges);
    const pid_t pid = exchange().pid();
    ASSERT_EQ(registryFiles(registry(), pid).size(), 1u);

    exchange().signal(SIGTERM);
    const auto stopped = log.waitFor(false, "directory", deadline());
    ASSERT_TRUE(stopped) << ::testing::PrintToString(log.summary());
    EXPECT_EQ(stopped->instance, kDirectoryInstance);
    const auto status = exchange().waitForExit(deadline());
    ASSERT_TRUE(status);
    EXPECT_EQ(ChildProcess::describe(*status), "exit status 0");
    EXPECT_TRUE(registryFiles(registry(), pid).empty());
    EXPECT_TRUE(agent::control::enumerateAllRunningAgents(registry(), 0).empty());
}

TEST_F(AgentExchangeTest, InterruptedExchangeStopsAsCleanlyAsATerminatedOne) {
    const auto url = startExchange("e2e", endpoint());
    auto& log = subscribe(url, DirectoryServiceClient::OnlyNewChanges);
    const pid_t pid = exchange().pid();
    exchange().signal(SIGINT);
    EXPECT_TRUE(log.waitFor(false, "directory", deadline()));
    const auto status = exchange().waitForExit(deadline());
    ASSERT_TRUE(status);
    EXPECT_EQ(ChildProcess::describe(*status), "exit status 0");
    EXPECT_TRUE(registryFiles(registry(), pid).empty());
}

}  // namespace
}  // namespace e2e
