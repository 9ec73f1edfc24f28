#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_DELIVERYTARGET_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_DELIVERYTARGET_H

#include "cppmicroservices/cm/ConfigurationListener.hpp"
#include "cppmicroservices/cm/ManagedService.hpp"
#include "cppmicroservices/cm/ManagedServiceFactory.hpp"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace cppmicroservices::cmimpl
{
    // One tracked service that configuration changes are delivered to:
    // exactly one of the three pointers is set. Made by
    // NotificationDispatcher when a tracker adds the service.
    struct DeliveryTarget
    {
        std::shared_ptr<service::cm::ConfigurationListener> listener;
        std::shared_ptr<service::cm::ManagedService> managedService;
        std::shared_ptr<service::cm::ManagedServiceFactory> factory;
        std::string description; ///< names the service in log lines

        // Cleared when the service goes, so that deliveries already under
        // way skip it.
        std::atomic<bool> active{ true };

        // The (generation, change count) last delivered per PID; an entry is
        // erased when its removal is delivered. Only the delivery thread
        // touches it.
        std::map<std::string, std::pair<std::uint64_t, unsigned long>> delivered;
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_DELIVERYTARGET_H
