// Loading, searching and failing to load through the real loader are exercised by the bundle
// and builder tests (tests/microservices, tests/publisher/builders); here, when a library closes.

#include "storage/sharedlib/SharedLibrary.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>

using storage::sharedlib::Loader;
using storage::sharedlib::SharedLibrary;

namespace {

// True while the sample library is mapped into the process; does not load it.
bool isMapped() {
    void* handle = ::dlopen(FOUNDATION_SAMPLE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) {
        ::dlclose(handle);  // NOLOAD took a reference when it found the library
    }
    return handle != nullptr;
}

TEST(SharedLibraryTest, AFunctionKeepsItsLibraryMappedUntilTheLastHolderGoes) {
    std::function<int(int, int)> add;
    {
        auto library = SharedLibrary::load(FOUNDATION_SAMPLE_LIBRARY);
        const SharedLibrary copy = library;
        add = copy.getFunction<int(int, int)>("sample_add");
    }
    EXPECT_TRUE(isMapped()) << "the function still holds the library";
    EXPECT_EQ(add(2, 40), 42);
    add = nullptr;
    EXPECT_FALSE(isMapped());
    const SharedLibrary empty;
    EXPECT_EQ(empty.findSymbol("sample_add"), nullptr);
}

// Records what the library asks of its loader.
class CountingLoader : public Loader {
public:
    void* open(const std::filesystem::path&, std::string&) override { return &token; }
    void* findSymbol(void* handle, const std::string& name) override {
        return handle == &token && name == "present" ? &token : nullptr;
    }
    void close(void* handle) noexcept override { closes += handle == &token ? 1 : 0; }
    std::atomic<int> closes{0};
    int token = 0;
};

TEST(SharedLibraryTest, LoaderClosesOnceAfterTheLastCopyAndNeverWhenACopyIsDetached) {
    auto loader = std::make_shared<CountingLoader>();
    {
        auto library = SharedLibrary::load("anything", loader);
        const auto copy = library;
        EXPECT_EQ(copy.findSymbol("present"), &loader->token);
    }
    EXPECT_EQ(loader->closes, 1);
    {
        auto library = SharedLibrary::load("anything", loader);
        SharedLibrary(library).detach();
        EXPECT_TRUE(library.isDetached()) << "copies share one handle";
    }
    EXPECT_EQ(loader->closes, 1);
}

}  // namespace
