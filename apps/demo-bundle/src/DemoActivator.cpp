// Hands the demo interfaces to the publisher once it is there. publishService waits for the
// publisher's first configuration, so it runs on a thread of the bundle's own; a publisher that
// stops first releases it.

#include "DemoInterfaces.h"

#include "agent/spf/servicepublisher/ServicePublisher.h"

#include "foundation/log/DiagnosticLogger.h"
#include "foundation/log/Severity.h"

#include <cppmicroservices/BundleActivator.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceTracker.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace {

using agent::spf::servicepublisher::ServicePublisher;

const foundation::log::diagnostic_logger& logger() {
    static const auto* logger = new foundation::log::diagnostic_logger("spf_demo");
    return *logger;
}

class DemoActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
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

private:
    void publish(const cppmicroservices::BundleContext& context) {
        try {
            cppmicroservices::ServiceTracker<ServicePublisher> tracker(context);
            tracker.Open();
            while (!stopping_ && !publisher_) {
                publisher_ = tracker.WaitForService(std::chrono::milliseconds(100));
            }
            tracker.Close();
            for (auto make : {&spfdemo::calculator, &spfdemo::text}) {
                if (stopping_ || !publisher_) {
                    return;
                }
                auto serviceInterface = make();
                const auto name = serviceInterface.getInterfaceName();
                published_.push_back(publisher_->publishService(std::move(serviceInterface)));
                FOUNDATION_LOG(logger(), foundation::log::severity::info) << "Published " << name;
            }
        } catch (const std::exception& e) {
            FOUNDATION_LOG(logger(), foundation::log::severity::warning)
                << "The demo services were not published: " << e.what();
        }
    }

    std::atomic<bool> stopping_{false};
    std::thread thread_;
    std::shared_ptr<ServicePublisher> publisher_;      // written by the thread, read after it ended
    std::vector<boost::uuids::uuid> published_;        // likewise
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(DemoActivator)
