#include "agent/spf/legacyservicepublisher/LibraryLoadingServiceBuilder.h"

#include "agent/spf/legacyservicepublisher/Logger.h"

#include "support/BuilderCalls.h"

#include <foundation/log/CaptureSink.h>
#include <foundation/log/Sink.h>
#include <foundation/text/Utf.h>
#include <storage/sharedlib/SharedLibraryError.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

namespace agent::spf::legacyservicepublisher {
namespace {

using agent::core::service::ServiceBuilderBase;
using testsupport::failureOf;
using testsupport::namesOfConcurrentCreates;
namespace fs = std::filesystem;

// A library's path without its suffix, as make_shared takes it.
std::string libraryBase(const std::string& target) { return std::string(BUILDERS_TEST_LIBRARY_DIR) + "/lib" + target; }

// Whether the process has the library mapped; maps nothing itself.
bool isMapped(const std::string& path) {
    void* handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle != nullptr) {
        ::dlclose(handle);
    }
    return handle != nullptr;
}

// How often a mapped test library's getBuilder has run; 0 when it is not mapped.
int getBuilderCalls(const std::string& path) {
    void* handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (handle == nullptr) {
        return 0;
    }
    auto count = reinterpret_cast<int (*)()>(::dlsym(handle, "getBuilderCallCount"));
    const int calls = count != nullptr ? count() : -1;
    ::dlclose(handle);
    return calls;
}

// Enables the publisher logger's 0x08 records and captures its records; a scratch folder
// for libraries that appear or have unusual names.
class LibraryLoadingServiceBuilderTest : public ::testing::Test {
protected:
    void SetUp() override {
        mask_ = getLogger().mask();
        getLogger().setMask(mask_ | 0x08);
        foundation::log::addSink(capture_);
        std::random_device random;
        scratch_ = fs::temp_directory_path() / ("builders-" + std::to_string(random()) + std::to_string(random()));
        fs::create_directories(scratch_);
    }
    void TearDown() override {
        foundation::log::removeSink(capture_);
        getLogger().setMask(mask_);
        std::error_code ignored;
        fs::remove_all(scratch_, ignored);  // a mapped library's file may go
    }

    std::size_t loadingRecords(const std::string& path) const {
        return capture_->count([&](const foundation::log::record& record) {
            return record.severity == 0x08 && record.text == "Loading " + path;
        });
    }

    std::shared_ptr<foundation::log::capture_sink> capture_ =
        std::make_shared<foundation::log::capture_sink>("agent::spf::legacyservicepublisher");
    std::uint32_t mask_ = 0;
    fs::path scratch_;
};

TEST_F(LibraryLoadingServiceBuilderTest, ConcurrentFirstCreatesLoadTheLibraryOnceAndLogLoadingOnce) {
    const std::string base = libraryBase("publisher_test_builderlibrary");
    const std::string path = base + ".so";
    const int callsBefore = getBuilderCalls(path);  // other tests of this process may have loaded it
    auto builder = LibraryLoadingServiceBuilder::make_shared(foundation::text::toUtf16(base));

    for (const auto& name : namesOfConcurrentCreates(*builder, 8)) {
        EXPECT_EQ(name, "library service");
    }
    EXPECT_EQ(builder->create()->name(), "library service");
    EXPECT_EQ(loadingRecords(path), 1u);
    EXPECT_EQ(getBuilderCalls(path) - callsBefore, 1);
}

TEST_F(LibraryLoadingServiceBuilderTest, AGetBuilderThatGivesNothingFailsEveryCreateAndIsAskedAgain) {
    const std::string base = libraryBase("publisher_test_emptybuilderlibrary");
    const std::string path = base + ".so";
    const int callsBefore = getBuilderCalls(path);
    auto builder = LibraryLoadingServiceBuilder::make_shared(foundation::text::toUtf16(base));
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_EQ(failureOf(*builder), "getBuilder from " + path + " failed.");
    }
    EXPECT_EQ(loadingRecords(path), 3u);
    EXPECT_EQ(getBuilderCalls(path) - callsBefore, 3);
}

