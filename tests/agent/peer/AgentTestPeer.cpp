// A second process for the exchange shutdown test:
//
//   agent_test_peer hammer <url> <address>   a container sending requests to <address> from four
//                                            threads, sixteen at a time each, across reconnections;
//                                            prints "READY" and runs until it is killed

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include "foundation/log/Sink.h"

#include <boost/uuid/string_generator.hpp>

#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using agent::core::transport::Message;

int main(int argc, char** argv) {
    foundation::log::removeSink(foundation::log::defaultStderrSink());
    if (argc != 4 || std::string(argv[1]) != "hammer") {
        std::cerr << "usage: agent_test_peer hammer <url> <address>\n";
        return 2;
    }
    try {
        auto container = std::make_shared<agent::core::container::ServiceContainer>();
        container->setNewMaximumPoolSize(8);
        container->createTransport(agent::nanomsgtransport::getTransport(*container, 5000ms, 5000ms));
        container->connectTransport(argv[2]);
        const agent::core::transport::Address at{boost::uuids::string_generator()(std::string(argv[3]))};
        for (int t = 0; t < 4; ++t) {
            std::thread([container, at] {
                const std::string payload(512, 'h');
                for (;;) {
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
            }).detach();
        }
        std::cout << "READY" << std::endl;
        for (;;) {
            ::pause();
        }
    } catch (const std::exception& e) {
        std::cerr << "agent_test_peer: " << e.what() << "\n";
        return 1;
    }
}
