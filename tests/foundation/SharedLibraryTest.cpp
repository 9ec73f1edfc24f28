#include "storage/sharedlib/SharedLibrary.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

namespace fs = std::filesystem;
using storage::sharedlib::Loader;
using storage::sharedlib::SharedLibrary;
using storage::sharedlib::SharedLibraryError;

namespace {

// Each test opens its own copy of the sample library, so that what one test leaves
// mapped (detach) cannot hide another test's unloading.
class SharedLibraryTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        folder_ = fs::temp_directory_path() /
                  ("foundation-sharedlib-" + std::to_string(::getpid()) + "-" + info->name());
        fs::create_directories(folder_);
        path_ = folder_ / "libsample.so";
        fs::copy_file(FOUNDATION_SAMPLE_LIBRARY, path_, fs::copy_options::overwrite_existing);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    // True while the library is mapped into the process; does not load it.
    bool isMapped() const {
        void* handle = ::dlopen(path_.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (handle == nullptr) {
            return false;
        }
        ::dlclose(handle);  // NOLOAD took a reference when it found the library
        return true;
    }

    fs::path folder_;
    fs::path path_;
};

TEST_F(SharedLibraryTest, LoadedLibraryGivesCallableFunctionsAndData) {
    auto library = SharedLibrary::load(path_);
    ASSERT_TRUE(library);
    EXPECT_TRUE(library.isLoaded());
    EXPECT_EQ(library.path(), path_);

    auto add = library.getFunction<int(int, int)>("sample_add");
    ASSERT_TRUE(add);
    EXPECT_EQ(add(2, 40), 42);

    auto* counter = static_cast<int*>(library.findSymbol("sample_counter"));
    ASSERT_NE(counter, nullptr);
    auto increment = library.getFunction<int()>("sample_increment");
    const int before = *counter;
    EXPECT_EQ(increment(), before + 1);
    EXPECT_EQ(*counter, before + 1);
}

TEST_F(SharedLibraryTest, MissingSymbolGivesNullAndAnEmptyFunction) {
    auto library = SharedLibrary::load(path_);
    EXPECT_EQ(library.findSymbol("no_such_symbol"), nullptr);
    EXPECT_FALSE(library.getFunction<void()>("no_such_symbol"));
}

TEST_F(SharedLibraryTest, MissingFileIsRefusedNamingThePathAndTheCause) {
    const auto missing = folder_ / "libabsent.so";
    try {
        SharedLibrary::load(missing);
        FAIL() << "no exception";
    } catch (const SharedLibraryError& e) {
        const std::string prefix = "Unable to load shared library " + missing.string() + ": ";
        EXPECT_EQ(std::string(e.what()).rfind(prefix, 0), 0u) << e.what();
        EXPECT_NE(std::string(e.what()).find("No such file"), std::string::npos) << e.what();
        EXPECT_EQ(e.path(), missing);
    }
}

TEST_F(SharedLibraryTest, FileThatIsNotALibraryIsRefused) {
    const auto bogus = folder_ / "libbogus.so";
    { std::ofstream(bogus) << "not an ELF file"; }
    EXPECT_THROW(SharedLibrary::load(bogus), SharedLibraryError);
}

TEST_F(SharedLibraryTest, LibraryIsUnloadedWhenTheLastHolderGoes) {
    std::function<int(int, int)> add;
    {
        auto library = SharedLibrary::load(path_);
        SharedLibrary copy = library;
        add = library.getFunction<int(int, int)>("sample_add");
        EXPECT_TRUE(isMapped());
    }
    EXPECT_TRUE(isMapped()) << "the function still holds the library";
    EXPECT_EQ(add(1, 1), 2);
    add = nullptr;
    EXPECT_FALSE(isMapped());
}

TEST_F(SharedLibraryTest, DetachedLibraryStaysMappedAfterEveryHolderIsGone) {
    {
        auto library = SharedLibrary::load(path_);
        SharedLibrary copy = library;
        copy.detach();
        EXPECT_TRUE(library.isDetached()) << "copies share one handle";
    }
    EXPECT_TRUE(isMapped());
}

TEST_F(SharedLibraryTest, EmptyLibraryHasNothingToFind) {
    SharedLibrary library;
    EXPECT_FALSE(library);
    EXPECT_EQ(library.findSymbol("sample_add"), nullptr);
    EXPECT_FALSE(library.getFunction<int(int, int)>("sample_add"));
    EXPECT_TRUE(library.path().empty());
    library.detach();  // harmless
}

// Records what the library asks of its loader.
class CountingLoader : public Loader {
public:
    void* open(const fs::path& path, std::string& cause) override {
        ++opens;
        if (path.filename() == "refused") {
            cause = "refused on purpose";
            return nullptr;
        }
        return &token;
    }
    void* findSymbol(void* handle, const std::string& name) override {
        return handle == &token && name == "present" ? &token : nullptr;
    }
    void close(void* handle) noexcept override {
        if (handle == &token) {
            ++closes;
        }
    }
    std::atomic<int> opens{0};
    std::atomic<int> closes{0};
    int token = 0;
};

TEST(SharedLibraryLoaderTest, LoaderClosesOnceAfterTheLastCopyAndNeverWhenDetached) {
    auto loader = std::make_shared<CountingLoader>();
    {
        auto library = SharedLibrary::load("anything", loader);
        auto copy = library;
        EXPECT_EQ(copy.findSymbol("present"), &loader->token);
        EXPECT_EQ(loader->closes, 0);
    }
    EXPECT_EQ(loader->opens, 1);
    EXPECT_EQ(loader->closes, 1);

    { SharedLibrary::load("anything", loader).detach(); }
    EXPECT_EQ(loader->closes, 1);
}

TEST(SharedLibraryLoaderTest, LoaderFailureTextReachesTheError) {
    auto loader = std::make_shared<CountingLoader>();
    try {
        SharedLibrary::load("refused", loader);
        FAIL() << "no exception";
    } catch (const SharedLibraryError& e) {
        EXPECT_STREQ(e.what(), "Unable to load shared library refused: refused on purpose");
    }
    EXPECT_THROW(SharedLibrary::load("x", nullptr), std::invalid_argument);
}

}  // namespace
