#include "cppmicroservices/ServiceInterface.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace cppmicroservices::detail
{
    std::string
    GetDemangledName(std::type_info const& type)
    {
        int status = 0;
        std::unique_ptr<char, void (*)(void*)> demangled(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                         std::free);
        if (status == 0 && demangled)
        {
            return demangled.get();
        }
        return type.name();
    }
} // namespace cppmicroservices::detail
