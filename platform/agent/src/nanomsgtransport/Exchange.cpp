#include "agent/nanomsgtransport/Exchange.h"

#include "nanomsgtransport/ExchangeRouter.h"

namespace agent::nanomsgtransport {

Exchange::Exchange() : router_(std::make_shared<Router>()) {}

Exchange::~Exchange() {
    router_->close();
}

std::string Exchange::listen(const std::string& url) {
    return router_->listen(url);
}

void Exchange::close() {
    router_->close();
}

ExchangeStatistics Exchange::statistics() const {
    return router_->statistics();
}

void Exchange::setListenerProbeInterval(std::chrono::milliseconds interval) {
    router_->setProbeInterval(interval);
}

void Exchange::setBacklogLimit(std::size_t frames) {
    router_->setBacklogLimit(frames);
}

}  // namespace agent::nanomsgtransport
