#include "bundle/DlopenLoader.h"

#include <dlfcn.h>

namespace cppmicroservices
{
    void*
    DlopenLoader::open(std::filesystem::path const& path, std::string& cause)
    {
        void* handle = dlopen(path.c_str(), flags);
        if (handle == nullptr)
        {
            char const* error = dlerror();
            cause = error != nullptr ? error : "unknown dlopen error";
        }
        return handle;
    }

    void*
    DlopenLoader::findSymbol(void* handle, std::string const& name)
    {
        return dlsym(handle, name.c_str());
    }

    void
    DlopenLoader::close(void* handle) noexcept
    {
        dlclose(handle);
    }
} // namespace cppmicroservices
