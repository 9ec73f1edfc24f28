#pragma once

#include "storage/sharedlib/Loader.h"
#include "storage/sharedlib/SharedLibraryError.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace storage::sharedlib {

// A loaded shared library, or nothing. Copies share one handle; the library is closed
// when the last copy, and the last callable from getFunction(), goes away, unless it
// was detached. A SharedLibrary object is not synchronised: share copies, not one
// object, between threads. The shared handle itself is thread-safe.
class SharedLibrary {
    struct Handle;

public:
    SharedLibrary() = default;

    // Opens `path` with `loader`. Throws SharedLibraryError naming the path and the
    // loader's cause; std::invalid_argument("No loader given") if loader is null.
    static SharedLibrary load(const std::filesystem::path& path,
                              std::shared_ptr<Loader> loader = defaultLoader());

    explicit operator bool() const noexcept { return isLoaded(); }
    bool isLoaded() const noexcept { return static_cast<bool>(handle_); }
    // The path given to load(); empty when nothing is loaded.
    std::filesystem::path path() const;

    // The symbol's address, or null if absent or nothing is loaded.
    void* findSymbol(const std::string& name) const;

    // A callable for the function `name` with the given signature, holding the library
    // loaded for as long as it lives; an empty function if the symbol is absent. The
    // signature is not checked: it must be the function's real one.
    template <class Signature>
    std::function<Signature> getFunction(const std::string& name) const {
        void* symbol = findSymbol(name);
        if (symbol == nullptr) {
            return {};
        }
        return FunctionMaker<Signature>::make(handle_, symbol);
    }

    // The library will never be unloaded, by this or any other holder. Does nothing when
    // nothing is loaded.
    void detach() noexcept;
    bool isDetached() const noexcept;

private:
    explicit SharedLibrary(std::shared_ptr<Handle> handle) : handle_(std::move(handle)) {}

    template <class Signature>
    struct FunctionMaker;
    template <class R, class... Args>
    struct FunctionMaker<R(Args...)> {
        static std::function<R(Args...)> make(std::shared_ptr<Handle> handle, void* symbol) {
            auto function = reinterpret_cast<R (*)(Args...)>(symbol);
            return [handle = std::move(handle), function](Args... args) -> R {
                return function(std::forward<Args>(args)...);
            };
        }
    };

    std::shared_ptr<Handle> handle_;
};

}  // namespace storage::sharedlib
