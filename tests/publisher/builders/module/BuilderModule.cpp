// What the builder tests load: built as a library (BUILDER_LIBRARY), "getBuilder" stores a
// builder whose services are named BUILDER_LIBRARY_SERVICE_NAME, or leaves the pointer empty
// without BUILDER_LIBRARY_GIVES_BUILDER; built as a bundle, its activator registers, in this
// order, a service that is not a builder and, with BUILDER_BUNDLE_REGISTERS, the builders "first"
// and "second". The services never start.

#include "agent/core/service/ServiceBuilderBase.h"

#include <atomic>
#include <memory>
#include <string>
#include <utility>

namespace {

struct NamedService : agent::core::service::ServiceBase {
    explicit NamedService(std::string name) : name_(std::move(name)) {}
    bool start(const agent::core::service::StartupConfiguration&) override { return false; }
    void stop() override {}
    std::string name() const override { return name_; }
    const std::string name_;
};

struct NamedBuilder : agent::core::service::ServiceBuilderBase {
    explicit NamedBuilder(std::string name) : name_(std::move(name)) {}
    std::shared_ptr<agent::core::service::ServiceBase> create() override {
        return std::make_shared<NamedService>(name_);
    }
    const std::string name_;
};

}  // namespace

#ifdef BUILDER_LIBRARY
namespace {
std::atomic<int> getBuilderCalls{0};
}  // namespace

extern "C" __attribute__((visibility("default"))) void getBuilder(
    std::shared_ptr<agent::core::service::ServiceBuilderBase>* builder) {
    getBuilderCalls.fetch_add(1);
#ifdef BUILDER_LIBRARY_GIVES_BUILDER
    *builder = std::make_shared<NamedBuilder>(BUILDER_LIBRARY_SERVICE_NAME);
#else
    (void)builder;
#endif
}

// How often getBuilder ran in this copy of the library; the tests read it through dlsym.
extern "C" __attribute__((visibility("default"))) int getBuilderCallCount() { return getBuilderCalls.load(); }

#else
#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"

namespace {

// Registered before the builders, so that picking the bundle's first service whatever its
// interface would be noticed.
struct Unrelated {
    virtual ~Unrelated() = default;
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
#endif
