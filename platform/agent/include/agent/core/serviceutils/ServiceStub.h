#pragma once

#include "agent/core/serviceutils/APIVersion.h"
#include "agent/core/transport/Address.h"
#include "agent/core/transport/Message.h"
#include "agent/core/transport/ReplyFuture.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"

#include <boost/optional.hpp>
#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <functional>
#include <map>
#include <string>

namespace agent::core::transport {
class Transport;
}

namespace agent::core::serviceutils {

// A client's handle on one service instance found in the directory: what the directory
// says of it, and callables that send requests to its methods. Or, default-constructed,
// the answer "not found". A value type; the transport is borrowed and must outlive every
// callable taken from the stub. Thread-safe for reading.
class ServiceStub {
public:
    // A calling method: sends the request, never blocks, reports failures through the future.
    using Method = std::function<transport::ReplyFuture(transport::Message)>;

    // Not found.
    ServiceStub() = default;
    // `timeout` bounds each call's wait for its reply (none: the transport's default).
    ServiceStub(directoryinterfaces::ServiceInstanceInfo instance, transport::Transport* transport,
                const boost::optional<std::chrono::milliseconds>& timeout);

    bool isFound() const noexcept { return found_; }
    explicit operator bool() const noexcept { return found_; }

    const std::string& getName() const noexcept { return instance_.name; }
    const boost::uuids::uuid& getServiceInstance() const noexcept { return instance_.instance; }
    const APIVersion& getVersion() const noexcept { return instance_.version; }
    // The instance's metadata, all of it.
    const std::map<std::string, std::string>& getProperties() const noexcept { return instance_.metadata; }
    boost::optional<std::string> getMetadata(const std::string& key) const;
    const std::map<std::string, transport::Address>& getMethods() const noexcept { return instance_.methods; }
    // The container that registered the instance.
    const boost::uuids::uuid& getNodeID() const noexcept { return instance_.node; }

    // A callable sending its Message to the method's address; empty for a name the
    // instance does not offer, and for every name when not found.
    Method getMethod(const std::string& name) const;

private:
    bool found_ = false;
    directoryinterfaces::ServiceInstanceInfo instance_;
    transport::Transport* transport_ = nullptr;
    boost::optional<std::chrono::milliseconds> timeout_;
};

}  // namespace agent::core::serviceutils
