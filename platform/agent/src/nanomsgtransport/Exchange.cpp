#include "agent/nanomsgtransport/Exchange.h"

#include "nanomsgtransport/ExchangeRouter.h"
#include "nanomsgtransport/HostedDirectory.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

namespace agent::nanomsgtransport {

namespace {

std::string privateEndpoint() {
    return "inproc://agent-exchange-directory-" + boost::uuids::to_string(boost::uuids::random_generator()());
}

}  // namespace

Exchange::Exchange() : router_(std::make_shared<Router>()) {
    try {
        hostedDirectory_ = std::make_unique<HostedDirectory>(router_->listen(privateEndpoint(), false));
    } catch (...) {
        router_->close();
        throw;
    }
    directory_ = hostedDirectory_->directory();
    router_->setOwnNode(hostedDirectory_->node());
    router_->setNodeGoneHandler([directory = hostedDirectory_.get()](const boost::uuids::uuid& node) {
        directory->nodeGone(node);
    });
}

Exchange::~Exchange() {
    close();
}

std::string Exchange::listen(const std::string& url) {
    return router_->listen(url, true);
}

void Exchange::close() {
    // The directory first: its subscribers hear that it stopped while they are connected.
    router_->setNodeGoneHandler({});
    if (hostedDirectory_) {
        hostedDirectory_->stop();
    }
    router_->close();
}

ExchangeStatistics Exchange::statistics() const {
    return router_->statistics();
}

std::shared_ptr<directory::DirectoryCore> Exchange::directory() const noexcept {
    return directory_;
}

void Exchange::setListenerProbeInterval(std::chrono::milliseconds interval) {
    router_->setProbeInterval(interval);
}

void Exchange::setBacklogLimit(std::size_t frames) {
    router_->setBacklogLimit(frames);
}

}  // namespace agent::nanomsgtransport
