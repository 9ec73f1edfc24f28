// agent-exchange: see exchangeUsage() in ExchangeOptions.cpp for what it does.

#include "ExchangeOptions.h"

#include "agent/control/AgentRegistration.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/utils/FolderLocations.h"
#include "korvexconnector/serviceprocess/DesktopServicesRealm.h"
#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "foundation/log/DiagnosticLogger.h"

#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <iostream>
#include <memory>

namespace {

using apps::agentexchange::ExchangeOptions;
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

int run(const ExchangeOptions& options, const sigset_t& termination) {
    const auto root = registryRoot(options);
    agent::nanomsgtransport::Exchange exchange;
    const std::string url = exchange.listen(options.endpoint);
    auto registration = std::make_unique<agent::control::AgentRegistration>(
        root, agent::control::AgentInfo(options.name, url, ::getpid(), options.mode));
    // Printed once registered, so whoever reads it may look the agent up at once.
    std::cout << "listening " << url << std::endl;
    FOUNDATION_LOG(logger(), info) << "Exchange " << options.name << " listening on " << url
                                   << ", registered in " << registration->path().string();

    int received = 0;
    while (::sigwait(&termination, &received) != 0) {
    }
    FOUNDATION_LOG(logger(), info) << "Stopping on " << ::strsignal(received);
    // Out of the registry first, so nobody finds an exchange that is going away.
    registration.reset();
    exchange.close();
    FOUNDATION_LOG(logger(), info) << "Exchange " << options.name << " stopped";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // Blocked before any thread starts, so every thread inherits the mask and only the
    // sigwait in run() takes these signals: the stop runs on the main thread, not in a handler.
    sigset_t termination;
    ::sigemptyset(&termination);
    ::sigaddset(&termination, SIGINT);
    ::sigaddset(&termination, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &termination, nullptr);
    // A reader that went away must not end us through a write to its pipe.
    ::signal(SIGPIPE, SIG_IGN);

    ExchangeOptions options;
    try {
        options = apps::agentexchange::parseExchangeOptions(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::invalid_argument& e) {
        std::cerr << "agent-exchange: " << e.what() << "\n\n" << apps::agentexchange::exchangeUsage();
        return 2;
    }
    if (options.help) {
        std::cout << apps::agentexchange::exchangeUsage();
        return 0;
    }
    try {
        return run(options, termination);
    } catch (const std::exception& e) {
        std::cerr << "agent-exchange: " << e.what() << "\n";
        return 1;
    }
}
