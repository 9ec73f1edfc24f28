// legacy-agent: see legacyAgentUsage() in LegacyAgentOptions.cpp for what it does.

#include "ClockService.h"
#include "KeyValueService.h"
#include "KeyValueStore.h"
#include "LegacyAgentLogger.h"
#include "LegacyAgentOptions.h"
#include "ServiceKeeper.h"

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <pthread.h>
#include <signal.h>
#include <string.h>

#include <iostream>
#include <memory>

namespace {

using apps::legacyagent::LegacyAgentOptions;
using apps::legacyagent::legacyAgentLogger;
using foundation::log::severity::info;
using namespace std::chrono_literals;

// How soon a service missing from the directory (the exchange restarted) is entered again.
constexpr auto kCheckInterval = 200ms;

int run(const LegacyAgentOptions& options, const sigset_t& termination) {
    auto container = std::make_shared<agent::core::container::ServiceContainer>();
    container->setNewMaximumPoolSize(8);
    container->createTransport(agent::nanomsgtransport::getTransport(*container, 5000ms, 5000ms));
    container->connectTransport(options.exchange);

    auto store = std::make_shared<apps::legacyagent::KeyValueStore>();
    const std::string prefix = options.namePrefix;
    apps::legacyagent::ServiceKeeper keeper(
        container,
        {[prefix, store] { return std::make_shared<apps::legacyagent::KeyValueService>(prefix, store); },
         [prefix] { return std::make_shared<apps::legacyagent::ClockService>(prefix); }},
        kCheckInterval);
    if (!keeper.start()) {
        std::cerr << "legacy-agent: Cannot enter the services into the directory of " << options.exchange << "\n";
        keeper.stop();
        container->disconnectTransport();
        return 1;
    }
    std::cout << "ready" << std::endl;

    int received = 0;
    while (::sigwait(&termination, &received) != 0) {
    }
    FOUNDATION_LOG(legacyAgentLogger(), info) << "Stopping on " << ::strsignal(received);
    keeper.stop();
    container->disconnectTransport();
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

    LegacyAgentOptions options;
    try {
        options = apps::legacyagent::parseLegacyAgentOptions(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::invalid_argument& e) {
        std::cerr << "legacy-agent: " << e.what() << "\n\n" << apps::legacyagent::legacyAgentUsage();
        return 2;
    }
    if (options.help) {
        std::cout << apps::legacyagent::legacyAgentUsage();
        return 0;
    }
    try {
        return run(options, termination);
    } catch (const std::exception& e) {
        std::cerr << "legacy-agent: " << e.what() << "\n";
        return 1;
    }
}
