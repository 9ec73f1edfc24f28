#include "nanomsgtransport/HostedDirectory.h"

#include "agent/nanomsgtransport/NanomsgTransport.h"
#include "nanomsgtransport/Loggers.h"

#include "foundation/log/Severity.h"

#include <boost/uuid/uuid_io.hpp>

#include <stdexcept>

namespace agent::nanomsgtransport {

namespace severity = foundation::log::severity;

namespace {

// Directory requests are short; a few threads keep one slow subscriber from holding up
// the rest.
constexpr unsigned kPoolSize = 4;
constexpr std::chrono::milliseconds kTimeout{5000};

}  // namespace

HostedDirectory::HostedDirectory(const std::string& endpoint)
    : directory_(std::make_shared<directory::DirectoryCore>()),
      container_(std::make_shared<core::container::ServiceContainer>()) {
    try {
        container_->setNewMaximumPoolSize(kPoolSize);
        container_->createTransport(getTransport(*container_, kTimeout, kTimeout));
        container_->connectTransport(endpoint);
        host_ = std::make_unique<directory::DirectoryServiceHost>(directory_, *container_->getTransport());
        host_->start();
    } catch (const std::exception& e) {
        host_.reset();
        container_.reset();
        throw std::runtime_error(std::string("Cannot start the exchange's directory: ") + e.what());
    }
}

HostedDirectory::~HostedDirectory() {
    stop();
}

const boost::uuids::uuid& HostedDirectory::node() const noexcept {
    return container_->getNodeID();
}

void HostedDirectory::nodeGone(const boost::uuids::uuid& node) noexcept {
    try {
        const auto gone = host_->nodeGone(node);
        FOUNDATION_LOG(exchangeLogger(), severity::debug)
            << "Container " << boost::uuids::to_string(node) << " left the directory with " << gone.size()
            << " service instances";
    } catch (const std::exception& e) {
        FOUNDATION_LOG(exchangeLogger(), severity::error)
            << "Removing the services of container " << boost::uuids::to_string(node)
            << " from the directory failed: " << e.what();
    }
}

void HostedDirectory::stop() noexcept {
    {
        std::lock_guard<std::mutex> lock(stopMutex_);
        if (stopped_) {
            return;
        }
        stopped_ = true;
    }
    host_->stop();
    // Orderly: the directory's handlers finish before its connection closes.
    try {
        container_->disconnectTransport();
    } catch (const std::exception& e) {
        FOUNDATION_LOG(exchangeLogger(), severity::error) << "Disconnecting the directory failed: " << e.what();
    }
}

}  // namespace agent::nanomsgtransport
