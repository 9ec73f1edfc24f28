#pragma once

#include "apps/common/CommandLine.h"
#include "apps/common/TerminationSignals.h"

#include <exception>
#include <iostream>

namespace apps::common {

// The main of an app: takes the termination signals (before any thread starts), reads the
// command line into `app` (set up with setUpCommandLine; --help ends here with 0, a bad
// command line with 2, see parseCommandLine), then returns `run(signals)`. Any
// std::exception from `run` is a failure to start: "<name>: <what>" on stderr, exit status 1.
template <class Run>
int runApp(CLI::App& app, int argc, char** argv, Run run) {
    const TerminationSignals signals;
    if (const auto status = parseCommandLine(app, argc, argv)) {
        return *status;
    }
    try {
        return run(signals);
    } catch (const std::exception& e) {
        std::cerr << app.get_name() << ": " << e.what() << "\n";
        return 1;
    }
}

}  // namespace apps::common
