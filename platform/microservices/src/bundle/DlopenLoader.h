#ifndef CPPMICROSERVICES_SRC_BUNDLE_DLOPENLOADER_H
#define CPPMICROSERVICES_SRC_BUNDLE_DLOPENLOADER_H

#include "storage/sharedlib/Loader.h"

namespace cppmicroservices
{
    // dlopen with the flags of Constants::LIBRARY_LOAD_OPTIONS. Thread-safe.
    class DlopenLoader final : public storage::sharedlib::Loader
    {
      public:
        explicit DlopenLoader(int flags) : flags(flags) {}

        void* open(std::filesystem::path const& path, std::string& cause) override;
        void* findSymbol(void* handle, std::string const& name) override;
        void close(void* handle) noexcept override;

      private:
        int const flags;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_BUNDLE_DLOPENLOADER_H
