#include "sharedlib/DlLoader.h"

#include <dlfcn.h>

namespace storage::sharedlib {

void* DlLoader::open(const std::filesystem::path& path, std::string& cause) {
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* error = ::dlerror();  // per thread, so it is ours
        cause = error != nullptr ? error : "unknown dlopen failure";
    }
    return handle;
}

void* DlLoader::findSymbol(void* handle, const std::string& name) {
    return ::dlsym(handle, name.c_str());
}

void DlLoader::close(void* handle) noexcept { ::dlclose(handle); }

std::shared_ptr<Loader> defaultLoader() {
    static const std::shared_ptr<Loader> loader = std::make_shared<DlLoader>();
    return loader;
}

}  // namespace storage::sharedlib
