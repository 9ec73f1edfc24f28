#include "agent/spf/inprocessdiscovery/InProcessExchangeDiscovery.h"

#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

namespace agent::spf::inprocessdiscovery {
namespace {

// inproc:// names are process-wide: a random one keeps two instances (and tests running
// side by side) apart.
std::string uniqueInprocUrl() {
    thread_local boost::uuids::random_generator generator;
    return "inproc://spf-inprocessdiscovery-" + boost::uuids::to_string(generator());
}

std::shared_ptr<core::container::ServiceContainer> connectedContainer(const std::string& endpoint,
                                                                      std::chrono::milliseconds timeout) {
    auto container = std::make_shared<core::container::ServiceContainer>();
    container->createTransport(nanomsgtransport::getTransport(*container, timeout, timeout));
    container->connectTransport(endpoint);
    return container;
}

}  // namespace

InProcessExchangeDiscovery::InProcessExchangeDiscovery(std::chrono::milliseconds timeout)
    : timeout_(timeout), endpoint_(exchange_.listen(uniqueInprocUrl())),
      container_(connectedContainer(endpoint_, timeout)) {}

InProcessExchangeDiscovery::~InProcessExchangeDiscovery() {
    // Orderly first, so that handlers still running finish before the pool goes; the
    // container's own destructor would only force the transport closed.
    container_->disconnectTransport();
}

std::unique_ptr<directory::DirectoryServiceClient> InProcessExchangeDiscovery::getFrameworkDiscoveryService(
    unsigned int concurrency) const {
    auto context = container_->createContext(container_->generateServiceInstance());
    context.getThreadPool().setConcurrencyLimit(concurrency);
    return std::make_unique<directory::DirectoryServiceClient>(context, timeout_);
}

}  // namespace agent::spf::inprocessdiscovery
