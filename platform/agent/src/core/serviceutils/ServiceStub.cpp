#include "agent/core/serviceutils/ServiceStub.h"

#include "agent/core/transport/Transport.h"

namespace agent::core::serviceutils {

ServiceStub::ServiceStub(directoryinterfaces::ServiceInstanceInfo instance, transport::Transport* transport,
                         const boost::optional<std::chrono::milliseconds>& timeout)
    : found_(true), instance_(std::move(instance)), transport_(transport), timeout_(timeout) {}

boost::optional<std::string> ServiceStub::getMetadata(const std::string& key) const {
    auto it = instance_.metadata.find(key);
    if (it == instance_.metadata.end()) {
        return boost::none;
    }
    return it->second;
}

ServiceStub::Method ServiceStub::getMethod(const std::string& name) const {
    auto it = instance_.methods.find(name);
    if (!found_ || transport_ == nullptr || it == instance_.methods.end()) {
        return {};
    }
    return [transport = transport_, address = it->second, timeout = timeout_](transport::Message request) {
        return transport->sendRequest(address, std::move(request), timeout);
    };
}

}  // namespace agent::core::serviceutils
