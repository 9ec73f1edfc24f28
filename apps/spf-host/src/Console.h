#pragma once

#include <cppmicroservices/BundleContext.h>

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace spfhost {

// The host's commands, the same wherever they are typed (the terminal, --exec, spf-host ctl):
//   list [--json]                      the published invokables
//   describe NAME [--version V]        methods with their types, and properties
//   call NAME METHOD [ARG...] [--timeout MS] [--version V] [--returns TYPE]
//   configs                            the publisher configurations in force
//   wait NAME [MS]                     until an invokable of that name is published
//   status                             connections, configured services, calls per invokable
//   help
// A call's arguments are JSON values (a bare word is a string), converted to the types of the
// method's signature; TYPE:JSON gives an argument's type where the service publishes none.
// Thread-safe: commands may run at once from several places.
class Console {
public:
    // `configurationFolder`: where the host's configuration files are, if it has one.
    Console(cppmicroservices::BundleContext context, std::optional<std::filesystem::path> configurationFolder);

    // Runs one command line: its output goes to `out`; a failure is one line "error: <why>".
    // Returns whether it succeeded. An empty line succeeds and prints nothing. Never throws
    // (std::bad_alloc aside).
    bool execute(const std::string& line, std::ostream& out) const;

    // The words of a line: blanks separate them; single quotes keep their text as it is
    // (without the quotes); double quotes are kept, so that "a b" stays a JSON string. Throws
    // std::invalid_argument("Unbalanced quotes") when a quote is left open.
    static std::vector<std::string> split(const std::string& line);

private:
    void run(const std::vector<std::string>& words, std::ostream& out) const;
    void list(const std::vector<std::string>& words, std::ostream& out) const;
    void describe(const std::vector<std::string>& words, std::ostream& out) const;
    void call(const std::vector<std::string>& words, std::ostream& out) const;
    void configs(std::ostream& out) const;
    void wait(const std::vector<std::string>& words, std::ostream& out) const;
    void status(std::ostream& out) const;

    // A handle: a copy reaches the same bundle context, and its service calls are not const.
    mutable cppmicroservices::BundleContext context_;
    const std::optional<std::filesystem::path> configurationFolder_;
};

}  // namespace spfhost
