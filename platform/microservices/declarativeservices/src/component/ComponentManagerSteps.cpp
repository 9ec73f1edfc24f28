// The steps of a component's transitions: deciding the next one from the
// state (under the manager's lock) and performing it (without).

#include "component/ComponentManager.h"

#include "component/BindingRules.h"
#include "component/ComponentServiceFactory.h"
#include "runtime/DsLogger.h"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/servicecomponent/ComponentConstants.hpp"

#include <algorithm>
#include <cctype>

namespace cppmicroservices::ds
{
    namespace
    {
        bool
        EqualIgnoringCase(std::string const& a, std::string const& b)
        {
            return a.size() == b.size()
                   && std::equal(a.begin(),
                                 a.end(),
                                 b.begin(),
                                 [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
        }

        // Service properties refuse keys that differ only in case, so a
        // configuration key replaces a manifest key spelled differently.
        void
        Overlay(ServiceProperties& properties, std::string const& key, Any const& value)
        {
            for (auto it = properties.begin(); it != properties.end();)
            {
                it = EqualIgnoringCase(it->first, key) ? properties.erase(it) : std::next(it);
            }
            properties[key] = value;
        }

        std::vector<ServiceMatch>
        Without(std::vector<ServiceMatch> const& list, std::vector<ServiceMatch> const& removed)
        {
            std::vector<ServiceMatch> result;
            for (auto const& match : list)
            {
                if (!ContainsService(removed, match.id))
                {
                    result.push_back(match);
                }
            }
            return result;
        }
    } // namespace

    bool
    ComponentManager::IsSatisfiedLocked() const
    {
        if (!opened || !enabled || disposed)
        {
            return false;
        }
        auto const& metadata = *description->metadata;
        if (metadata.configurationPolicy == service::component::ComponentConstants::CONFIG_POLICY_REQUIRE)
        {
            for (auto const& pid : metadata.configurationPids)
            {
                if (configurations.count(pid) == 0)
                {
                    return false;
                }
            }
        }
        for (std::size_t i = 0; i < metadata.references.size(); ++i)
        {
            if (!metadata.references[i].optional && matches[i].empty())
            {
                return false;
            }
        }
        return true;
    }

    bool
    ComponentManager::StaticBindingBrokenLocked(InstanceRecord const& record) const
    {
        auto const& references = description->metadata->references;
        for (std::size_t i = 0; i < references.size(); ++i)
        {
            if (!references[i].dynamic && BindingRules::StaticBindingBroken(references[i], record.bound[i], matches[i]))
            {
                return true;
            }
        }
        return false;
    }

    ServiceProperties
    ComponentManager::PropertiesLocked() const
    {
        auto const& metadata = *description->metadata;
        ServiceProperties properties;
        for (auto const& entry : metadata.properties)
        {
            properties[entry.first] = entry.second;
        }
        if (metadata.configurationPolicy != service::component::ComponentConstants::CONFIG_POLICY_IGNORE)
        {
            for (auto const& pid : metadata.configurationPids)
            {
                auto const found = configurations.find(pid);
                if (found != configurations.end())
                {
                    for (auto const& entry : found->second)
                    {
                        Overlay(properties, entry.first, entry.second);
                    }
                }
            }
        }
        // The runtime's own keys win, so that a component always recognises its own services.
        Overlay(properties, service::component::ComponentConstants::COMPONENT_NAME, Any(metadata.name));
        Overlay(properties, service::component::ComponentConstants::COMPONENT_ID, Any(description->id));
        // A singleton component is registered through a factory that gives every bundle the one
        // instance; saying so keeps its service.scope "singleton".
        Overlay(properties, Constants::SERVICE_SCOPE, Any(metadata.serviceScope));
        return properties;
    }

    ComponentManager::Step
    ComponentManager::EndLifeLocked()
    {
        Step step;
        step.kind = StepKind::EndLife;
        step.life = life;
        life->phase = ComponentLife::Phase::Ending;
        // Every record leaves with the step, so that none is released under the lock.
        step.instances.swap(life->instances);
        life.reset();
        return step;
    }

    ComponentManager::Step
    ComponentManager::NextStepLocked()
    {
        Step step;
        if (!opened)
        {
            return step;
        }
        bool const satisfied = IsSatisfiedLocked();
        if (!life)
        {
            if (satisfied)
            {
                life = std::make_shared<ComponentLife>();
                life->propertiesGeneration = propertiesGeneration;
                life->properties = PropertiesLocked();
                step.kind = StepKind::StartLife;
                step.life = life;
                step.properties = life->properties;
            }
            return step;
        }

        auto& instances = life->instances;
        if (std::any_of(instances.begin(),
                        instances.end(),
                        [](auto const& record) { return record->phase == InstanceRecord::Phase::Creating; }))
        {
            return step; // the creator drains once the instance is made
        }

        bool const stale = life->propertiesGeneration != propertiesGeneration;
        bool mustEnd = !satisfied || (life->broken && stale);
        for (auto const& record : instances)
        {
            mustEnd = mustEnd || record->modifiedFailed || StaticBindingBrokenLocked(*record);
        }
        if (mustEnd)
        {
            return EndLifeLocked();
        }

        for (auto it = instances.begin(); it != instances.end(); ++it)
        {
            if ((*it)->released)
            {
                step.kind = StepKind::Teardown;
                step.instances.push_back(*it);
                instances.erase(it);
                return step;
            }
        }

        if (stale && !life->broken)
        {
            auto properties = PropertiesLocked();
            for (auto const& record : instances)
            {
                if (record->phase == InstanceRecord::Phase::Active
                    && record->propertiesGeneration != propertiesGeneration)
                {
                    if (!record->live->hasModified)
                    {
                        return EndLifeLocked();
                    }
                    record->propertiesGeneration = propertiesGeneration;
                    step.kind = StepKind::Modify;
                    step.instances.push_back(record);
                    step.properties = std::move(properties);
                    return step;
                }
            }
            life->propertiesGeneration = propertiesGeneration;
            life->properties = properties;
            if (life->registration)
            {
                step.kind = StepKind::UpdateProperties;
                step.life = life;
                step.properties = std::move(properties);
                return step;
            }
        }

        auto const& references = description->metadata->references;
        for (auto const& record : instances)
        {
            if (record->phase != InstanceRecord::Phase::Active)
            {
                continue;
            }
            for (std::size_t i = 0; i < references.size(); ++i)
            {
                if (!references[i].dynamic)
                {
                    continue;
                }
                auto target = BindingRules::DynamicTarget(references[i], record->bound[i], matches[i]);
                auto add = Without(target, record->bound[i]);
                auto remove = Without(record->bound[i], target);
                record->bound[i] = std::move(target); // a mere change of order needs no step
                if (!add.empty() || !remove.empty())
                {
                    step.kind = StepKind::Rebind;
                    step.instances.push_back(record);
                    step.reference = i;
                    step.add = std::move(add);
                    step.remove = std::move(remove);
                    return step;
                }
            }
        }

        if (description->metadata->immediate && !life->immediateAttempted && !life->broken && instances.empty()
            && life->phase == ComponentLife::Phase::Registered)
        {
            life->immediateAttempted = true;
            step.kind = StepKind::CreateImmediate;
            step.life = life;
        }
        return step;
    }

    void
    ComponentManager::Execute(Step& step)
    {
        try
        {
            switch (step.kind)
            {
                case StepKind::None:
                    break;
                case StepKind::StartLife:
                    StartLife(step);
                    break;
                case StepKind::CreateImmediate:
                    Obtain(step.life, Bundle(), false);
                    break;
                case StepKind::EndLife:
                    EndLife(step);
                    break;
                case StepKind::Teardown:
                    if (step.instances.front()->phase == InstanceRecord::Phase::Active)
                    {
                        builder->Destroy(*step.instances.front()->live);
                    }
                    break;
                case StepKind::Rebind:
                    Rebind(step);
                    break;
                case StepKind::Modify:
                {
                    auto const& record = step.instances.front();
                    record->live->context->SetProperties(step.properties);
                    if (!builder->InvokeModified(*record->live))
                    {
                        std::lock_guard<std::mutex> lock(stateMutex);
                        record->modifiedFailed = true;
                    }
                    break;
                }
                case StepKind::UpdateProperties:
                    step.life->registration.SetProperties(step.properties);
                    break;
            }
        }
        catch (std::exception const& e)
        {
            FOUNDATION_LOG(DsLogger(), foundation::log::severity::error)
                << "Error while updating the " << description->Describe() << ": " << e.what();
        }
        catch (...)
        {
            FOUNDATION_LOG(DsLogger(), foundation::log::severity::error)
                << "Unknown error while updating the " << description->Describe();
        }
    }

    void
    ComponentManager::StartLife(Step& step)
    {
        auto const& metadata = *description->metadata;
        if (metadata.serviceInterfaces.empty())
        {
            {
                std::lock_guard<std::mutex> lock(stateMutex);
                step.life->phase = ComponentLife::Phase::Registered;
            }
            stateChanged.notify_all();
            return;
        }
        std::shared_ptr<ServiceFactory> factory;
        if (metadata.serviceScope == "prototype")
        {
            factory = std::make_shared<ComponentPrototypeFactory>(weak_from_this(), step.life);
        }
        else
        {
            factory = std::make_shared<ComponentServiceFactory>(weak_from_this(), step.life);
        }
        auto interfaces = std::make_shared<InterfaceMap>();
        for (auto const& name : metadata.serviceInterfaces)
        {
            (*interfaces)[name] = factory;
        }
        (*interfaces)[cppmicroservices::detail::kServiceFactoryKey] = factory;

        ServiceRegistrationU registration;
        std::string failure;
        try
        {
            BundleContext context = description->bundleContext;
            registration = context.RegisterService(interfaces, step.properties);
        }
        catch (std::exception const& e)
        {
            failure = e.what();
        }
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            step.life->registration = registration;
            step.life->broken = !failure.empty();
            step.life->phase = ComponentLife::Phase::Registered;
        }
        stateChanged.notify_all();
        if (!failure.empty())
        {
            FOUNDATION_LOG(DsLogger(), foundation::log::severity::error)
                << "The " << description->Describe() << " could not register its service: " << failure;
        }
    }

    void
    ComponentManager::EndLife(Step& step)
    {
        if (step.life->registration)
        {
            try
            {
                step.life->registration.Unregister();
            }
            catch (std::logic_error const&)
            {
                // The framework unregistered it already (its bundle is stopping).
            }
        }
        for (auto it = step.instances.rbegin(); it != step.instances.rend(); ++it)
        {
            if ((*it)->phase == InstanceRecord::Phase::Active)
            {
                builder->Destroy(*(*it)->live);
            }
        }
    }

    void
    ComponentManager::Rebind(Step& step)
    {
        auto& live = *step.instances.front()->live;
        for (auto const& match : step.add)
        {
            auto bound = builder->Acquire(step.reference, match);
            live.context->AddBound(step.reference, bound);
            builder->InvokeBind(live, step.reference, bound);
        }
        for (auto const& match : step.remove)
        {
            if (auto bound = live.context->FindBound(step.reference, match.id))
            {
                builder->InvokeUnbind(live, step.reference, *bound);
                live.context->RemoveBound(step.reference, match.id);
            }
        }
    }
} // namespace cppmicroservices::ds
