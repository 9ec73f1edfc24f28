#pragma once

#include "agent/spf/legacyservicepublisher/PublisherStatus.h"

#include <functional>
#include <mutex>

namespace agent::spf::legacyservicepublisher {

// The status service the component registers while it is active: it asks the component for
// each report until detached, after which holders get "The publisher has stopped".
class PublisherStatusService final : public PublisherStatus {
public:
    explicit PublisherStatusService(std::function<Report()> source) : source_(std::move(source)) {}

    Report report() const override;
    // Waits for a report under way, then lets go of the component.
    void detach();

private:
    mutable std::mutex sourceMutex;  // guards source_, and is held while it runs
    std::function<Report()> source_;
};

}  // namespace agent::spf::legacyservicepublisher
