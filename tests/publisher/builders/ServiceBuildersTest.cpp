// The service builders with real collaborators: builder libraries built for them and loaded by
// path, bundles that register builders in a real framework.

#include "agent/spf/legacyservicepublisher/LibraryLoadingServiceBuilder.h"
#include "agent/spf/legacyservicepublisher/MicroServicesServiceBuilder.h"

#include "support/Barrier.h"
#include "support/FrameworkFixture.h"
#include "support/Thrown.h"

#include "cppmicroservices/BundleEvent.h"

#include <foundation/text/Utf.h>

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <atomic>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

namespace agent::spf::legacyservicepublisher {
namespace {

using Builder = agent::core::service::ServiceBuilderBase;
using ::testing::Eq;

// A test library's path without its suffix, as the library-loading builder takes it.
std::string libraryBase(const std::string& target) { return std::string(BUILDERS_TEST_LIBRARY_DIR) + "/lib" + target; }
std::shared_ptr<Builder> libraryBuilder(const std::string& base) {
    return LibraryLoadingServiceBuilder::make_shared(foundation::text::toUtf16(base));
}

// How often a mapped test library's getBuilder has run; -1 when the process has not mapped it.
// Maps nothing itself.
int getBuilderCalls(const std::string& base) {
    const std::unique_ptr<void, int (*)(void*)> handle(::dlopen((base + ".so").c_str(), RTLD_LAZY | RTLD_NOLOAD),
                                                        ::dlclose);
    return handle ? reinterpret_cast<int (*)()>(::dlsym(handle.get(), "getBuilderCallCount"))() : -1;
}

// Calls create() on `threads` threads released at once, so that first creates race; returns each
// created service's name, or "failed: <what>" for a create that threw.
std::vector<std::string> namesOfConcurrentCreates(Builder& builder, int threads) {
    std::vector<std::string> names(threads);
    testsupport::RunConcurrently(threads, [&](int i) {
        try {
            names[i] = builder.create()->name();
        } catch (const std::exception& e) {
            names[i] = std::string("failed: ") + e.what();
        }
    });
    return names;
}

// The framework's storage folder, which goes with the test, holds a library that appears later.
using ServiceBuildersTest = testsupport::FrameworkFixture;

TEST_F(ServiceBuildersTest, RacingFirstCreatesLoadALibraryOnceAndItStaysAfterTheBuilderIsGone) {
    // No other test loads this copy, so it is mapped only through the builder.
    const std::string base = libraryBase("publisher_test_keptbuilderlibrary");
    auto builder = libraryBuilder(base);
    EXPECT_EQ(getBuilderCalls(base), -1) << "loaded before the first create()";
    EXPECT_THAT(namesOfConcurrentCreates(*builder, 8), ::testing::Each(Eq("kept library service")));
    auto service = builder->create();
    builder.reset();
    EXPECT_EQ(service->name(), "kept library service") << "the service's code is still there";
    service.reset();
    EXPECT_EQ(getBuilderCalls(base), 1) << "still mapped, loaded and asked once";
}

TEST_F(ServiceBuildersTest, EachFailureNamesItsCauseAndTheNextCreateTriesAgain) {
    const std::string empty = libraryBase("publisher_test_emptybuilderlibrary");
    const std::string noBuilderLibrary = libraryBase("foundation");  // a library of ours without getBuilder
    const std::string appearing = (storage / "libappearing").string();
    auto bundle = Install(libraryBase("PublisherTestNoBuilderBundle") + ".so");
    const std::pair<std::shared_ptr<Builder>, ::testing::Matcher<std::string>> rows[] = {
        {libraryBuilder(empty), Eq("getBuilder from " + empty + ".so failed.")},
        {libraryBuilder(noBuilderLibrary), Eq("Failed to find getBuilder function in " + noBuilderLibrary + ".so")},
        {libraryBuilder(appearing), ::testing::StartsWith("Unable to load shared library " + appearing + ".so: ")},
        {MicroServicesServiceBuilder::make_shared(bundle), Eq("Couldn't find service builder reference")},
    };
    const int emptyCallsBefore = std::max(0, getBuilderCalls(empty));
    for (const auto& [builder, failure] : rows) {
        const auto create = [&builder = builder] { builder->create(); };
        EXPECT_THAT(testsupport::ThrownText<std::exception>(create), failure);
        EXPECT_THAT(testsupport::ThrownText<std::exception>(create), failure) << "tried again";
    }
    EXPECT_EQ(getBuilderCalls(empty) - emptyCallsBefore, 2) << "asked again";

    // The library appears; the bundle registers a builder through its own context.
    std::filesystem::create_directories(storage);
    std::filesystem::copy_file(libraryBase("publisher_test_builderlibrary") + ".so", appearing + ".so");
    EXPECT_EQ(rows[2].first->create()->name(), "library service");
    bundle.GetBundleContext().RegisterService<Builder>(libraryBuilder(appearing));
    EXPECT_EQ(rows[3].first->create()->name(), "library service");
}

TEST_F(ServiceBuildersTest, RacingFirstCreatesStartTheBundleOnceAndUseItsFirstRegisteredBuilder) {
    auto bundle = Install(libraryBase("PublisherTestBuilderBundle") + ".so");
    std::atomic<int> starts{0};
    auto token = context.AddBundleListener([&](const cppmicroservices::BundleEvent& event) {
        starts += event.GetBundle() == bundle && event.GetType() == cppmicroservices::BundleEvent::BUNDLE_STARTING;
    });
    auto builder = MicroServicesServiceBuilder::make_shared(bundle);
    EXPECT_NE(bundle.GetState(), cppmicroservices::Bundle::STATE_ACTIVE) << "made without starting the bundle";
    // The first builder in registration order, not the higher ranked one.
    EXPECT_THAT(namesOfConcurrentCreates(*builder, 8), ::testing::Each(Eq("first")));
    EXPECT_EQ(starts.load(), 1);
    context.RemoveListener(std::move(token));
}

}  // namespace
}  // namespace agent::spf::legacyservicepublisher
