#include "config/ConfigurationBroker.h"

#include "component/ComponentManager.h"
#include "config/ComponentConfigurationListener.h"
#include "runtime/DsLogger.h"

#include "cppmicroservices/servicecomponent/ComponentConstants.hpp"

#include <algorithm>

namespace cppmicroservices::ds
{
    namespace
    {
        std::string
        Escaped(std::string const& value)
        {
            std::string result;
            for (char c : value)
            {
                if (c == '\\' || c == '*' || c == '(' || c == ')')
                {
                    result += '\\';
                }
                result += c;
            }
            return result;
        }

        bool
        HasPolicy(ComponentManager const& manager)
        {
            auto const& metadata = *manager.Description().metadata;
            return metadata.configurationPolicy != service::component::ComponentConstants::CONFIG_POLICY_IGNORE
                   && !metadata.configurationPids.empty();
        }

        bool
        Uses(ComponentManager const& manager, std::string const& pid)
        {
            auto const& pids = manager.Description().metadata->configurationPids;
            return std::find(pids.begin(), pids.end(), pid) != pids.end();
        }
    } // namespace

    ConfigurationBroker::ConfigurationBroker(BundleContext context) : context(std::move(context)) {}

    ConfigurationBroker::~ConfigurationBroker() { Stop(); }

    void
    ConfigurationBroker::Start()
    {
        try
        {
            auto listener = std::make_shared<ComponentConfigurationListener>(weak_from_this());
            auto registration = context.RegisterService<service::cm::ConfigurationListener>(listener);
            auto tracker = std::make_unique<ServiceTracker<service::cm::ConfigurationAdmin>>(
                context,
                static_cast<ServiceTrackerCustomizer<service::cm::ConfigurationAdmin>*>(this));
            auto* opening = tracker.get();
            {
                std::lock_guard<std::mutex> lock(brokerMutex);
                started = true;
                listenerRegistration = registration;
                adminTracker = std::move(tracker);
            }
            // Outside the lock: the tracker reports the admin already registered on this thread.
            opening->Open();
        }
        catch (std::exception const& e)
        {
            FOUNDATION_LOG(DsLogger(), foundation::log::severity::error)
                << "Components cannot receive configurations: " << e.what();
        }
    }

    void
    ConfigurationBroker::Stop()
    {
        std::unique_ptr<ServiceTracker<service::cm::ConfigurationAdmin>> tracker;
        ServiceRegistration<service::cm::ConfigurationListener> registration;
        std::shared_ptr<service::cm::ConfigurationAdmin> released; // given back outside the lock
        {
            std::lock_guard<std::mutex> lock(brokerMutex);
            started = false;
            tracker = std::move(adminTracker);
            registration = std::move(listenerRegistration);
            listenerRegistration = nullptr;
            released.swap(admin);
        }
        if (registration)
        {
            try
            {
                registration.Unregister();
            }
            catch (std::exception const&)
            {
                // Unregistered with the runtime bundle already.
            }
        }
        if (tracker)
        {
            tracker->Close();
        }
    }

    void
    ConfigurationBroker::Attach(std::shared_ptr<ComponentManager> const& manager)
    {
        if (!HasPolicy(*manager))
        {
            return;
        }
        std::shared_ptr<service::cm::ConfigurationAdmin> current;
        {
            std::lock_guard<std::mutex> lock(brokerMutex);
            managers.push_back(manager);
            current = admin;
        }
        if (current)
        {
            FeedExisting(*current, *manager);
        }
    }

    void
    ConfigurationBroker::Detach(std::shared_ptr<ComponentManager> const& manager)
    {
        std::lock_guard<std::mutex> lock(brokerMutex);
        managers.erase(std::remove_if(managers.begin(),
                                      managers.end(),
                                      [&manager](auto const& weak)
                                      {
                                          auto locked = weak.lock();
                                          return !locked || locked == manager;
                                      }),
                       managers.end());
    }

