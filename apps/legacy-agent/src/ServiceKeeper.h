#pragma once

#include "agent/core/container/ServiceContainer.h"
#include "agent/core/service/ServiceBase.h"

#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace agent::directory {
class DirectoryServiceClient;
}

namespace apps::legacyagent {

// Keeps a set of services entered in the directory of the exchange its container is
// connected to, whatever happens to that exchange.
//
// The container's transport redials a lost exchange and re-registers its addresses by
// itself, but a directory forgets the entries of a container whose connection went, and a
// restarted exchange starts with an empty directory. So a watch thread asks the directory,
// every `checkInterval`, whether each service's instance is still there; for one that is
// missing it stops that instance and starts a fresh one (a new instance uuid, as the
// ServiceBase contract wants a new object per start) from the service's factory. While the
// directory cannot be reached it waits for the next round.
//
// Lifecycle: construct, start (once), stop (idempotent; also run by the destructor).
// start and stop from one thread (not the container's pool); the watch thread alone
// touches the services in between. The container must be connected before start.
class ServiceKeeper {
public:
    // Makes a new, not yet started service instance; called on the starting thread and on
    // the watch thread.
    using Factory = std::function<std::shared_ptr<agent::core::service::ServiceBase>()>;

    // Throws std::invalid_argument("ServiceKeeper needs a container") for null.
    ServiceKeeper(std::shared_ptr<agent::core::container::ServiceContainer> container, std::vector<Factory> factories,
                  std::chrono::milliseconds checkInterval);
    ~ServiceKeeper();
    ServiceKeeper(const ServiceKeeper&) = delete;
    ServiceKeeper& operator=(const ServiceKeeper&) = delete;

    // Starts every service (blocks on the exchange), then the watch thread. Returns whether
    // every service started; those that did not are retried by the watch thread. Throws
    // std::logic_error("ServiceKeeper started twice").
    bool start();
    // Ends the watch thread, then stops every running service (their directory entries are
    // withdrawn, so subscribers see them stop). Blocks. Never throws.
    void stop();

private:
    struct Slot {
        Factory factory;
        std::shared_ptr<agent::core::service::ServiceBase> service;  // null while not running
        boost::uuids::uuid instance{};
    };

    void watch();
    // One round of the watch thread: restarts the services the reachable directory lacks.
    void checkRound();
    // Stops the slot's service, if any, and starts a fresh one. Returns whether it runs.
    bool restart(Slot& slot);

    const std::shared_ptr<agent::core::container::ServiceContainer> container_;
    const std::chrono::milliseconds checkInterval_;
    // Owned by the thread calling start, then by the watch thread, then by the one calling stop.
    std::vector<Slot> slots_;
    std::unique_ptr<agent::directory::DirectoryServiceClient> directory_;
    std::thread watcher_;

    std::mutex stopMutex_;
    bool stopping_ = false;
    std::condition_variable stopRequested_;
};

}  // namespace apps::legacyagent
