#ifndef CPPMICROSERVICES_SERVICEPROPERTIES_H
#define CPPMICROSERVICES_SERVICEPROPERTIES_H

#include "cppmicroservices/Any.h"

#include <string>
#include <unordered_map>

namespace cppmicroservices
{
    // Properties handed to RegisterService and SetProperties. Keys are
    // compared without regard to case once registered, so two keys that
    // differ only in case are rejected.
    using ServiceProperties = std::unordered_map<std::string, Any>;
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SERVICEPROPERTIES_H
