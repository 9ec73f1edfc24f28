#include "nanomsgtransport/NanomsgTransport.h"

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

namespace agent::nanomsgtransport {

namespace {
constexpr std::chrono::milliseconds kDefaultTimeout{5000};
}

NanomsgTransport::NanomsgTransport(foundation::concurrent::threadpool::ThreadPool& pool,
                                   const boost::uuids::uuid& node, std::chrono::milliseconds requestTimeout,
                                   std::chrono::milliseconds connectTimeout)
    : requestTimeout_(requestTimeout),
      core_(std::make_shared<TransportCore>(pool, node, requestTimeout, connectTimeout)) {}

NanomsgTransport::~NanomsgTransport() {
    core_->disconnect(false);
}

void NanomsgTransport::connect(const std::string& endpoint) {
    core_->connect(endpoint);
}

void NanomsgTransport::disconnect() {
    core_->disconnect(true);
}

void NanomsgTransport::forceDisconnect() {
    core_->disconnect(false);
}

bool NanomsgTransport::isConnected() const {
    return core_->isConnected();
}

void NanomsgTransport::registerHandler(const core::transport::Address& address,
                                       core::transport::RequestHandler handler,
                                       const boost::uuids::uuid& serviceInstance) {
    core_->registerHandler(address, std::move(handler), serviceInstance);
}

bool NanomsgTransport::unregisterHandler(const core::transport::Address& address) {
    return core_->unregisterHandler(address);
}

void NanomsgTransport::rejectRequestsFor(const boost::uuids::uuid& serviceInstance) {
    core_->rejectRequestsFor(serviceInstance);
}

core::transport::ReplyFuture NanomsgTransport::sendRequest(
    const core::transport::Address& destination, core::transport::Message request,
    const boost::optional<std::chrono::milliseconds>& timeout) {
    return core_->sendRequest(destination, std::move(request), timeout.value_or(requestTimeout_));
}

std::unique_ptr<core::transport::ITransport> getTransport(
    core::container::ServiceContainer& container,
    const boost::optional<std::chrono::milliseconds>& requestTimeout,
    const boost::optional<std::chrono::milliseconds>& connectTimeout) {
    return std::make_unique<NanomsgTransport>(container, container.getNodeID(),
                                              requestTimeout.value_or(kDefaultTimeout),
                                              connectTimeout.value_or(kDefaultTimeout));
}

}  // namespace agent::nanomsgtransport
