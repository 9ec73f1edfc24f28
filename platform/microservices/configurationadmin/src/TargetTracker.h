#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_TARGETTRACKER_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_TARGETTRACKER_H

#include "CmLogger.h"
#include "DeliveryTarget.h"
#include "NotificationDispatcher.h"
#include "ServicePids.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/ServiceTracker.h"
#include "cppmicroservices/cm/ConfigurationListener.hpp"
#include "cppmicroservices/cm/ManagedService.hpp"
#include "cppmicroservices/cm/ManagedServiceFactory.hpp"

#include "foundation/log/Severity.h"

#include <exception>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace cppmicroservices::cmimpl
{
    // Tracks the services of one of the three interfaces Configuration Admin
    // delivers to (S: ConfigurationListener, ManagedService or
    // ManagedServiceFactory) and keeps the dispatcher's targets in step.
    //
    // The customizer calls run on the thread that registers, modifies or
    // unregisters the service (Open and Close: the caller's), take no lock
    // of ours across the framework call that gets the service object, and
    // never wait for delivery. A managed service or factory without a PID is
    // not tracked (logged as a warning).
    template <class S>
    class TargetTracker final : public ServiceTrackerCustomizer<S, DeliveryTarget>
    {
      public:
        TargetTracker(BundleContext const& context,
                      std::shared_ptr<NotificationDispatcher> dispatcher,
                      NotificationDispatcher::CurrentState currentState)
            : context(context)
            , dispatcher(std::move(dispatcher))
            , currentState(std::move(currentState))
            , tracker(context, this)
        {
        }

        // See ServiceTracker::Open and Close; Close blocks until customizer
        // calls of other threads have ended.
        void
        Open()
        {
            tracker.Open();
        }

        void
        Close()
        {
            tracker.Close();
        }

        std::shared_ptr<DeliveryTarget>
        AddingService(ServiceReference<S> const& reference) override
        {
            try
            {
                return Add(reference);
            }
            catch (std::exception const& e)
            {
                FOUNDATION_LOG(CmLogger(), foundation::log::severity::error)
                    << "Cannot track " << Describe(reference) << ": " << e.what();
                return nullptr;
            }
        }

        void
        ModifiedService(ServiceReference<S> const& reference, std::shared_ptr<DeliveryTarget> const& target) override
        {
            if constexpr (!std::is_same_v<S, service::cm::ConfigurationListener>)
            {
                dispatcher->ChangePids(target, ServicePids(reference), currentState);
            }
        }

        void
        RemovedService(ServiceReference<S> const&, std::shared_ptr<DeliveryTarget> const& target) override
        {
            dispatcher->Remove(target);
        }

      private:
        std::shared_ptr<DeliveryTarget>
        Add(ServiceReference<S> const& reference)
        {
            if constexpr (std::is_same_v<S, service::cm::ConfigurationListener>)
            {
                auto listener = context.GetService(reference);
                return listener ? dispatcher->AddListener(std::move(listener), Describe(reference)) : nullptr;
            }
            else
            {
                auto pids = ServicePids(reference);
                if (pids.empty())
                {
                    FOUNDATION_LOG(CmLogger(), foundation::log::severity::warning)
                        << Describe(reference) << " has neither a service.pid nor a component.name and is ignored";
                    return nullptr;
                }
                auto service = context.GetService(reference);
                if (!service)
                {
                    return nullptr;
                }
                if constexpr (std::is_same_v<S, service::cm::ManagedService>)
                {
                    return dispatcher->AddManagedService(std::move(service), std::move(pids), Describe(reference),
                                                         currentState);
                }
                else
                {
                    return dispatcher->AddFactory(std::move(service), std::move(pids), Describe(reference),
                                                  currentState);
                }
            }
        }

        static std::string
        Describe(ServiceReference<S> const& reference)
        {
            std::string const name = us_service_interface_iid<S>();
            std::string description = name.substr(name.rfind(':') + 1) + " (service.id "
                                      + reference.GetProperty(Constants::SERVICE_ID).ToStringNoExcept();
            if (auto bundle = reference.GetBundle())
            {
                description += " of bundle " + bundle.GetSymbolicName();
            }
            return description + ")";
        }

        BundleContext context;
        std::shared_ptr<NotificationDispatcher> const dispatcher;
        NotificationDispatcher::CurrentState const currentState;
        ServiceTracker<S, DeliveryTarget> tracker;
    };
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_TARGETTRACKER_H
