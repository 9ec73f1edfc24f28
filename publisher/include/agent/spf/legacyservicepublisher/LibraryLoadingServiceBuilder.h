#pragma once

#include "agent/core/service/ServiceBuilderBase.h"

#include <storage/sharedlib/SharedLibrary.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

namespace agent::spf::legacyservicepublisher {

// Builds services with the builder that a shared library hands out from its exported
// function
//   extern "C" void getBuilder(std::shared_ptr<agent::core::service::ServiceBuilderBase>*);
// which stores its builder through the pointer. The library is loaded, and the builder
// fetched, by the first create() that succeeds; until then every create() tries again.
// Once loaded, the library is never unloaded: services made from it, and its builder's
// code, stay valid for the life of the process, also after this object is gone.
class LibraryLoadingServiceBuilder : public agent::core::service::ServiceBuilderBase {
public:
    // libraryName is the library's name without its suffix, with or without folders
    // ("libfoo", "/opt/lib/libfoo"); the platform's shared-library suffix is appended and
    // no folder is prefixed, so a bare name is found by the dynamic loader's search.
    // Loads nothing yet. Any thread. Throws std::invalid_argument for a name that is not
    // valid UTF-16 (an unpaired surrogate).
    static std::shared_ptr<agent::core::service::ServiceBuilderBase> make_shared(std::u16string libraryName);

    LibraryLoadingServiceBuilder(const LibraryLoadingServiceBuilder&) = delete;
    LibraryLoadingServiceBuilder& operator=(const LibraryLoadingServiceBuilder&) = delete;

    // A new, unstarted service from the library's builder. Any thread, concurrently; the
    // first call blocks while the library loads (concurrent first calls wait for it).
    // Throws storage::sharedlib::SharedLibraryError when the library cannot be loaded,
    // std::runtime_error("Failed to find getBuilder function in <path>") and
    // std::runtime_error("getBuilder from <path> failed.") when it gives no builder, and
    // what getBuilder or the library's builder throws.
    std::shared_ptr<agent::core::service::ServiceBase> create() override;
    // Leaves the library loaded on purpose.
    ~LibraryLoadingServiceBuilder() override;

private:
    explicit LibraryLoadingServiceBuilder(std::filesystem::path libraryPath);

    // Loads the library and takes its builder, once; logs "Loading <path>" at 0x08.
    void ensureLibraryLoaded();

    const std::filesystem::path libraryPath;
    // Empty until loaded; detached by the destructor.
    storage::sharedlib::SharedLibrary library;
    // Null until ensureLibraryLoaded succeeds; never changes afterwards.
    std::shared_ptr<agent::core::service::ServiceBuilderBase> builder;
    std::mutex mutex;  // guards library, builder and libraryLoaded
    bool libraryLoaded = false;
};

}  // namespace agent::spf::legacyservicepublisher
