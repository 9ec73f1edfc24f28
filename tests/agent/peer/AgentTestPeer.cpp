// A second (or third) process for the multi-process tests.
//
//   agent_test_peer exchange <url>            runs an exchange; prints "LISTENING <url>"
//   agent_test_peer server <url> <address>    a container echoing requests at <address>
//                                             (a request "hang" is never answered);
//                                             prints "READY"
// Both run until their standard input closes.

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include "foundation/log/Sink.h"

#include <boost/uuid/string_generator.hpp>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <iostream>
#include <string>

namespace {

void waitForStdinToClose() {
    char buffer[64];
    while (::read(STDIN_FILENO, buffer, sizeof buffer) > 0) {
    }
}

int runExchange(const std::string& url) {
    agent::nanomsgtransport::Exchange exchange;
    std::cout << "LISTENING " << exchange.listen(url) << std::endl;
    waitForStdinToClose();
    exchange.close();
    return 0;
}

int runServer(const std::string& url, const std::string& address) {
    using namespace std::chrono_literals;
    auto container = std::make_shared<agent::core::container::ServiceContainer>();
    container->setNewMaximumPoolSize(8);
    container->createTransport(agent::nanomsgtransport::getTransport(*container, 5000ms, 5000ms));
    container->connectTransport(url);
    std::promise<void> never;
    auto hang = never.get_future().share();
    container->getTransport()->registerHandler(
        agent::core::transport::Address(boost::uuids::string_generator()(address)),
        [hang](const agent::core::transport::Message& request) {
            if (request.asStringView() == "hang") {
                hang.wait_for(60s);
            }
            return request;
        });
    std::cout << "READY" << std::endl;
    waitForStdinToClose();
    // A hung handler would hold an orderly shutdown; this process is done either way.
    container->forceDisconnectTransport();
    std::_Exit(0);
}

}  // namespace

int main(int argc, char** argv) {
    foundation::log::removeSink(foundation::log::defaultStderrSink());
    try {
        const std::string mode = argc > 1 ? argv[1] : "";
        if (mode == "exchange" && argc == 3) {
            return runExchange(argv[2]);
        }
        if (mode == "server" && argc == 4) {
            return runServer(argv[2], argv[3]);
        }
        std::cerr << "usage: agent_test_peer exchange <url> | server <url> <address>\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "agent_test_peer: " << e.what() << "\n";
        return 1;
    }
}
