// agent-exchange as a process: its registry entry, and how it starts and stops.

#include "ProcessFixture.h"

#include "agent/control/AgentRegistry.h"

#include <gmock/gmock.h>

#include <string.h>
#include <unistd.h>

#include <fstream>

namespace e2e {
namespace {

using agent::directory::DirectoryServiceClient;
using ::testing::HasSubstr;

const auto kDirectoryInstance =
    agent::core::transport::getWellKnowAddressFor(agent::core::transport::WellKnownAddressName::Directory).getUUID();

std::size_t registryFiles(const std::string& root, pid_t pid) {
    std::size_t files = 0;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(root, ignored)) {
        files += entry.path().filename().string().rfind("agent-" + std::to_string(pid) + "-", 0) == 0;
    }
    return files;
}

class AgentExchangeTest : public ProcessFixture {};

// Each program that cannot start says why on stderr and exits 1; no registry entry is left.
TEST_F(AgentExchangeTest, ProgramsThatCannotStartSayWhyAndExitOneLeavingNoRegistryEntry) {
    std::ofstream(folder_ + "/occupied") << "a file where the registry folder would go";
    const std::string missing = "ipc://" + folder_ + "/missing/folder.sock";
    const std::tuple<std::string, std::vector<std::string>, std::string> rows[] = {
        {AGENT_EXCHANGE_PATH, {"--name", "a", "--endpoint", missing, "--registry", registry()},
         "agent-exchange: Cannot listen on " + missing},
        {AGENT_EXCHANGE_PATH, {"--name", "a", "--endpoint", endpoint(), "--registry", folder_ + "/occupied"},
         "agent-exchange: Cannot create the agent registry folder " + folder_ + "/occupied"},
        {LEGACY_AGENT_PATH, {"--exchange", endpoint("nobody")}, endpoint("nobody")},
    };
    for (const auto& [program, arguments, says] : rows) {
        const auto [status, out, err] = runToEnd(program, arguments);
        EXPECT_EQ(ChildProcess::describe(status), "exit status 1") << says;
        EXPECT_EQ(out, "");
        EXPECT_THAT(err, HasSubstr(std::filesystem::path(program).filename().string() + ": "));
        EXPECT_THAT(err, HasSubstr(says));
    }
    EXPECT_TRUE(agent::control::enumerateAllRunningAgents(registry(), 0).empty());
}

// The registry lists the running exchange under its resolved url (tcp port 0), where containers
// reach it. An entry whose process has died is skipped by the registry itself (agent registry
// suite); the publisher's exchange-process suite finds ipc:// exchanges through either mode's registry.
TEST_F(AgentExchangeTest, RegistryListsTheRunningExchangeAtItsResolvedUrl) {
    const auto url = startExchange("e2e-live", "tcp://127.0.0.1:0", {"--mode", "desktopservices"});
    EXPECT_THAT(url, ::testing::MatchesRegex("tcp://127\\.0\\.0\\.1:[1-9][0-9]*"));
    const auto agents = agent::control::enumerateAllRunningAgents(registry(), 2);
    ASSERT_EQ(agents.size(), 1u);
    EXPECT_EQ(agents[0].getName(), "e2e-live");
    EXPECT_EQ(agents[0].getExchange(), url);
    EXPECT_EQ(agents[0].getProcessID(), exchange(0).pid());
    EXPECT_EQ(agents[0].getMode(), agent::control::AgentMode::DesktopServices);
    EXPECT_EQ(client(url).queryDirectoryForServiceUUIDs("*"), std::vector<boost::uuids::uuid>{kDirectoryInstance});
}

// SIGTERM or SIGINT: subscribers hear the directory stop, the entry goes (and no other file is
// left in the registry folder the exchange created), the exit status is 0.
TEST_F(AgentExchangeTest, SignalledExchangeTellsSubscribersTheDirectoryStoppedThenLeavesTheRegistryAndExitsZero) {
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto url = startExchange("e2e", endpoint(std::to_string(signal)));
        auto& log = subscribe(url, DirectoryServiceClient::OnlyNewChanges);
        const pid_t pid = exchange(signal == SIGTERM ? 0 : 1).pid();
        ASSERT_EQ(registryFiles(registry(), pid), 1u);
        exchange(signal == SIGTERM ? 0 : 1).signal(signal);
        const auto entries = log.waitFor(0, "stopped directory");
        ASSERT_FALSE(entries.empty()) << ::strsignal(signal);
        EXPECT_EQ(entries.back().instance, kDirectoryInstance);
        const auto status = exchange(signal == SIGTERM ? 0 : 1).waitForExit(deadline());
        ASSERT_TRUE(status);
        EXPECT_EQ(ChildProcess::describe(*status), "exit status 0");
        EXPECT_EQ(registryFiles(registry(), pid), 0u);
        endClient();
    }
    EXPECT_TRUE(agent::control::enumerateAllRunningAgents(registry(), 0).empty());
    EXPECT_TRUE(std::filesystem::is_empty(registry())) << "only the entries themselves were ever written";
}

}  // namespace
}  // namespace e2e
