#pragma once

#include "agent/control/AgentMode.h"

#include <boost/optional.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace apps::agentexchange {

// The command line of agent-exchange, read.
struct ExchangeOptions {
    bool help = false;
    std::string name;
    std::string endpoint;
    agent::control::AgentMode mode = agent::control::AgentMode::KorvexDrive;
    // The registry root to use instead of the mode's default.
    boost::optional<std::filesystem::path> registry;
};

// Reads `arguments` (without the program name). Options take their value as the next
// argument or after '=' (--name=N). --help (or -h) anywhere ends the reading: the rest is
// not looked at. Throws std::invalid_argument with the text to show the user:
//   "Unknown option '<arg>'", "Unexpected argument '<arg>'", "Option --<o> needs a value",
//   "Option --<o> is given twice", "Option --<o> is required",
//   "Unknown mode '<m>' (use korvexdrive or desktopservices)",
//   "Endpoint '<url>' is not an ipc:// or tcp:// URL".
ExchangeOptions parseExchangeOptions(const std::vector<std::string>& arguments);

// The text --help prints, which every usage error repeats.
const char* exchangeUsage() noexcept;

}  // namespace apps::agentexchange
