// The command lines of agent-exchange and legacy-agent, run as processes: what --help
// prints, and what a bad command line gets.

#include "ProcessFixture.h"

#include <gmock/gmock.h>

#include <map>
#include <ostream>

namespace e2e {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// The first line of each program's help, which every refusal repeats.
const std::map<std::string, std::string> kUsage{
    {AGENT_EXCHANGE_PATH, "usage: agent-exchange --name N --endpoint URL [--mode M] [--registry DIR]\n"},
    {LEGACY_AGENT_PATH, "usage: legacy-agent --exchange URL [--name-prefix P]\n"}};

// A command line a program refuses, and the first line of its complaint.
struct Refusal {
    std::string program;
    std::vector<std::string> arguments;
    std::string firstErrorLine;
};

// Names a case in test listings by its command line.
void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << std::filesystem::path(refusal.program).filename().string();
    for (const auto& argument : refusal.arguments) {
        *out << " " << (argument.empty() ? "''" : argument);
    }
}

class CommandLineRefusalTest : public ::testing::TestWithParam<Refusal> {};

TEST_P(CommandLineRefusalTest, BadCommandLineGetsOneLineNamingTheFaultThenTheHelpOnStderrAndExitStatusTwo) {
    const auto& refusal = GetParam();
    const auto [status, out, err] = runToEnd(refusal.program, refusal.arguments);
    EXPECT_EQ(ChildProcess::describe(status), "exit status 2");
    EXPECT_EQ(out, "");
    const auto program = std::filesystem::path(refusal.program).filename().string();
    EXPECT_EQ(err.substr(0, err.find('\n')), program + ": " + refusal.firstErrorLine);
    EXPECT_THAT(err, HasSubstr("\n\n" + kUsage.at(refusal.program)));
}

const std::string kIpc = "ipc:///tmp/never-used.sock";
const std::string kExchange = AGENT_EXCHANGE_PATH;
const std::string kAgent = LEGACY_AGENT_PATH;

INSTANTIATE_TEST_SUITE_P(
    Refusals, CommandLineRefusalTest,
    ::testing::Values(
        Refusal{kExchange, {}, "Option --name is required"},
        Refusal{kExchange, {"--name", "a"}, "Option --endpoint is required"},
        Refusal{kExchange, {"--name"}, "Option --name needs a value"},
        Refusal{kExchange, {"--name=", "--endpoint", kIpc}, "Option --name needs a value"},
        Refusal{kAgent, {"--exchange", "--name-prefix", "p."}, "Option --exchange needs a value"},
        Refusal{kExchange, {"--name", "a", "--name=b", "--endpoint", kIpc}, "Option --name is given twice"},
        Refusal{kExchange, {"--name", "a", "--endpoint", kIpc, "--verbose=3"}, "Unknown option '--verbose'"},
        Refusal{kAgent, {"--exchange", kIpc, "--name"}, "Unknown option '--name'"},
        Refusal{kAgent, {"--exchange", kIpc, "-v"}, "Unexpected argument '-v'"},
        Refusal{kExchange, {"--name", "a", "stray"}, "Unexpected argument 'stray'"},
        Refusal{kExchange, {"--name", "a", "--endpoint", "/tmp/x.sock"},
                "Endpoint '/tmp/x.sock' is not an ipc:// or tcp:// URL"},
        Refusal{kExchange, {"--name", "a", "--endpoint", kIpc, "--mode", "KorvexDrive"},
                "Unknown mode 'KorvexDrive' (use korvexdrive or desktopservices)"},
        Refusal{kAgent, {"--exchange", "inproc://x"}, "Exchange 'inproc://x' is not an ipc:// or tcp:// URL"},
        Refusal{kAgent, {"--exchange", kIpc, "--name-prefix", "a*"}, "Name prefix must not hold '*'"}));

TEST(CommandLineHelpTest, HelpAnywhereDocumentsEveryOptionOnStdoutAndExitsZero) {
    const std::map<std::string, std::vector<std::string>> documented{
        {AGENT_EXCHANGE_PATH,
         {"\n  --name N          the agent's name in the registry (required)\n", "\n  --endpoint URL    ",
          "\n  --mode M          ", "\n  --registry DIR    ", "\n  -h, --help        show this text and exit\n",
          "\nExit status: 0 after a clean stop, 1 when it cannot start, 2 for a bad command line.\n"}},
        {LEGACY_AGENT_PATH,
         {"\n  --exchange URL     the exchange to dial: ipc://<path> or tcp://<host>:<port> (required)\n",
          "\n  --name-prefix P    ", "\n  -h, --help         ", "put(string key, string value)",
          "keys() -> array<string>", "millisecondsSinceEpoch() -> long", "<P>RawEcho        echo"}}};
    for (const auto& [program, texts] : documented) {
        for (const auto& flag : {"--help", "-h"}) {
            const auto [status, out, err] = runToEnd(program, {"--exchange", kIpc, flag, "--bogus"});
            EXPECT_EQ(ChildProcess::describe(status), "exit status 0") << program << " " << flag;
            EXPECT_EQ(err, "") << program << " " << flag;
            EXPECT_THAT(out, StartsWith(kUsage.at(program)));
            for (const auto& text : texts) {
                EXPECT_THAT(out, HasSubstr(text)) << program << " " << flag;
            }
        }
    }
}

}  // namespace
}  // namespace e2e
