#include "ExchangeOptions.h"

#include <stdexcept>

namespace apps::agentexchange {

namespace {

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

ExchangeOptions parseExchangeOptions(const std::vector<std::string>& arguments) {
    ExchangeOptions options;
    bool haveName = false;
    bool haveEndpoint = false;
    bool haveMode = false;
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
        bool* seen = option == "--name"       ? &haveName
                     : option == "--endpoint" ? &haveEndpoint
                     : option == "--mode"     ? &haveMode
                     : nullptr;
        if (seen == nullptr && option != "--registry") {
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
        if ((seen != nullptr && *seen) || (option == "--registry" && options.registry)) {
            throw std::invalid_argument("Option " + option + " is given twice");
        }
        if (seen != nullptr) {
            *seen = true;
        }
        if (option == "--name") {
            options.name = value;
        } else if (option == "--endpoint") {
            if (!startsWith(value, "ipc://") && !startsWith(value, "tcp://")) {
                throw std::invalid_argument("Endpoint '" + value + "' is not an ipc:// or tcp:// URL");
            }
            options.endpoint = value;
        } else if (option == "--mode") {
            const auto mode = agent::control::parseAgentMode(value);
            if (!mode) {
                throw std::invalid_argument("Unknown mode '" + value + "' (use korvexdrive or desktopservices)");
            }
            options.mode = *mode;
        } else {
            options.registry = std::filesystem::path(value);
        }
    }
    if (!haveName) {
        throw std::invalid_argument("Option --name is required");
    }
    if (!haveEndpoint) {
        throw std::invalid_argument("Option --endpoint is required");
    }
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
