#pragma once

#include "agent/spf/core/ServiceInterface.h"
#include "agent/spf/servicepublisher/ServicePublisher.h"

#include "foundation/log/DiagnosticLogger.h"
#include "foundation/log/Severity.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceTracker.h"

#include <boost/uuid/uuid.hpp>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace agent::spf::bundles {

// The activator of a bundle that hands service interfaces to the legacy service publisher:
// Start publishes what makeInterfaces() returns once a ServicePublisher is there, and Stop
// withdraws them. publishService waits for the publisher's first configuration, so publishing
// runs on a thread of the bundle's own; a publisher that stops first releases it with an error,
// which is logged under the bundle's symbolic name like every other outcome. Stop waits for that
// thread: while the publisher has no configuration, it waits until the publisher gets one or stops.
class ServiceInterfacePublishingActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        logger_.emplace(context.GetBundle().GetSymbolicName());
        stopping_ = false;
        thread_ = std::thread([this, context] { publish(context); });
    }

    void Stop(cppmicroservices::BundleContext) override {
        stopping_ = true;
        thread_.join();
        if (publisher_) {
            for (const auto& id : published_) {
                publisher_->unpublishService(id);
            }
        }
        publisher_.reset();
        published_.clear();
    }

protected:
    // The interfaces to publish; called once per Start, on the publishing thread.
    virtual std::vector<agent::spf::core::ServiceInterface> makeInterfaces() = 0;

private:
    void publish(const cppmicroservices::BundleContext& context) {
        using agent::spf::servicepublisher::ServicePublisher;
        namespace severity = foundation::log::severity;
        try {
            cppmicroservices::ServiceTracker<ServicePublisher> tracker(context);
            tracker.Open();
            while (!stopping_ && !publisher_) {
                publisher_ = tracker.WaitForService(std::chrono::milliseconds(100));
            }
            tracker.Close();
            for (auto& serviceInterface : makeInterfaces()) {
                if (stopping_ || !publisher_) {
                    return;
                }
                const auto name = serviceInterface.getInterfaceName();
                published_.push_back(publisher_->publishService(std::move(serviceInterface)));
                FOUNDATION_LOG(*logger_, severity::info) << "Published " << name;
            }
        } catch (const std::exception& e) {
            FOUNDATION_LOG(*logger_, severity::warning) << "The service interfaces were not published: " << e.what();
        }
    }

    std::optional<foundation::log::diagnostic_logger> logger_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
    std::shared_ptr<agent::spf::servicepublisher::ServicePublisher> publisher_;  // written by the thread, read after it ended
    std::vector<boost::uuids::uuid> published_;                                  // likewise
};

}  // namespace agent::spf::bundles
