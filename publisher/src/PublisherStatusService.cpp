#include "PublisherStatusService.h"

#include <stdexcept>

namespace agent::spf::legacyservicepublisher {

PublisherStatus::Report PublisherStatusService::report() const {
    std::lock_guard<std::mutex> lock(sourceMutex);
    if (!source_) {
        throw std::runtime_error("The publisher has stopped");
    }
    return source_();
}

void PublisherStatusService::detach() {
    std::lock_guard<std::mutex> lock(sourceMutex);
    source_ = nullptr;
}

}  // namespace agent::spf::legacyservicepublisher