    std::vector<std::shared_ptr<ComponentManager>>
    ConfigurationBroker::Managers() const
    {
        std::vector<std::shared_ptr<ComponentManager>> live;
        std::lock_guard<std::mutex> lock(brokerMutex);
        for (auto const& weak : managers)
        {
            if (auto manager = weak.lock())
            {
                live.push_back(std::move(manager));
            }
        }
        return live;
    }

    void
    ConfigurationBroker::ConfigurationChanged(service::cm::ConfigurationEvent const& event)
    {
        auto const pid = event.getPid().empty() ? event.getFactoryPid() : event.getPid();
        std::vector<std::shared_ptr<ComponentManager>> targets;
        for (auto& manager : Managers())
        {
            if (Uses(*manager, pid))
            {
                targets.push_back(std::move(manager));
            }
        }
        if (targets.empty())
        {
            return;
        }
        std::optional<AnyMap> properties;
        if (event.getType() == service::cm::ConfigurationEventType::CM_UPDATED)
        {
            std::shared_ptr<service::cm::ConfigurationAdmin> source;
            try
            {
                source = context.GetService(event.getReference());
            }
            catch (std::exception const&)
            {
                // The runtime is stopping.
            }
            if (!source)
            {
                std::lock_guard<std::mutex> lock(brokerMutex);
                source = admin;
            }
            if (source)
            {
                // The current state, not the event's: events of one pid may be
                // followed by more before this one is handled.
                properties = Read(*source, pid);
            }
        }
        for (auto const& manager : targets)
        {
            manager->SetConfiguration(pid, properties, true);
        }
    }

    std::optional<AnyMap>
    ConfigurationBroker::Read(service::cm::ConfigurationAdmin& source, std::string const& pid)
    {
        try
        {
            for (auto const& configuration : source.ListConfigurations("(pid=" + Escaped(pid) + ")"))
            {
                if (configuration->GetPid() == pid)
                {
                    return configuration->GetProperties();
                }
            }
        }
        catch (std::exception const&)
        {
            // Removed while being read: it has no properties.
        }
        return std::nullopt;
    }

    void
    ConfigurationBroker::FeedExisting(service::cm::ConfigurationAdmin& source, ComponentManager& manager) const
    {
        for (auto const& pid : manager.Description().metadata->configurationPids)
        {
            if (auto properties = Read(source, pid))
            {
                manager.SetConfiguration(pid, std::move(properties), false);
            }
        }
    }

    std::shared_ptr<service::cm::ConfigurationAdmin>
    ConfigurationBroker::AddingService(ServiceReference<service::cm::ConfigurationAdmin> const& reference)
    {
        std::shared_ptr<service::cm::ConfigurationAdmin> added;
        try
        {
            added = context.GetService(reference);
        }
        catch (std::exception const&)
        {
            return nullptr;
        }
        if (!added)
        {
            return nullptr;
        }
        {
            std::lock_guard<std::mutex> lock(brokerMutex);
            if (!started || admin)
            {
                return added; // tracked, but the first one stays the source
            }
            admin = added;
        }
        for (auto const& manager : Managers())
        {
            FeedExisting(*added, *manager);
        }
        return added;
    }

    void
    ConfigurationBroker::ModifiedService(ServiceReference<service::cm::ConfigurationAdmin> const&,
                                         std::shared_ptr<service::cm::ConfigurationAdmin> const&)
    {
    }

    void
    ConfigurationBroker::RemovedService(ServiceReference<service::cm::ConfigurationAdmin> const&,
                                        std::shared_ptr<service::cm::ConfigurationAdmin> const& removed)
    {
        std::shared_ptr<service::cm::ConfigurationAdmin> released; // given back outside the lock
        std::lock_guard<std::mutex> lock(brokerMutex);
        if (admin == removed)
        {
            released.swap(admin);
        }
    }
} // namespace cppmicroservices::ds
