#pragma once

#include <string>
#include <vector>

namespace apps::legacyagent {

// The command line of legacy-agent, read.
struct LegacyAgentOptions {
    bool help = false;
    std::string exchange;
    // Put before each service's name in the directory ("demo." gives "demo.KeyValueStore").
    std::string namePrefix;
};

// Reads `arguments` (without the program name). Options take their value as the next
// argument or after '=' (--exchange=URL). --help (or -h) anywhere ends the reading.
// Throws std::invalid_argument with the text to show the user:
//   "Unknown option '<arg>'", "Unexpected argument '<arg>'", "Option --<o> needs a value",
//   "Option --<o> is given twice", "Option --exchange is required",
//   "Exchange '<url>' is not an ipc:// or tcp:// URL", "Name prefix must not hold '*'".
LegacyAgentOptions parseLegacyAgentOptions(const std::vector<std::string>& arguments);

// The text --help prints, which every usage error repeats.
const char* legacyAgentUsage() noexcept;

}  // namespace apps::legacyagent
