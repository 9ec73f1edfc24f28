// legacy-agent: see legacyAgentUsage() in LegacyAgentOptions.cpp for what it does.

#include "ClockService.h"
#include "KeyValueService.h"
#include "KeyValueStore.h"
#include "LegacyAgentLogger.h"
#include "LegacyAgentOptions.h"
#include "RawEchoService.h"
#include "ServiceKeeper.h"

#include "apps/common/AppMain.h"

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <string.h>

#include <iostream>
#include <memory>

namespace {

using apps::common::TerminationSignals;
using apps::legacyagent::LegacyAgentOptions;
using apps::legacyagent::legacyAgentLogger;
using foundation::log::severity::info;
using namespace std::chrono_literals;

// How soon a service missing from the directory (the exchange restarted) is entered again.
constexpr auto kCheckInterval = 200ms;

int run(const LegacyAgentOptions& options, const TerminationSignals& signals) {
    auto container = std::make_shared<agent::core::container::ServiceContainer>();
    container->setNewMaximumPoolSize(8);
    container->createTransport(agent::nanomsgtransport::getTransport(*container, 5000ms, 5000ms));
    container->connectTransport(options.exchange);

    auto store = std::make_shared<apps::legacyagent::KeyValueStore>();
    const std::string prefix = options.namePrefix;
    apps::legacyagent::ServiceKeeper keeper(
        container,
        {[prefix, store] { return std::make_shared<apps::legacyagent::KeyValueService>(prefix, store); },
         [prefix] { return std::make_shared<apps::legacyagent::ClockService>(prefix); },
         [prefix] { return std::make_shared<apps::legacyagent::RawEchoService>(prefix); }},
        kCheckInterval);
    if (!keeper.start()) {
        std::cerr << "legacy-agent: Cannot enter the services into the directory of " << options.exchange << "\n";
        keeper.stop();
        container->disconnectTransport();
        return 1;
    }
    std::cout << "ready" << std::endl;

    const int received = signals.wait();
    FOUNDATION_LOG(legacyAgentLogger(), info) << "Stopping on " << ::strsignal(received);
    keeper.stop();
    container->disconnectTransport();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return apps::common::runApp("legacy-agent", apps::legacyagent::legacyAgentUsage(), argc, argv,
                                apps::legacyagent::parseLegacyAgentOptions, run);
}
