// The command lines of agent-exchange and legacy-agent, run as processes: what --help
// prints, and what a bad command line gets.

#include "ProcessFixture.h"

#include <gmock/gmock.h>

#include <map>
#include <tuple>

namespace e2e {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// The first line of each program's help, which every refusal repeats.
const std::map<std::string, std::string> kUsage{
    {AGENT_EXCHANGE_PATH, "usage: agent-exchange --name N --endpoint URL [--mode M] [--registry DIR]\n"},
    {LEGACY_AGENT_PATH, "usage: legacy-agent --exchange URL [--name-prefix P]\n"}};

const std::string kIpc = "ipc:///tmp/never-used.sock";
const std::string kExchange = AGENT_EXCHANGE_PATH;
const std::string kAgent = LEGACY_AGENT_PATH;

// Each row: a command line a program refuses, and the first line of its complaint, which the
// help follows on stderr; the exit status is 2.
TEST(CommandLineRefusalTest, BadCommandLineGetsOneLineNamingTheFaultThenTheHelpOnStderrAndExitStatusTwo) {
    const std::tuple<std::string, std::vector<std::string>, std::string> rows[] = {
        {kExchange, {}, "Option --name is required"},
        {kExchange, {"--name", "a"}, "Option --endpoint is required"},
        {kExchange, {"--name"}, "Option --name needs a value"},
        {kExchange, {"--name=", "--endpoint", kIpc}, "Option --name needs a value"},
        {kAgent, {"--exchange", "--name-prefix", "p."}, "Option --exchange needs a value"},
        {kExchange, {"--name", "a", "--name=b", "--endpoint", kIpc}, "Option --name is given twice"},
        {kExchange, {"--name", "a", "--endpoint", kIpc, "--verbose=3"}, "Unknown option '--verbose'"},
        {kAgent, {"--exchange", kIpc, "--name"}, "Unknown option '--name'"},
        {kAgent, {"--exchange", kIpc, "-v"}, "Unexpected argument '-v'"},
        {kExchange, {"--name", "a", "stray"}, "Unexpected argument 'stray'"},
        {kExchange, {"--name", "a", "--endpoint", "/tmp/x.sock"},
         "Endpoint '/tmp/x.sock' is not an ipc:// or tcp:// URL"},
        {kExchange, {"--name", "a", "--endpoint", kIpc, "--mode", "KorvexDrive"},
         "Unknown mode 'KorvexDrive' (use korvexdrive or desktopservices)"},
        {kAgent, {"--exchange", "inproc://x"}, "Exchange 'inproc://x' is not an ipc:// or tcp:// URL"},
        {kAgent, {"--exchange", kIpc, "--name-prefix", "a*"}, "Name prefix must not hold '*'"},
    };
    for (const auto& [program, arguments, firstErrorLine] : rows) {
        const auto [status, out, err] = runToEnd(program, arguments);
        const auto name = std::filesystem::path(program).filename().string();
        EXPECT_EQ(ChildProcess::describe(status) + out, "exit status 2") << firstErrorLine;
        EXPECT_EQ(err.substr(0, err.find('\n')), name + ": " + firstErrorLine);
        EXPECT_THAT(err, HasSubstr("\n\n" + kUsage.at(program))) << firstErrorLine;
    }
}

// Help anywhere on the line wins over anything else there. The option lines below the usage are
// CLI11's rendering of the options each program declares.
TEST(CommandLineHelpTest, HelpAnywherePrintsTheUsageOnStdoutAndExitsZero) {
    for (const auto& [program, usage] : kUsage) {
        for (const auto& flag : {"--help", "-h"}) {
            const auto [status, out, err] = runToEnd(program, {"--exchange", kIpc, flag, "--bogus"});
            EXPECT_EQ(ChildProcess::describe(status) + err, "exit status 0") << program << " " << flag;
            EXPECT_THAT(out, StartsWith(usage));
            EXPECT_THAT(out, HasSubstr("\n  -h, --help ")) << program << " " << flag;
        }
    }
}

}  // namespace
}  // namespace e2e
