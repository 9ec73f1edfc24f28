#include "LegacyAgentOptions.h"

#include <stdexcept>

namespace apps::legacyagent {

namespace {

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

LegacyAgentOptions parseLegacyAgentOptions(const std::vector<std::string>& arguments) {
    LegacyAgentOptions options;
    bool haveExchange = false;
    bool havePrefix = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--help" || argument == "-h") {
            options.help = true;
            return options;
        }
        if (!startsWith(argument, "--")) {
            throw std::invalid_argument("Unexpected argument '" + argument + "'");
        }
        const auto equals = argument.find('=');
        const std::string option = argument.substr(0, equals);
        bool* seen = option == "--exchange" ? &haveExchange : option == "--name-prefix" ? &havePrefix : nullptr;
        if (seen == nullptr) {
            throw std::invalid_argument("Unknown option '" + option + "'");
        }
        std::string value;
        if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (i + 1 < arguments.size() && !startsWith(arguments[i + 1], "--")) {
            value = arguments[++i];
        }
        if (value.empty()) {
            throw std::invalid_argument("Option " + option + " needs a value");
        }
        if (*seen) {
            throw std::invalid_argument("Option " + option + " is given twice");
        }
        *seen = true;
        if (option == "--exchange") {
            if (!startsWith(value, "ipc://") && !startsWith(value, "tcp://")) {
                throw std::invalid_argument("Exchange '" + value + "' is not an ipc:// or tcp:// URL");
            }
            options.exchange = value;
        } else {
            // A '*' would make the names match other services' name patterns by accident.
            if (value.find('*') != std::string::npos) {
                throw std::invalid_argument("Name prefix must not hold '*'");
            }
            options.namePrefix = value;
        }
    }
    if (!haveExchange) {
        throw std::invalid_argument("Option --exchange is required");
    }
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
