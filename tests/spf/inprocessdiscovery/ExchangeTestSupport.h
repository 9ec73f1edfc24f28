#pragma once

// Shared by the SPF tests that run services on an exchange: bounded waits, containers,
// and a directory on the exchange.

#include "agent/core/container/ServiceContainer.h"
#include "agent/core/transport/ReplyFuture.h"
#include "agent/directory/DirectoryCore.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/directory/DirectoryServiceHost.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <boost/uuid/random_generator.hpp>

#include <chrono>
#include <memory>
#include <string>

namespace agent::spf::testing {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Generous: a deadline only exists so that a fault fails the test instead of hanging it.
inline Clock::time_point deadline(std::chrono::milliseconds in = std::chrono::seconds(20)) {
    return Clock::now() + in;
}

inline boost::uuids::uuid randomId() {
    thread_local boost::uuids::random_generator generator;
    return generator();
}

inline std::shared_ptr<core::container::ServiceContainer> makeContainer(const std::string& endpoint) {
    auto container = std::make_shared<core::container::ServiceContainer>();
    container->setNewMaximumPoolSize(8);
    container->createTransport(nanomsgtransport::getTransport(*container, 5000ms, 5000ms));
    container->connectTransport(endpoint);
    return container;
}

// The outcome of a request: the reply's bytes, "error: <what>", or "no answer".
inline std::string outcome(core::transport::ReplyFuture future, Clock::time_point until = deadline()) {
    if (future.wait_until(until) != std::future_status::ready) {
        return "no answer";
    }
    try {
        return std::string(future.get().asStringView());
    } catch (const std::exception& e) {
        return std::string("error: ") + e.what();
    }
}

// Makes sure the exchange at `endpoint` has a directory: an exchange that hosts its own
// is used as it is; otherwise this object serves one until it is destroyed.
class DirectoryOnExchange {
public:
    explicit DirectoryOnExchange(const std::string& endpoint) : container_(makeContainer(endpoint)) {
        directory::DirectoryServiceClient probe(container_->createContext(randomId()), 2000ms);
        try {
            probe.queryDirectoryForServiceUUIDs("directory");
            return;
        } catch (const std::runtime_error&) {
            // Nobody serves the directory's address yet.
        }
        host_ = std::make_unique<directory::DirectoryServiceHost>(std::make_shared<directory::DirectoryCore>(),
                                                                  *container_->getTransport());
        host_->start();
    }
    ~DirectoryOnExchange() {
        host_.reset();
        container_.reset();
    }

private:
    std::shared_ptr<core::container::ServiceContainer> container_;
    std::unique_ptr<directory::DirectoryServiceHost> host_;
};

}  // namespace agent::spf::testing
