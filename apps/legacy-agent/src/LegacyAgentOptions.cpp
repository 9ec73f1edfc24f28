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
           "Serves three native legacy services on the exchange at URL until SIGINT or SIGTERM,\n"
           "and prints one line \"ready\" on stdout once all are in the exchange's directory:\n"
           "  <P>KeyValueStore  an in-memory store:\n"
           "                    put(string key, string value), get(string key) -> string,\n"
           "                    remove(string key) -> string, keys() -> array<string>\n"
           "  <P>Clock          now() -> string (UTC, YYYY-MM-DDThh:mm:ss.mmmZ), echo(string) -> string,\n"
           "                    millisecondsSinceEpoch() -> long\n"
           "  <P>RawEcho        echo: replies with the request's bytes unchanged\n"
           "The first two speak spf.wireFormat application/octet-stream+spf/avro+spf/multipart: a\n"
           "request holds one part per argument, each an 8-byte big-endian size and the argument's\n"
           "Avro binary; the reply holds one such part (empty for put). RawEcho speaks\n"
           "application/octet-stream: its messages are the bytes alone. Each also carries\n"
           "spf::servicemajor. When the exchange restarts, it reconnects and enters them into the\n"
           "new directory; the store keeps its data.\n"
           "\n"
           "  --exchange URL     the exchange to dial: ipc://<path> or tcp://<host>:<port> (required)\n"
           "  --name-prefix P    put P before each service's name (default: none)\n"
           "  -h, --help         show this text and exit\n"
           "\n"
           "Options also take their value after '=' (--exchange=URL).\n"
           "Exit status: 0 after a clean stop, 1 when it cannot start, 2 for a bad command line.\n";
}

}  // namespace apps::legacyagent
