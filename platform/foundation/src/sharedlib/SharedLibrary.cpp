#include "storage/sharedlib/SharedLibrary.h"

#include <atomic>
#include <stdexcept>

namespace storage::sharedlib {

// Shared by every copy of a SharedLibrary and every callable from getFunction.
struct SharedLibrary::Handle {
    Handle(std::shared_ptr<Loader> loader, void* native, std::filesystem::path path)
        : loader(std::move(loader)), native(native), path(std::move(path)) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (!detached.load(std::memory_order_acquire)) {
            loader->close(native);
        }
    }

    const std::shared_ptr<Loader> loader;
    void* const native;
    const std::filesystem::path path;
    std::atomic<bool> detached{false};
};

SharedLibrary SharedLibrary::load(const std::filesystem::path& path, std::shared_ptr<Loader> loader) {
    if (!loader) {
        throw std::invalid_argument("No loader given");
    }
    std::string cause;
    void* native = loader->open(path, cause);
    if (native == nullptr) {
        throw SharedLibraryError(path, cause.empty() ? "the loader gave no reason" : cause);
    }
    try {
        return SharedLibrary(std::make_shared<Handle>(loader, native, path));
    } catch (...) {
        loader->close(native);
        throw;
    }
}

std::filesystem::path SharedLibrary::path() const { return handle_ ? handle_->path : std::filesystem::path(); }

void* SharedLibrary::findSymbol(const std::string& name) const {
    return handle_ ? handle_->loader->findSymbol(handle_->native, name) : nullptr;
}

void SharedLibrary::detach() noexcept {
    if (handle_) {
        handle_->detached.store(true, std::memory_order_release);
    }
}

bool SharedLibrary::isDetached() const noexcept {
    return handle_ && handle_->detached.load(std::memory_order_acquire);
}

}  // namespace storage::sharedlib
