// Starts Configuration Admin with its bundle: registers the
// ConfigurationAdmin service, tracks the services it delivers to, and
// watches the folder named by the framework property
// org.cppmicroservices.cm.configuration.directory when that is set.
//
// Stopping ends the watcher, unregisters the service, then stops delivery:
// changes queued but not yet delivered are dropped (their futures become
// ready), a callback under way is waited for unless the stop comes from that
// very callback, and nothing is delivered after Stop returns.

#include "CmLogger.h"
#include "ConfigurationAdminImpl.h"
#include "ConfigurationDirectoryWatcher.h"
#include "NotificationDispatcher.h"
#include "TargetTracker.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"
#include "cppmicroservices/cm/ConfigurationAdmin.hpp"
#include "cppmicroservices/cm/ConfigurationListener.hpp"
#include "cppmicroservices/cm/ManagedService.hpp"
#include "cppmicroservices/cm/ManagedServiceFactory.hpp"

#include "foundation/log/Severity.h"

#include <exception>
#include <memory>
#include <string>

namespace cppmicroservices::cmimpl
{
    namespace
    {
        char const* const kDirectoryProperty = "org.cppmicroservices.cm.configuration.directory";

        class ConfigurationAdminActivator final : public BundleActivator
        {
          public:
            void
            Start(BundleContext context) override
            {
                try
                {
                    Open(context);
                }
                catch (...)
                {
                    Close();
                    throw;
                }
            }

            void
            Stop(BundleContext) override
            {
                Close();
            }

          private:
            void
            Open(BundleContext context)
            {
                dispatcher = std::make_shared<NotificationDispatcher>();
                admin = std::make_shared<ConfigurationAdminImpl>(dispatcher);
                registration = context.RegisterService<service::cm::ConfigurationAdmin>(admin);
                dispatcher->SetAdminReference(registration.GetReference());

                NotificationDispatcher::CurrentState currentState = [weak = std::weak_ptr(admin)]
                {
                    auto const owner = weak.lock();
                    return owner ? owner->CurrentState() : std::vector<ConfigurationChange>();
                };
                listeners = std::make_unique<TargetTracker<service::cm::ConfigurationListener>>(context, dispatcher,
                                                                                                nullptr);
                managedServices = std::make_unique<TargetTracker<service::cm::ManagedService>>(context, dispatcher,
                                                                                               currentState);
                factories = std::make_unique<TargetTracker<service::cm::ManagedServiceFactory>>(context, dispatcher,
                                                                                                currentState);
                listeners->Open();
                managedServices->Open();
                factories->Open();

                Any const directory = context.GetProperty(kDirectoryProperty);
                if (directory.Empty())
                {
                    return;
                }
                if (directory.Type() != typeid(std::string))
                {
                    FOUNDATION_LOG(CmLogger(), foundation::log::severity::error)
                        << "The framework property " << kDirectoryProperty
                        << " must be a std::string; no configuration directory is watched";
                    return;
                }
                watcher = std::make_unique<ConfigurationDirectoryWatcher>(admin, any_cast<std::string>(directory));
                if (!watcher->Start())
                {
                    watcher.reset();
                }
            }

            // Never throws; safe on a half-opened activator.
            void
            Close() noexcept
            {
                watcher.reset();
                if (registration)
                {
                    try
                    {
                        registration.Unregister();
                    }
                    catch (std::exception const&)
                    {
                        // Already unregistered.
                    }
                    registration = nullptr;
                }
                if (dispatcher)
                {
                    dispatcher->Stop();
                }
                CloseTracker(listeners);
                CloseTracker(managedServices);
                CloseTracker(factories);
                admin.reset();
                dispatcher.reset();
            }

            template <class Tracker>
            static void
            CloseTracker(std::unique_ptr<Tracker>& tracker) noexcept
            {
                if (!tracker)
                {
                    return;
                }
                try
                {
                    tracker->Close();
                }
                catch (std::exception const& e)
                {
                    FOUNDATION_LOG(CmLogger(), foundation::log::severity::error)
                        << "Closing a service tracker failed: " << e.what();
                }
                tracker.reset();
            }

            std::shared_ptr<NotificationDispatcher> dispatcher;
            std::shared_ptr<ConfigurationAdminImpl> admin;
            ServiceRegistration<service::cm::ConfigurationAdmin> registration;
            std::unique_ptr<TargetTracker<service::cm::ConfigurationListener>> listeners;
            std::unique_ptr<TargetTracker<service::cm::ManagedService>> managedServices;
            std::unique_ptr<TargetTracker<service::cm::ManagedServiceFactory>> factories;
            std::unique_ptr<ConfigurationDirectoryWatcher> watcher;
        };
    } // namespace
} // namespace cppmicroservices::cmimpl

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(cppmicroservices::cmimpl::ConfigurationAdminActivator)
