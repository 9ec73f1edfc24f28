// A second (or third) process for the multi-process tests.
//
//   agent_test_peer exchange <url>            runs an exchange; prints "LISTENING <url>"
//   agent_test_peer server <url> <address>    a container echoing requests at <address>
//                                             (a request "hang" is never answered), listed
//                                             in the directory as "EchoPeer"; prints "READY"
//   agent_test_peer hammer <url> <address>    a container sending requests to <address>
//                                             from four threads, sixteen at a time each,
//                                             across reconnections; prints "READY"
// Each runs until its standard input closes.

#include "agent/core/container/ServiceContainer.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include "foundation/log/Sink.h"

#include <boost/uuid/string_generator.hpp>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using agent::core::transport::Address;
using agent::core::transport::Message;

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

std::shared_ptr<agent::core::container::ServiceContainer> connect(const std::string& url) {
    auto container = std::make_shared<agent::core::container::ServiceContainer>();
    container->setNewMaximumPoolSize(8);
    container->createTransport(agent::nanomsgtransport::getTransport(*container, 5000ms, 5000ms));
    container->connectTransport(url);
    return container;
}

int runServer(const std::string& url, const std::string& address) {
    auto container = connect(url);
    std::promise<void> never;
    auto hang = never.get_future().share();
    const Address at(boost::uuids::string_generator()(address));
    container->getTransport()->registerHandler(at, [hang](const Message& request) {
        if (request.asStringView() == "hang") {
            hang.wait_for(60s);
        }
        return request;
    });
    agent::directory::DirectoryServiceClient directory(container->createContext(container->generateServiceInstance()),
                                                       5000ms);
    agent::directoryinterfaces::ServiceInstanceInfo entry;
    entry.name = "EchoPeer";
    entry.instance = container->generateServiceInstance();
    entry.methods["echo"] = at;
    directory.registerServiceInstance(entry);
    std::cout << "READY" << std::endl;
    waitForStdinToClose();
    // A hung handler would hold an orderly shutdown; this process is done either way.
    container->forceDisconnectTransport();
    std::_Exit(0);
}

int runHammer(const std::string& url, const std::string& address) {
    auto container = connect(url);
    const Address at(boost::uuids::string_generator()(address));
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            const std::string payload(512, 'h');
            while (!stop.load()) {
                std::vector<agent::core::transport::ReplyFuture> window;
                for (int i = 0; i < 16; ++i) {
                    window.push_back(container->getTransport()->sendRequest(at, Message(std::string_view(payload)),
                                                                            std::chrono::milliseconds(2000)));
                }
                bool answered = false;
                for (auto& reply : window) {
                    try {
                        reply.get();
                        answered = true;
                    } catch (const std::exception&) {
                        // the exchange is closing or gone; the next one is coming
                    }
                }
                if (!answered) {
                    std::this_thread::sleep_for(1ms);  // not connected: no need to spin
                }
            }
        });
    }
    std::cout << "READY" << std::endl;
    waitForStdinToClose();
    stop = true;
    for (auto& thread : threads) {
        thread.join();
    }
    container->disconnectTransport();
    return 0;
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
        if (mode == "hammer" && argc == 4) {
            return runHammer(argv[2], argv[3]);
        }
        std::cerr << "usage: agent_test_peer exchange <url> | server <url> <address> | hammer <url> <address>\n";
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "agent_test_peer: " << e.what() << "\n";
        return 1;
    }
}
