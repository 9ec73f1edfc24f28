#pragma once

#include <functional>
#include <string>
#include <vector>

namespace apps::common {

// One option a command line may hold.
struct CommandLineOption {
    std::string name;  // with its dashes: "--name"
    bool required = false;
    // Takes the option's value (never empty); throws std::invalid_argument to refuse it.
    std::function<void(const std::string& value)> take;
};

// Reads `arguments` (without the program name), handing each option's value to its
// `take` in the order given. Options take their value as the next argument or after '='
// (--name=N). --help (or -h) anywhere ends the reading, the rest not looked at, and
// makes it return true; otherwise it returns false. Throws std::invalid_argument with the
// text to show the user: "Unknown option '<arg>'", "Unexpected argument '<arg>'",
// "Option --<o> needs a value", "Option --<o> is given twice", "Option --<o> is required"
// (for the first missing one in `options`' order), or what a `take` threw.
bool readCommandLine(const std::vector<std::string>& arguments, const std::vector<CommandLineOption>& options);

// Throws std::invalid_argument("<what> '<url>' is not an ipc:// or tcp:// URL") unless
// `url` is one an exchange can listen on or be dialled at.
void requireExchangeUrl(const std::string& what, const std::string& url);

}  // namespace apps::common
