// agent-exchange: see the description in declareOptions() for what it does.

#include "apps/common/AppMain.h"

#include "agent/control/AgentMode.h"
#include "agent/control/AgentRegistration.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/utils/FolderLocations.h"
#include "korvexconnector/serviceprocess/DesktopServicesRealm.h"
#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "foundation/log/DiagnosticLogger.h"

#include <boost/optional.hpp>

#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using apps::common::TerminationSignals;
using foundation::log::severity::info;

// The command line, read.
struct ExchangeOptions {
    std::string name;
    std::string endpoint;
    agent::control::AgentMode mode = agent::control::AgentMode::KorvexDrive;
    // The registry root to use instead of the mode's default.
    boost::optional<std::filesystem::path> registry;
};

// The command line's options, read into `options`, and the text --help prints.
void declareOptions(CLI::App& app, ExchangeOptions& options) {
    apps::common::setUpCommandLine(app);
    app.description(
        "Runs a message exchange, with the directory service it hosts, until SIGINT or SIGTERM.\n"
        "Once listening it prints one line \"listening <url>\" on stdout (a tcp port 0 resolved)\n"
        "and enters itself in the agent registry; on SIGINT or SIGTERM it leaves the registry,\n"
        "tells the directory's subscribers that the directory stopped, closes and exits 0.");
    using apps::common::addValueOption;
    addValueOption(app, "--name", "N", "the agent's name in the registry",
                   [&options](const std::string& value) { options.name = value; })
        ->required();
    addValueOption(app, "--endpoint", "URL", "where containers dial it: ipc://<path> or tcp://<host>:<port>",
                   [&options](const std::string& value) {
                       apps::common::requireExchangeUrl("Endpoint", value);
                       options.endpoint = value;
                   })
        ->required();
    addValueOption(app, "--mode", "M", "korvexdrive (the default) or desktopservices: chooses the registry root",
                   [&options](const std::string& value) {
                       const auto mode = agent::control::parseAgentMode(value);
                       if (!mode) {
                           throw std::invalid_argument("Unknown mode '" + value +
                                                       "' (use korvexdrive or desktopservices)");
                       }
                       options.mode = *mode;
                   });
    addValueOption(app, "--registry", "DIR", "the registry root to use instead of the mode's default",
                   [&options](const std::string& value) { options.registry = std::filesystem::path(value); });
    app.footer("Options also take their value after '=' (--name=N).\n"
               "Exit status: 0 after a clean stop, 1 when it cannot start, 2 for a bad command line.");
}

const foundation::log::diagnostic_logger& logger() {
    static const auto* logger = new foundation::log::diagnostic_logger("agent-exchange");
    return *logger;
}

std::filesystem::path registryRoot(const ExchangeOptions& options) {
    if (options.mode == agent::control::AgentMode::DesktopServices) {
        return korvexconnector::serviceprocess::FolderLocations(
                   boost::none, options.registry,
                   korvexconnector::serviceprocess::DesktopServicesRealm::instance().name())
            .lockRoot();
    }
    return agent::utils::FolderLocations(boost::none, options.registry).lockRoot();
}

int run(const ExchangeOptions& options, const TerminationSignals& signals) {
    const auto root = registryRoot(options);
    agent::nanomsgtransport::Exchange exchange;
    const std::string url = exchange.listen(options.endpoint);
    auto registration = std::make_unique<agent::control::AgentRegistration>(
        root, agent::control::AgentInfo(options.name, url, ::getpid(), options.mode));
    // Printed once registered, so whoever reads it may look the agent up at once.
    std::cout << "listening " << url << std::endl;
    FOUNDATION_LOG(logger(), info) << "Exchange " << options.name << " listening on " << url
                                   << ", registered in " << registration->path().string();

    const int received = signals.wait();
    FOUNDATION_LOG(logger(), info) << "Stopping on " << ::strsignal(received);
    // Out of the registry first, so nobody finds an exchange that is going away.
    registration.reset();
    exchange.close();
    FOUNDATION_LOG(logger(), info) << "Exchange " << options.name << " stopped";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    ExchangeOptions options;
    CLI::App app("", "agent-exchange");
    declareOptions(app, options);
    return apps::common::runApp(app, argc, argv,
                                [&options](const TerminationSignals& signals) { return run(options, signals); });
}
