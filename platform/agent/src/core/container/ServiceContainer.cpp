#include "agent/core/container/ServiceContainer.h"

#include <boost/uuid/random_generator.hpp>

#include <stdexcept>

namespace agent::core::container {

namespace {

boost::uuids::uuid randomUuid() {
    // random_generator seeds itself from the OS; one per thread avoids sharing its state.
    thread_local boost::uuids::random_generator generator;
    return generator();
}

}  // namespace

ServiceContainer::ServiceContainer() : nodeId_(randomUuid()) {}

ServiceContainer::~ServiceContainer() {
    std::unique_ptr<transport::Transport> transport;
    {
        std::lock_guard<std::mutex> lock(transportMutex_);
        transport = std::move(transport_);
    }
    if (transport) {
        transport->forceDisconnect();
    }
    // Queued handler work still runs and finds the transport closed.
    shutDown();
}

void ServiceContainer::createTransport(std::unique_ptr<transport::ITransport> implementation) {
    if (!implementation) {
        throw std::invalid_argument("ServiceContainer needs a transport");
    }
    auto replacement = std::make_unique<transport::Transport>(std::move(implementation));
    std::unique_ptr<transport::Transport> previous;
    {
        std::lock_guard<std::mutex> lock(transportMutex_);
        previous = std::move(transport_);
        transport_ = std::move(replacement);
    }
    if (previous) {
        previous->forceDisconnect();
    }
}

void ServiceContainer::connectTransport(const std::string& endpoint) {
    auto* transport = getTransport();
    if (transport == nullptr) {
        throw std::logic_error("ServiceContainer has no transport");
    }
    transport->connect(endpoint);
}

void ServiceContainer::disconnectTransport() {
    if (auto* transport = getTransport()) {
        transport->disconnect();
    }
}

void ServiceContainer::forceDisconnectTransport() {
    if (auto* transport = getTransport()) {
        transport->forceDisconnect();
    }
}

boost::uuids::uuid ServiceContainer::generateServiceInstance() const {
    return randomUuid();
}

boost::uuids::uuid ServiceContainer::generateRandomUUID() const {
    return randomUuid();
}

transport::Transport* ServiceContainer::getTransport() const {
    std::lock_guard<std::mutex> lock(transportMutex_);
    return transport_.get();
}

serviceutils::Context ServiceContainer::createContext(const boost::uuids::uuid& serviceInstance) {
    return serviceutils::Context(nodeId_, serviceInstance, this, getTransport(),
                                 [this] { return generateRandomUUID(); });
}

}  // namespace agent::core::container
