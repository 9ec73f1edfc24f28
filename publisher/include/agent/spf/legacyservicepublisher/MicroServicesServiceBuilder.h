#pragma once

#include "agent/core/service/ServiceBuilderBase.h"

#include <cppmicroservices/Bundle.h>

#include <memory>
#include <mutex>

namespace agent::spf::legacyservicepublisher {

// Builds services with the ServiceBuilderBase service that a CppMicroServices bundle
// registers. The bundle is started, and its builder fetched, by the first create() that
// succeeds; until then every create() tries again.
class MicroServicesServiceBuilder : public agent::core::service::ServiceBuilderBase {
public:
    // Starts nothing yet. Any thread; throws only std::bad_alloc.
    static std::shared_ptr<agent::core::service::ServiceBuilderBase> make_shared(cppmicroservices::Bundle bundle);

    MicroServicesServiceBuilder(const MicroServicesServiceBuilder&) = delete;
    MicroServicesServiceBuilder& operator=(const MicroServicesServiceBuilder&) = delete;

    // A new, unstarted service from the bundle's builder. Any thread, concurrently; the
    // first call blocks while the bundle starts (concurrent first calls wait for it).
    // Throws what Bundle::Start throws, std::runtime_error("Couldn't find service builder
    // reference") when the started bundle registered no ServiceBuilderBase, and what the
    // bundle's builder throws.
    std::shared_ptr<agent::core::service::ServiceBase> create() override;
    ~MicroServicesServiceBuilder() override;

private:
    explicit MicroServicesServiceBuilder(cppmicroservices::Bundle bundle);

    // Starts the bundle and takes its first registered ServiceBuilderBase, once.
    void ensureBundleStarted();

    cppmicroservices::Bundle bundle;  // Start() is not const
    // Null until ensureBundleStarted succeeds; never changes afterwards.
    std::shared_ptr<agent::core::service::ServiceBuilderBase> builder;
    std::mutex mutex;  // guards bundleStarted and builder
    bool bundleStarted = false;
};

}  // namespace agent::spf::legacyservicepublisher
