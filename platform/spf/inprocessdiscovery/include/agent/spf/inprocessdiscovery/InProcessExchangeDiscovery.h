#pragma once

#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/Exchange.h"

#include <chrono>
#include <memory>
#include <string>

namespace agent::spf::inprocessdiscovery {

// An InProcessDiscovery that owns its exchange: an Exchange listening on an inproc://
// URL unique to this object, and one ServiceContainer dialling it whose pool runs the
// work of every context handed out (no maximum: a handler waiting for another handler of
// the same container must not starve it). The exchange hosts the directory.
//
// Lifecycle: the constructor listens and connects. This object and every client it hands
// out share the exchange: the last of them to go disconnects the container in order
// (waiting for handlers that run), then closes the exchange. Context copies do not keep
// it; they must be gone by then. The last owner must not go on the container's pool (so
// the last reference is not released by a handler or a directory callback).
class InProcessExchangeDiscovery final : public InProcessDiscovery {
public:
    // `timeout` bounds connecting, each request that names no timeout of its own, and
    // each directory call of the clients handed out. Blocks until connected. Throws
    // std::runtime_error when the exchange cannot listen or the container cannot connect.
    explicit InProcessExchangeDiscovery(std::chrono::milliseconds timeout = std::chrono::seconds(5));
    ~InProcessExchangeDiscovery() override;

    // Never throws for lack of an exchange (std::bad_alloc aside): the client keeps it open.
    std::unique_ptr<agent::directory::DirectoryServiceClient> getFrameworkDiscoveryService(
        unsigned int concurrency) const override;

    // The URL other containers of this process dial to join the exchange.
    const std::string& endpoint() const noexcept { return endpoint_; }
    // Lets containers of other processes join too, at `url` (ipc:// or tcp://); returns the
    // URL they dial. Throws the exchange's std::runtime_error when it cannot listen there.
    std::string listen(const std::string& url);

private:
    class SharedExchange;

    const std::chrono::milliseconds timeout_;
    const std::shared_ptr<SharedExchange> exchange_;
    const std::string endpoint_;
};

}  // namespace agent::spf::inprocessdiscovery
