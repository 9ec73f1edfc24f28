#pragma once

#include "agent/core/transport/ITransport.h"
#include "nanomsgtransport/TransportCore.h"

#include <memory>

namespace agent::nanomsgtransport {

// The ITransport that getTransport() returns: a thin owner of a TransportCore, which
// pool tasks share. Destroying it force-disconnects.
class NanomsgTransport : public core::transport::ITransport {
public:
    NanomsgTransport(foundation::concurrent::threadpool::ThreadPool& pool, const boost::uuids::uuid& node,
                     std::chrono::milliseconds requestTimeout, std::chrono::milliseconds connectTimeout);
    ~NanomsgTransport() override;

    void connect(const std::string& endpoint) override;
    void disconnect() override;
    void forceDisconnect() override;
    bool isConnected() const override;
    void registerHandler(const core::transport::Address& address, core::transport::RequestHandler handler,
                         const boost::uuids::uuid& serviceInstance) override;
    bool unregisterHandler(const core::transport::Address& address) override;
    void rejectRequestsFor(const boost::uuids::uuid& serviceInstance) override;
    core::transport::ReplyFuture sendRequest(const core::transport::Address& destination,
                                             core::transport::Message request,
                                             const boost::optional<std::chrono::milliseconds>& timeout) override;

private:
    const std::chrono::milliseconds requestTimeout_;
    const std::shared_ptr<TransportCore> core_;
};

}  // namespace agent::nanomsgtransport
