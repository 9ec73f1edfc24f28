#pragma once

#include "apps/common/TerminationSignals.h"

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace apps::common {

// The main of an app named `program`: takes the termination signals (before any thread
// starts), reads the command line with `parse`, then returns `run(options, signals)`.
// `parse` takes the arguments without the program name and returns options with a `help`
// flag; on --help the usage goes to stdout, exit status 0. A std::invalid_argument from
// `parse` is a bad command line: "<program>: <what>", a blank line and the usage on
// stderr, exit status 2. Any other std::exception from `run` is a failure to start:
// "<program>: <what>" on stderr, exit status 1.
template <class Parse, class Run>
int runApp(const char* program, const char* usage, int argc, char** argv, Parse parse, Run run) {
    const TerminationSignals signals;
    decltype(parse(std::vector<std::string>())) options;
    try {
        options = parse(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::invalid_argument& e) {
        std::cerr << program << ": " << e.what() << "\n\n" << usage;
        return 2;
    }
    if (options.help) {
        std::cout << usage;
        return 0;
    }
    try {
        return run(options, signals);
    } catch (const std::exception& e) {
        std::cerr << program << ": " << e.what() << "\n";
        return 1;
    }
}

}  // namespace apps::common
