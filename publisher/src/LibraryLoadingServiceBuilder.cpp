#include "agent/spf/legacyservicepublisher/LibraryLoadingServiceBuilder.h"

#include "agent/spf/legacyservicepublisher/Logger.h"

#include <foundation/log/DiagnosticLogger.h>
#include <foundation/text/Utf.h>

#include <functional>
#include <stdexcept>
#include <utility>

namespace agent::spf::legacyservicepublisher {

using agent::core::service::ServiceBuilderBase;

namespace {

#if defined(_WIN32)
constexpr char16_t sharedLibrarySuffix[] = u".dll";
#elif defined(__APPLE__)
constexpr char16_t sharedLibrarySuffix[] = u".dylib";
#else
constexpr char16_t sharedLibrarySuffix[] = u".so";
#endif

std::filesystem::path nativePath(const std::u16string& text) {
#if defined(_WIN32)
    return std::filesystem::path(text);
#else
    // Paths here are byte strings that the system reads as UTF-8.
    return std::filesystem::path(foundation::text::toUtf8(text));
#endif
}

std::string utf8Text(const std::filesystem::path& path) {
#if defined(_WIN32)
    return foundation::text::toUtf8(path.u16string());
#else
    return path.native();
#endif
}

}  // namespace

std::shared_ptr<ServiceBuilderBase> LibraryLoadingServiceBuilder::make_shared(std::u16string libraryName) {
    libraryName += sharedLibrarySuffix;
    return std::shared_ptr<LibraryLoadingServiceBuilder>(new LibraryLoadingServiceBuilder(nativePath(libraryName)));
}

LibraryLoadingServiceBuilder::LibraryLoadingServiceBuilder(std::filesystem::path libraryPath)
    : libraryPath(std::move(libraryPath)) {}

LibraryLoadingServiceBuilder::~LibraryLoadingServiceBuilder() {
    // Services made by the library's builder, and that builder's own code (released just
    // below), must stay valid for the life of the process.
    library.detach();
}

std::shared_ptr<agent::core::service::ServiceBase> LibraryLoadingServiceBuilder::create() {
    ensureLibraryLoaded();
    // Set under mutex before any successful ensureLibraryLoaded returned, and never again, so
    // reading it here without the lock is safe; the library's builder runs without our lock.
    return builder->create();
}

void LibraryLoadingServiceBuilder::ensureLibraryLoaded() {
    // Held while logging, loading and calling getBuilder: that is the one-time work this lock
    // serialises, and concurrent first callers must wait for its outcome.
    std::lock_guard<std::mutex> lock(mutex);
    if (libraryLoaded) {
        return;
    }
    const std::string path = utf8Text(libraryPath);
    FOUNDATION_LOG(getLogger(), 0x08) << "Loading " << path;
    library = storage::sharedlib::SharedLibrary::load(libraryPath, storage::sharedlib::defaultLoader());
    const auto getBuilder =
        library.getFunction<void(std::shared_ptr<ServiceBuilderBase>*)>("getBuilder");
    if (!getBuilder) {
        throw std::runtime_error("Failed to find getBuilder function in " + path);
    }
    getBuilder(&builder);
    if (!builder) {
        throw std::runtime_error("getBuilder from " + path + " failed.");
    }
    libraryLoaded = true;
}

}  // namespace agent::spf::legacyservicepublisher
