#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>

namespace apps::common {

// How every program here reads its command line, on CLI11: --options that each take one
// value (next argument or after '='), -h/--help, and one line naming the first fault.

// Sets `app` up: -h/--help prints the help laid out as "usage: <name> <options>", the
// app's description, one line per option ("(required)" after those that are) and the
// app's footer. Call it before adding options.
void setUpCommandLine(CLI::App& app);

// Adds the option `name` ("--name") taking one value, shown as `valueName` ("N") in the
// help. `take` gets the value once the whole line is read; it throws std::invalid_argument
// to refuse it, its what() being the line the user sees. An option given without a value
// (last, before another option, or as "--name=") is refused with "Option --name needs a
// value", one given twice with "Option --name is given twice".
CLI::Option* addValueOption(CLI::App& app, const std::string& name, const std::string& valueName,
                            const std::string& description, std::function<void(const std::string&)> take);

// Reads the command line into `app`. Returns nothing when the program should go on; 0
// after --help printed the help on stdout; 2 after a bad command line printed
// "<name>: <fault>", a blank line and the help on stderr. The fault is the first of:
// "Unknown option '--<o>'" or "Unexpected argument '<arg>'" for an argument nothing took,
// a value refused (above), "Option --<o> is required"; or CLI11's own text (a value of the
// wrong type). Blocking only on the output streams; call it from main.
std::optional<int> parseCommandLine(CLI::App& app, int argc, const char* const* argv);

// Throws std::invalid_argument("<what> '<url>' is not an ipc:// or tcp:// URL") unless
// `url` is one an exchange can listen on or be dialled at.
void requireExchangeUrl(const std::string& what, const std::string& url);

}  // namespace apps::common
