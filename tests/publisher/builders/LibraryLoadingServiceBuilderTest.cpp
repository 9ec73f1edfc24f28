// The library-loading builder with builder libraries built for it, loaded by path.

#include "agent/spf/legacyservicepublisher/LibraryLoadingServiceBuilder.h"

#include "support/BuilderCalls.h"

#include <foundation/text/Utf.h>

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace agent::spf::legacyservicepublisher {
namespace {

using ::testing::Eq;
using ::testing::StartsWith;
using testsupport::failureOf;
namespace fs = std::filesystem;

// A library's path without its suffix, as make_shared takes it.
std::string libraryBase(const std::string& target) { return std::string(BUILDERS_TEST_LIBRARY_DIR) + "/lib" + target; }

// How often a mapped test library's getBuilder has run; -1 when the process has not mapped it.
// Maps nothing itself.
int getBuilderCalls(const std::string& path) {
    void* handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return -1;
    }
    auto count = reinterpret_cast<int (*)()>(::dlsym(handle, "getBuilderCallCount"));
    const int calls = count != nullptr ? count() : 0;
    ::dlclose(handle);
    return calls;
}

// A scratch folder for a library that appears later.
class LibraryLoadingServiceBuilderTest : public ::testing::Test {
protected:
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(scratch_, ignored);  // a mapped library's file may go
    }
    static std::shared_ptr<agent::core::service::ServiceBuilderBase> builderFor(const std::string& base) {
        return LibraryLoadingServiceBuilder::make_shared(foundation::text::toUtf16(base));
    }

    const fs::path scratch_ = fs::temp_directory_path() / ("builders-" + std::to_string(std::random_device()()));
};

TEST_F(LibraryLoadingServiceBuilderTest, RacingFirstCreatesLoadTheLibraryOnceAndItStaysAfterTheBuilderIsGone) {
    // No other test loads this copy, so it is mapped only through the builder.
    const std::string base = libraryBase("publisher_test_keptbuilderlibrary");
    ASSERT_EQ(getBuilderCalls(base + ".so"), -1);
    auto builder = builderFor(base);
    EXPECT_EQ(getBuilderCalls(base + ".so"), -1) << "loaded before the first create()";
    for (const auto& name : testsupport::namesOfConcurrentCreates(*builder, 8)) {
        EXPECT_EQ(name, "kept library service");
    }
    auto service = builder->create();
    builder.reset();
    EXPECT_EQ(service->name(), "kept library service") << "the service's code is still there";
    service.reset();
    EXPECT_EQ(getBuilderCalls(base + ".so"), 1) << "still mapped, loaded and asked once";
}

TEST_F(LibraryLoadingServiceBuilderTest, EachFailureNamesItsLibraryAndTheNextCreateTriesAgain) {
    const std::string empty = libraryBase("publisher_test_emptybuilderlibrary");
    const std::string foundationLibrary = libraryBase("foundation");  // a library of ours that is no builder library
    const std::string appearing = (scratch_ / "libappearing").string();
    const std::pair<std::string, ::testing::Matcher<std::string>> rows[] = {
        {empty, Eq("getBuilder from " + empty + ".so failed.")},
        {foundationLibrary, Eq("Failed to find getBuilder function in " + foundationLibrary + ".so")},
        {appearing, StartsWith("Unable to load shared library " + appearing + ".so: ")},
        // A name that already ends in the suffix gets a second one; an empty name is the suffix.
        {libraryBase("publisher_test_builderlibrary") + ".so",
         StartsWith("Unable to load shared library " + libraryBase("publisher_test_builderlibrary") + ".so.so: ")},
        {"", StartsWith("Unable to load shared library .so: ")},
    };
    const int emptyCallsBefore = std::max(0, getBuilderCalls(empty + ".so"));
    std::vector<std::shared_ptr<agent::core::service::ServiceBuilderBase>> builders;
    for (const auto& [base, failure] : rows) {
        builders.push_back(builderFor(base));
        EXPECT_THAT(failureOf(*builders.back()), failure);
        EXPECT_THAT(failureOf(*builders.back()), failure) << "tried again";
    }
    EXPECT_EQ(getBuilderCalls(empty + ".so") - emptyCallsBefore, 2) << "asked again";

    fs::create_directories(scratch_);
    fs::copy_file(libraryBase("publisher_test_builderlibrary") + ".so", appearing + ".so");
    EXPECT_EQ(builders[2]->create()->name(), "library service");
}

}  // namespace
}  // namespace agent::spf::legacyservicepublisher
