// Registers, in this order, a service that is not a builder and the two builders "first" and
// "second", each making services named after itself. Without BUILDER_BUNDLE_REGISTERS it
// registers only the service that is not a builder.

#include "agent/core/service/ServiceBuilderBase.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"

#include <memory>
#include <string>
#include <utility>

namespace {

// Registered before the builders, so that picking the bundle's first service whatever its
// interface would be noticed.
struct Unrelated {
    virtual ~Unrelated() = default;
};

struct NamedService : agent::core::service::ServiceBase {
    explicit NamedService(std::string name) : name_(std::move(name)) {}
    bool start(const agent::core::service::StartupConfiguration&) override { return false; }
    void stop() override {}
    std::string name() const override { return name_; }
    const std::string name_;
};

struct NamedBuilder : agent::core::service::ServiceBuilderBase {
    explicit NamedBuilder(std::string name) : name_(std::move(name)) {}
    std::shared_ptr<agent::core::service::ServiceBase> create() override { return std::make_shared<NamedService>(name_); }
    const std::string name_;
};

// What it registers goes with the bundle when it stops.
struct BuilderBundleActivator : cppmicroservices::BundleActivator {
    void Start(cppmicroservices::BundleContext context) override {
        context.RegisterService<Unrelated>(std::make_shared<Unrelated>());
#ifdef BUILDER_BUNDLE_REGISTERS
        // "second" ranks higher, so a lookup by ranking would pick it; registration order must win.
        using Builder = agent::core::service::ServiceBuilderBase;
        context.RegisterService<Builder>(std::make_shared<NamedBuilder>("first"));
        context.RegisterService<Builder>(std::make_shared<NamedBuilder>("second"), {{"service.ranking", 10}});
#endif
    }
    void Stop(cppmicroservices::BundleContext) override {}
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(BuilderBundleActivator)
