// A builder library as the library-loading builder expects it: "getBuilder" stores a
// builder whose services are named after BUILDER_LIBRARY_SERVICE_NAME. Built without
// BUILDER_LIBRARY_GIVES_BUILDER, getBuilder leaves the pointer empty.

#include "agent/core/service/ServiceBuilderBase.h"

#include <atomic>
#include <memory>
#include <string>

namespace {

std::atomic<int> getBuilderCalls{0};

struct LibraryService : agent::core::service::ServiceBase {
    bool start(const agent::core::service::StartupConfiguration&) override { return false; }
    void stop() override {}
    std::string name() const override { return BUILDER_LIBRARY_SERVICE_NAME; }
};

struct LibraryServiceBuilder : agent::core::service::ServiceBuilderBase {
    std::shared_ptr<agent::core::service::ServiceBase> create() override { return std::make_shared<LibraryService>(); }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) void getBuilder(
    std::shared_ptr<agent::core::service::ServiceBuilderBase>* builder) {
    getBuilderCalls.fetch_add(1);
#ifdef BUILDER_LIBRARY_GIVES_BUILDER
    *builder = std::make_shared<LibraryServiceBuilder>();
#else
    (void)builder;
#endif
}

// How often getBuilder ran in this copy of the library; the tests read it through dlsym.
extern "C" __attribute__((visibility("default"))) int getBuilderCallCount() { return getBuilderCalls.load(); }
