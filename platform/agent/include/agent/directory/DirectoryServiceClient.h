#pragma once

#include "agent/core/serviceutils/APIVersion.h"
#include "agent/core/serviceutils/Context.h"
#include "agent/core/serviceutils/ServiceStub.h"
#include "agent/directory/DirectoryDeregistrationToken.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"
#include "agent/directoryinterfaces/ServiceNotification.h"

#include <boost/container_hash/hash.hpp>
#include <boost/optional.hpp>
#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace agent::directory {

// Receives one subscription's notifications.
using DirectoryCallback = std::function<void(const directoryinterfaces::ServiceNotification&)>;

// One callback from two: `started` gets the started notifications, `stopped` the stopped
// ones. Either may be empty (those notifications are then ignored).
DirectoryCallback makeCallbackFunction(
    std::function<void(const directoryinterfaces::ServiceStartedNotification&)> started,
    std::function<void(const directoryinterfaces::ServiceStoppedNotification&)> stopped);

// Talks to the directory of the exchange the context's transport is connected to.
//
// Every call blocks until the directory answers, at most for the client's timeout (none:
// the transport's default), and throws std::runtime_error("Directory service request
// failed: <cause>") when the directory cannot be reached or refuses the request, and
// ("Directory service sent a malformed reply: <cause>") for a reply it cannot read.
//
// Subscriptions: each has its own callback address on the context's transport. Its
// callback runs on the context's pool, one notification at a time, in the order the
// directory produced them. Thread-safe; the context's pool and transport must outlive the
// client, which they do when the client holds their owner (see the constructor). The
// destructor ends the subscriptions still open and waits for their callbacks (so it must
// not run inside one of them).
class DirectoryServiceClient {
public:
    enum CallbackMode { OnlyNewChanges = 0, Retrospectively = 1 };

    // `owner`, when given, is what keeps the context's pool and transport: the client holds
    // it until everything else of the client is gone, so that a client handed out stays
    // safe to use however long its user keeps it. Releasing the last reference may close
    // an exchange, so the last client must not be destroyed on that exchange's pool.
    // Throws std::invalid_argument("DirectoryServiceClient needs a context with a transport").
    DirectoryServiceClient(const core::serviceutils::Context& context,
                           const boost::optional<std::chrono::milliseconds>& timeout,
                           std::shared_ptr<const void> owner = nullptr);
    ~DirectoryServiceClient();
    DirectoryServiceClient(const DirectoryServiceClient&) = delete;
    DirectoryServiceClient& operator=(const DirectoryServiceClient&) = delete;

    // Starts a subscription and returns its id. With Retrospectively the running
    // instances that match come first, as started notifications. `serviceName` is a name
    // pattern ("*", "Key*", ...), `metadata` pairs that must all match. Throws
    // std::invalid_argument("Directory callback is empty") and the errors above.
    boost::uuids::uuid registerForCallbacks(const DirectoryCallback& callback, CallbackMode mode,
                                            const boost::optional<std::string>& serviceName,
                                            const boost::optional<std::map<std::string, std::string>>& metadata);
    // Ends the subscription; false when this client has no such subscription. Once it
    // returns no callback of the subscription runs or will run (a callback under way is
    // waited for, unless this is called from that callback). Then tells the directory.
    bool deregisterFromCallbacks(const boost::uuids::uuid& subscription);

    // Instances whose names match `pattern` ("*" = all, "Key*" = prefix, see NamePattern),
    // the directory itself included.
    std::vector<boost::uuids::uuid> queryDirectoryForServiceUUIDs(const std::string& pattern) const;
    // As above, keeping the instances whose metadata holds every given pair.
    std::vector<boost::uuids::uuid> queryDirectoryForServicesMatchingMetadata(
        const std::string& pattern, const std::map<std::string, std::string>& metadata) const;
    // The instance, or a stub that is not found (unknown uuid, or no compatible version:
    // see DirectoryCore::lookup for APIVersion(0)). Its methods call through this
    // client's transport with this client's timeout.
    core::serviceutils::ServiceStub lookupServiceInstance(const boost::uuids::uuid& instance,
                                                          const core::serviceutils::APIVersion& version) const;

    // Adds an entry; a nil node is filled in with the context's node. Throws the errors
    // above (for instance "... is already registered").
    void registerServiceInstance(directoryinterfaces::ServiceInstanceInfo instance);
    // false when the directory did not have it.
    bool deregisterServiceInstance(const boost::uuids::uuid& instance);
    // A token whose reset() deregisters `instance` through this client. The client must
    // outlive the token. Non-blocking.
    DirectoryDeregistrationToken getDeregistrationToken(const boost::uuids::uuid& instance);

    const core::serviceutils::Context& getAssociatedContext() const noexcept { return context_; }

private:
    class Subscription;

    core::transport::Message call(const core::transport::Message& request) const;

    // First, so that it goes last: the context's facade waits for its work on the pool.
    const std::shared_ptr<const void> owner_;
    core::serviceutils::Context context_;
    boost::optional<std::chrono::milliseconds> timeout_;

    std::mutex subscriptionsMutex_;
    std::unordered_map<boost::uuids::uuid, std::shared_ptr<Subscription>, boost::hash<boost::uuids::uuid>>
        subscriptions_;
};

}  // namespace agent::directory
