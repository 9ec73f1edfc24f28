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

// The exchange and the container on it, owned jointly by the discovery and its clients.
class InProcessExchangeDiscovery::SharedExchange {
public:
    explicit SharedExchange(std::chrono::milliseconds timeout)
        : endpoint(exchange.listen(uniqueInprocUrl())), container(connectedContainer(endpoint, timeout)) {}
    ~SharedExchange() {
        // Orderly first, so that handlers still running finish before the pool goes; the
        // container's own destructor would only force the transport closed.
        container->disconnectTransport();
    }
    SharedExchange(const SharedExchange&) = delete;
    SharedExchange& operator=(const SharedExchange&) = delete;

    // Declared before the container: destroyed after it, so the container takes leave of
    // a running exchange.
    nanomsgtransport::Exchange exchange;
    const std::string endpoint;
    const std::shared_ptr<core::container::ServiceContainer> container;
};

InProcessExchangeDiscovery::InProcessExchangeDiscovery(std::chrono::milliseconds timeout)
    : timeout_(timeout), exchange_(std::make_shared<SharedExchange>(timeout)), endpoint_(exchange_->endpoint) {}

InProcessExchangeDiscovery::~InProcessExchangeDiscovery() = default;

std::unique_ptr<directory::DirectoryServiceClient> InProcessExchangeDiscovery::getFrameworkDiscoveryService(
    unsigned int concurrency) const {
    auto& container = *exchange_->container;
    auto context = container.createContext(container.generateServiceInstance());
    context.getThreadPool().setConcurrencyLimit(concurrency);
    return std::make_unique<directory::DirectoryServiceClient>(context, timeout_, exchange_);
}

std::string InProcessExchangeDiscovery::listen(const std::string& url) {
    return exchange_->exchange.listen(url);
}

}  // namespace agent::spf::inprocessdiscovery
