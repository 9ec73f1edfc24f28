#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONCHANGE_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONCHANGE_H

#include "cppmicroservices/AnyMap.h"

#include <cstdint>
#include <string>

namespace cppmicroservices::cmimpl
{
    // What one delivery tells: the state of a configuration right after a
    // change, copied when the change was made.
    struct ConfigurationChange
    {
        enum class Kind
        {
            Updated,
            Removed
        };

        Kind kind = Kind::Updated;
        std::string pid;
        std::string factoryPid; ///< "" for a configuration that is not a factory's
        // Tells apart configurations that had the same PID one after the
        // other: every ConfigurationImpl gets a higher one than those before.
        std::uint64_t generation = 0;
        unsigned long changeCount = 0;
        // The delivery sequence number (DeliveryThread) of the change that
        // produced this state.
        std::uint64_t sequence = 0;
        AnyMap properties{ AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS }; ///< empty for Removed
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_CONFIGURATIONCHANGE_H