TEST_F(LibraryLoadingServiceBuilderTest, ALibraryWithoutGetBuilderFailsNamingIt) {
    // Any library of ours that is no builder library will do.
    const std::string base = libraryBase("foundation");
    auto builder = LibraryLoadingServiceBuilder::make_shared(foundation::text::toUtf16(base));
    EXPECT_EQ(failureOf(*builder), "Failed to find getBuilder function in " + base + ".so");
    EXPECT_EQ(failureOf(*builder), "Failed to find getBuilder function in " + base + ".so");
}

TEST_F(LibraryLoadingServiceBuilderTest, AMissingLibraryFailsWithTheLoadersErrorAndTheNextCreateRetries) {
    const fs::path base = scratch_ / "libappearing";
    const std::string path = base.string() + ".so";
    auto builder = LibraryLoadingServiceBuilder::make_shared(foundation::text::toUtf16(base.string()));
    try {
        builder->create();
        FAIL() << "created a service from a library that does not exist";
    } catch (const storage::sharedlib::SharedLibraryError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Unable to load shared library " + path + ": ", 0), 0u) << e.what();
    }

    fs::copy_file(libraryBase("publisher_test_builderlibrary") + ".so", path);
    auto service = builder->create();
    ASSERT_NE(service, nullptr);
    EXPECT_EQ(service->name(), "library service");
    EXPECT_EQ(loadingRecords(path), 2u);
}

TEST_F(LibraryLoadingServiceBuilderTest, TheLibraryStaysMappedAfterTheBuilderIsGone) {
    // No other test loads this copy, so it is mapped only through the builder.
    const std::string base = libraryBase("publisher_test_keptbuilderlibrary");
    const std::string path = base + ".so";
    ASSERT_FALSE(isMapped(path));
    auto builder = LibraryLoadingServiceBuilder::make_shared(foundation::text::toUtf16(base));
    EXPECT_FALSE(isMapped(path)) << "loaded before the first create()";
    auto service = builder->create();
    ASSERT_TRUE(isMapped(path));

    builder.reset();
    EXPECT_EQ(service->name(), "kept library service") << "the service's code is still there";
    service.reset();
    EXPECT_TRUE(isMapped(path));
}

TEST_F(LibraryLoadingServiceBuilderTest, TheNameIsConvertedFromUtf16AndOnlyGetsTheSuffix) {
    const fs::path folder = scratch_ / fs::u8path(u8"biblioth\u00e8que \u65e5\u672c");
    fs::create_directories(folder);
    const std::string base = (folder / fs::u8path(u8"libb\u00fcilder")).string();
    fs::copy_file(libraryBase("publisher_test_builderlibrary") + ".so", base + ".so");

    const std::u16string name = foundation::text::toUtf16(base);
    auto builder = LibraryLoadingServiceBuilder::make_shared(name);
    ASSERT_NE(builder->create(), nullptr);
    EXPECT_EQ(loadingRecords(base + ".so"), 1u);

    // A name that already ends in the suffix is used unchanged, so it gets a second one.
    auto doubled = LibraryLoadingServiceBuilder::make_shared(name + u".so");
    EXPECT_EQ(failureOf(*doubled).rfind("Unable to load shared library " + base + ".so.so: ", 0), 0u);
    // An empty name is just the suffix, which the dynamic loader does not find.
    auto empty = LibraryLoadingServiceBuilder::make_shared(u"");
    EXPECT_EQ(failureOf(*empty).rfind("Unable to load shared library .so: ", 0), 0u) << failureOf(*empty);
}

TEST_F(LibraryLoadingServiceBuilderTest, NamesThatAreNotUtf16AreRefused) {
    const struct {
        std::u16string name;
        std::string failure;
    } rows[] = {
        {u"lib\xD800x", "Unpaired high surrogate at unit offset 3"},
        {u"\xDC00lib", "Unpaired low surrogate at unit offset 0"},
        {u"lib\xD83D", "Unpaired high surrogate at unit offset 3"},
    };
    for (const auto& row : rows) {
        try {
            LibraryLoadingServiceBuilder::make_shared(row.name);
            ADD_FAILURE() << "accepted " << row.failure;
        } catch (const std::invalid_argument& e) {
            EXPECT_EQ(std::string(e.what()), row.failure);
        }
    }
}

}  // namespace
}  // namespace agent::spf::legacyservicepublisher
