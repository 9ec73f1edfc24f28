// legacy-agent: see the description in declareOptions() for what it does.

#include "ClockService.h"
#include "KeyValueService.h"
#include "KeyValueStore.h"
#include "LegacyAgentLogger.h"
#include "RawEchoService.h"
#include "ServiceKeeper.h"

#include "apps/common/AppMain.h"

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <string.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using apps::common::TerminationSignals;
using apps::legacyagent::legacyAgentLogger;
using foundation::log::severity::info;
using namespace std::chrono_literals;

// The command line, read.
struct LegacyAgentOptions {
    std::string exchange;
    // Put before each service's name in the directory ("demo." gives "demo.KeyValueStore").
    std::string namePrefix;
};

// The command line's options, read into `options`, and the text --help prints.
void declareOptions(CLI::App& app, LegacyAgentOptions& options) {
    apps::common::setUpCommandLine(app);
    app.description(
        "Serves three native legacy services on the exchange at URL until SIGINT or SIGTERM,\n"
        "and prints one line \"ready\" on stdout once all are in the exchange's directory:\n"
        "  <P>KeyValueStore  an in-memory store:\n"
        "                    put(string key, string value), get(string key) -> string,\n"
        "                    remove(string key) -> string, keys() -> array<string>\n"
        "  <P>Clock          now() -> string (UTC, YYYY-MM-DDThh:mm:ss.mmmZ), echo(string) -> string,\n"
        "                    millisecondsSinceEpoch() -> long\n"
        "  <P>RawEcho        echo: replies with the request's bytes unchanged\n"
        "The first two speak spf.wireFormat application/octet-stream+spf/avro+spf/multipart: a\n"
        "request holds one part per argument, each an 8-byte big-endian size and the argument's\n"
        "Avro binary; the reply holds one such part (empty for put). RawEcho speaks\n"
        "application/octet-stream: its messages are the bytes alone. Each also carries\n"
        "spf::servicemajor. When the exchange restarts, it reconnects and enters them into the\n"
        "new directory; the store keeps its data.");
    using apps::common::addValueOption;
    addValueOption(app, "--exchange", "URL", "the exchange to dial: ipc://<path> or tcp://<host>:<port>",
                   [&options](const std::string& value) {
                       apps::common::requireExchangeUrl("Exchange", value);
                       options.exchange = value;
                   })
        ->required();
    addValueOption(app, "--name-prefix", "P", "put P before each service's name (default: none)",
                   [&options](const std::string& value) {
                       // A '*' would make the names match other services' name patterns by accident.
                       if (value.find('*') != std::string::npos) {
                           throw std::invalid_argument("Name prefix must not hold '*'");
                       }
                       options.namePrefix = value;
                   });
    app.footer("Options also take their value after '=' (--exchange=URL).\n"
               "Exit status: 0 after a clean stop, 1 when it cannot start, 2 for a bad command line.");
}

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
    LegacyAgentOptions options;
    CLI::App app("", "legacy-agent");
    declareOptions(app, options);
    return apps::common::runApp(app, argc, argv,
                                [&options](const TerminationSignals& signals) { return run(options, signals); });
}
