// Registers, in this order, a service that is not a builder and the two builders "first"
// and "second", each making services named after itself. Without BUILDER_BUNDLE_REGISTERS
// it registers only the service that is not a builder.

#include "agent/core/service/ServiceBuilderBase.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

// Something else the bundle offers, registered before the builders so that picking the
// first registered service regardless of its interface would be noticed.
struct Unrelated {
    virtual ~Unrelated() = default;
};

class NamedService : public agent::core::service::ServiceBase {
public:
    explicit NamedService(std::string name) : name_(std::move(name)) {}
    bool start(const agent::core::service::StartupConfiguration&) override { return false; }
    void stop() override {}
    std::string name() const override { return name_; }

private:
    const std::string name_;
};

class NamedBuilder : public agent::core::service::ServiceBuilderBase {
public:
    explicit NamedBuilder(std::string name) : name_(std::move(name)) {}
    std::shared_ptr<agent::core::service::ServiceBase> create() override {
        return std::make_shared<NamedService>(name_);
    }

private:
    const std::string name_;
};

class BuilderBundleActivator : public cppmicroservices::BundleActivator {
public:
    void Start(cppmicroservices::BundleContext context) override {
        registrations_.push_back(context.RegisterService<Unrelated>(std::make_shared<Unrelated>()));
#ifdef BUILDER_BUNDLE_REGISTERS
        // "second" ranks higher, so a lookup by ranking would pick it; registration order
        // must win.
        registrations_.push_back(context.RegisterService<agent::core::service::ServiceBuilderBase>(
            std::make_shared<NamedBuilder>("first")));
        registrations_.push_back(context.RegisterService<agent::core::service::ServiceBuilderBase>(
            std::make_shared<NamedBuilder>("second"), {{"service.ranking", 10}}));
#endif
    }

    void Stop(cppmicroservices::BundleContext) override {
        for (auto& registration : registrations_) {
            registration.Unregister();
        }
        registrations_.clear();
    }

private:
    std::vector<cppmicroservices::ServiceRegistrationBase> registrations_;
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(BuilderBundleActivator)
