#pragma once

#include "storage/sharedlib/Loader.h"

namespace storage::sharedlib {

// The default loader: dlopen(RTLD_NOW | RTLD_LOCAL), dlsym, dlclose.
class DlLoader : public Loader {
public:
    void* open(const std::filesystem::path& path, std::string& cause) override;
    void* findSymbol(void* handle, const std::string& name) override;
    void close(void* handle) noexcept override;
};

}  // namespace storage::sharedlib
