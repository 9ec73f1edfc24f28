#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace storage::sharedlib {

// How shared libraries are opened, searched and closed. Implementations must be
// thread-safe; a handle is only ever passed back to the loader that opened it.
class Loader {
public:
    virtual ~Loader() = default;

    // Opens the library at `path`. Returns its handle, or null with `cause` set to the
    // reason (for the default loader, dlerror()'s text). Does not throw except bad_alloc.
    virtual void* open(const std::filesystem::path& path, std::string& cause) = 0;
    // The address of `name` in the library, or null if it has no such symbol.
    virtual void* findSymbol(void* handle, const std::string& name) = 0;
    // Releases a handle from open(). Never throws.
    virtual void close(void* handle) noexcept = 0;
};

// dlopen(RTLD_NOW | RTLD_LOCAL) / dlsym / dlclose. One process-wide instance.
std::shared_ptr<Loader> defaultLoader();

}  // namespace storage::sharedlib
