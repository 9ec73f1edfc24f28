#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_SERVICEPIDS_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_SERVICEPIDS_H

#include "cppmicroservices/ServiceReferenceBase.h"

#include <string>
#include <vector>

namespace cppmicroservices::cmimpl
{
    // The PIDs a managed service (or the factory PIDs a managed service
    // factory) asks for: its service.pid property, a std::string or a
    // std::vector of std::string or of Any holding std::string; without
    // service.pid, its component.name (set by Declarative Services). Empty
    // strings are left out; empty when there is none. Never throws except
    // std::bad_alloc.
    std::vector<std::string> ServicePids(ServiceReferenceBase const& reference);
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_SERVICEPIDS_H
