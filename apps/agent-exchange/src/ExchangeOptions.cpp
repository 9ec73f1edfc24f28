#include "ExchangeOptions.h"

#include "apps/common/CommandLine.h"

#include <stdexcept>

namespace apps::agentexchange {

ExchangeOptions parseExchangeOptions(const std::vector<std::string>& arguments) {
    ExchangeOptions options;
    options.help = common::readCommandLine(
        arguments,
        {{"--name", true, [&options](const std::string& value) { options.name = value; }},
         {"--endpoint", true,
          [&options](const std::string& value) {
              common::requireExchangeUrl("Endpoint", value);
              options.endpoint = value;
          }},
         {"--mode", false,
          [&options](const std::string& value) {
              const auto mode = agent::control::parseAgentMode(value);
              if (!mode) {
                  throw std::invalid_argument("Unknown mode '" + value + "' (use korvexdrive or desktopservices)");
              }
              options.mode = *mode;
          }},
         {"--registry", false,
          [&options](const std::string& value) { options.registry = std::filesystem::path(value); }}});
    return options;
}

const char* exchangeUsage() noexcept {
    return "usage: agent-exchange --name N --endpoint URL [--mode korvexdrive|desktopservices] [--registry DIR]\n"
           "\n"
           "Runs a message exchange, with the directory service it hosts, until SIGINT or SIGTERM.\n"
           "Once listening it prints one line \"listening <url>\" on stdout (a tcp port 0 resolved)\n"
           "and enters itself in the agent registry; on SIGINT or SIGTERM it leaves the registry,\n"
           "tells the directory's subscribers that the directory stopped, closes and exits 0.\n"
           "\n"
           "  --name N          the agent's name in the registry (required)\n"
           "  --endpoint URL    where containers dial it: ipc://<path> or tcp://<host>:<port> (required)\n"
           "  --mode M          korvexdrive (the default) or desktopservices: chooses the registry root\n"
           "  --registry DIR    the registry root to use instead of the mode's default\n"
           "  -h, --help        show this text and exit\n"
           "\n"
           "Options also take their value after '=' (--name=N).\n"
           "Exit status: 0 after a clean stop, 1 when it cannot start, 2 for a bad command line.\n";
}

}  // namespace apps::agentexchange
