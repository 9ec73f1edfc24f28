#include "ServiceKeeper.h"

#include "LegacyAgentLogger.h"

#include "agent/directory/DirectoryServiceClient.h"

#include <boost/uuid/uuid_io.hpp>

#include <stdexcept>

namespace apps::legacyagent {

using foundation::log::severity::info;
using foundation::log::severity::warning;

ServiceKeeper::ServiceKeeper(std::shared_ptr<agent::core::container::ServiceContainer> container,
                             std::vector<Factory> factories, std::chrono::milliseconds checkInterval)
    : container_(std::move(container)), checkInterval_(checkInterval) {
    if (!container_) {
        throw std::invalid_argument("ServiceKeeper needs a container");
    }
    for (auto& factory : factories) {
        slots_.push_back(Slot{std::move(factory), nullptr, {}});
    }
}

ServiceKeeper::~ServiceKeeper() {
    stop();
}

bool ServiceKeeper::start() {
    if (directory_) {
        throw std::logic_error("ServiceKeeper started twice");
    }
    // A short timeout: a check that cannot reach the directory just waits for the next round.
    directory_ = std::make_unique<agent::directory::DirectoryServiceClient>(
        container_->createContext(container_->generateServiceInstance()), checkInterval_ * 4);
    bool all = true;
    for (auto& slot : slots_) {
        all = restart(slot) && all;
    }
    watcher_ = std::thread([this] { watch(); });
    return all;
}

void ServiceKeeper::stop() {
    {
        std::lock_guard<std::mutex> lock(stopMutex_);
        stopping_ = true;
    }
    stopRequested_.notify_all();
    if (watcher_.joinable()) {
        watcher_.join();
    }
    for (auto& slot : slots_) {
        if (slot.service) {
            slot.service->stop();
            slot.service.reset();
        }
    }
    directory_.reset();
}

void ServiceKeeper::watch() {
    std::unique_lock<std::mutex> lock(stopMutex_);
    while (!stopRequested_.wait_for(lock, checkInterval_, [this] { return stopping_; })) {
        lock.unlock();
        checkRound();
        lock.lock();
    }
}

void ServiceKeeper::checkRound() {
    // The directory's own entry is always there: finding it tells a reachable directory from
    // one that is gone, so that nothing is restarted (and no failure logged) while the
    // exchange is down.
    static const auto directoryInstance =
        agent::core::transport::getWellKnowAddressFor(agent::core::transport::WellKnownAddressName::Directory)
            .getUUID();
    try {
        if (!directory_->lookupServiceInstance(directoryInstance, {}).isFound()) {
            return;
        }
        for (auto& slot : slots_) {
            if (!slot.service || !directory_->lookupServiceInstance(slot.instance, {}).isFound()) {
                restart(slot);
            }
        }
    } catch (const std::exception&) {
        // Out of reach in the middle of the round: the next one goes on.
    }
}

bool ServiceKeeper::restart(Slot& slot) {
    if (slot.service) {
        FOUNDATION_LOG(legacyAgentLogger(), warning)
            << "Service " << slot.service->name() << " (" << slot.instance << ") left the directory; entering it again";
        slot.service->stop();
        slot.service.reset();
    }
    auto service = slot.factory();
    if (!service) {
        return false;
    }
    agent::core::service::StartupConfiguration configuration;
    configuration.context = container_->createContext(container_->generateServiceInstance());
    if (!service->start(configuration)) {
        return false;  // the service logged why
    }
    slot.service = std::move(service);
    slot.instance = configuration.context.getServiceInstance();
    FOUNDATION_LOG(legacyAgentLogger(), info)
        << "Service " << slot.service->name() << " (" << slot.instance << ") is in the directory";
    return true;
}

}  // namespace apps::legacyagent
