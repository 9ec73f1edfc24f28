#ifndef CPPMICROSERVICES_CM_CONFIGURATION_HPP
#define CPPMICROSERVICES_CM_CONFIGURATION_HPP

#include "cppmicroservices/AnyMap.h"

#include <future>
#include <string>
#include <utility>

namespace cppmicroservices::service::cm
{
    /// One configuration: a PID and its properties. Obtained from
    /// ConfigurationAdmin and shared by everybody who asks for the same PID.
    ///
    /// Every member may be called from any thread, including from managed
    /// services and listeners on the delivery thread. None calls out to other
    /// code: changes are applied at once and delivered later, in the order
    /// they were made, on Configuration Admin's delivery thread. Once the
    /// configuration is removed every member throws std::runtime_error.
    ///
    /// The futures returned are ready once every ConfigurationListener,
    /// ManagedService and ManagedServiceFactory concerned was called (or once
    /// Configuration Admin stopped before it got to them). Waiting for one on
    /// the delivery thread itself would wait forever.
    class Configuration
    {
      public:
        virtual ~Configuration() noexcept = default;

        /// The PID, e.g. "my.service" or "my.factory~instance".
        virtual std::string GetPid() const = 0;

        /// The text before the first '~' of the PID, or "" when it has none.
        virtual std::string GetFactoryPid() const = 0;

        /// A copy of the properties; an empty case-insensitive map until the
        /// first update.
        virtual AnyMap GetProperties() const = 0;

        /// 0 until the first update; every Update adds one.
        virtual unsigned long GetChangeCount() const = 0;

        /// Replaces the properties and adds one to the change count, even
        /// when they are equal to the current ones. Non-blocking.
        virtual std::shared_future<void> Update(AnyMap properties
                                                = AnyMap{ AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS })
            = 0;

        /// Update, only if properties differ from the current ones (AnyMap
        /// equality, which also compares the map kind). Returns whether it
        /// updated, and the future of that update (a ready one otherwise).
        virtual std::pair<bool, std::shared_future<void>> UpdateIfDifferent(
            AnyMap properties = AnyMap{ AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS })
            = 0;

        /// Removes the configuration: ConfigurationAdmin forgets the PID, and
        /// managed services that were given it are told. Non-blocking.
        virtual std::shared_future<void> Remove() = 0;
    };
} // namespace cppmicroservices::service::cm

#endif // CPPMICROSERVICES_CM_CONFIGURATION_HPP
