#include "LegacyAgentOptions.h"

#include "apps/common/CommandLine.h"

#include <stdexcept>

namespace apps::legacyagent {

LegacyAgentOptions parseLegacyAgentOptions(const std::vector<std::string>& arguments) {
    LegacyAgentOptions options;
    options.help = common::readCommandLine(
        arguments,
        {{"--exchange", true,
          [&options](const std::string& value) {
              common::requireExchangeUrl("Exchange", value);
              options.exchange = value;
          }},
         {"--name-prefix", false,
          [&options](const std::string& value) {
              // A '*' would make the names match other services' name patterns by accident.
              if (value.find('*') != std::string::npos) {
                  throw std::invalid_argument("Name prefix must not hold '*'");
              }
              options.namePrefix = value;
          }}});
    return options;
}

const char* legacyAgentUsage() noexcept {
    return "usage: legacy-agent --exchange URL [--name-prefix P]\n"
           "\n"
           "Serves two native legacy services on the exchange at URL until SIGINT or SIGTERM,\n"
           "and prints one line \"ready\" on stdout once both are in the exchange's directory:\n"
           "  <P>KeyValueStore  methods put, get, remove, keys (an in-memory store)\n"
           "  <P>Clock          methods now, echo\n"
           "Both carry the metadata spf.wireFormat and spf::servicemajor. When the exchange\n"
           "restarts, it reconnects and enters them into the new directory; the store keeps its data.\n"
           "\n"
           "  --exchange URL     the exchange to dial: ipc://<path> or tcp://<host>:<port> (required)\n"
           "  --name-prefix P    put P before each service's name (default: none)\n"
           "  -h, --help         show this text and exit\n"
           "\n"
           "Options also take their value after '=' (--exchange=URL).\n"
           "Exit status: 0 after a clean stop, 1 when it cannot start, 2 for a bad command line.\n";
}

}  // namespace apps::legacyagent
