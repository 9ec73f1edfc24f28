// agent-exchange: see exchangeUsage() in ExchangeOptions.cpp for what it does.

#include "ExchangeOptions.h"

#include "apps/common/AppMain.h"

#include "agent/control/AgentRegistration.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/utils/FolderLocations.h"
#include "korvexconnector/serviceprocess/DesktopServicesRealm.h"
#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "foundation/log/DiagnosticLogger.h"

#include <string.h>
#include <unistd.h>

#include <iostream>
#include <memory>

namespace {

using apps::agentexchange::ExchangeOptions;
using apps::common::TerminationSignals;
using foundation::log::severity::info;

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
    return apps::common::runApp("agent-exchange", apps::agentexchange::exchangeUsage(), argc, argv,
                                apps::agentexchange::parseExchangeOptions, run);
}
