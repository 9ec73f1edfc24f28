#ifndef CPPMICROSERVICES_DS_COMPONENT_ENTRYPOINTS_H
#define CPPMICROSERVICES_DS_COMPONENT_ENTRYPOINTS_H

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/servicecomponent/detail/ComponentInstance.hpp"

#include <string>

namespace cppmicroservices::ds
{
    /// The extern "C" functions through which a bundle makes and destroys
    /// instances of one component: NewInstance_<name> and
    /// DeleteInstance_<name>, with every "::" of the name replaced by "_".
    struct EntryPoints
    {
        using NewFn = service::component::detail::ComponentInstance* (*)();
        using DeleteFn = void (*)(service::component::detail::ComponentInstance*);

        NewFn create = nullptr;
        DeleteFn destroy = nullptr;

        /// "NewInstance_" + name with "::" replaced by "_".
        static std::string NewSymbol(std::string const& componentName);
        static std::string DeleteSymbol(std::string const& componentName);

        /// Loads the bundle's library (once; it is never unloaded, and its
        /// static initialisers run on this thread) and finds both symbols.
        /// Blocking. Throws std::runtime_error naming the bundle, the component
        /// and the missing symbol, or the reason the library did not load.
        static EntryPoints Resolve(Bundle const& bundle, std::string const& componentName);
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_ENTRYPOINTS_H
