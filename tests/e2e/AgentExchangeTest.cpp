// agent-exchange as a process: its registry entry, and how it starts and stops.

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
