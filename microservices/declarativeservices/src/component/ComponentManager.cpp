#include "component/ComponentManager.h"

#include "component/BindingRules.h"
#include "component/ComponentPrototypeFactory.h"
#include "component/ComponentServiceFactory.h"
#include "runtime/DsLogger.h"

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

        void
        InsertSorted(std::vector<ServiceMatch>& list, ServiceMatch const& match)
        {
            list.erase(std::remove_if(list.begin(),
                                      list.end(),
                                      [&match](ServiceMatch const& m) { return m.id == match.id; }),
                       list.end());
            auto const position = std::find_if(list.begin(),
                                               list.end(),
                                               [&match](ServiceMatch const& m) { return match.IsBetterThan(m); });
            list.insert(position, match);
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

    std::shared_ptr<ComponentManager>
    ComponentManager::Create(std::shared_ptr<ComponentDescription const> description)
    {
        std::shared_ptr<ComponentManager> manager(new ComponentManager(std::move(description)));
        std::weak_ptr<ComponentManager> weak = manager;
        manager->builder = std::make_unique<InstanceBuilder>(manager->description,
                                                             [weak]
                                                             {
                                                                 auto owner = weak.lock();
                                                                 return owner ? owner->OwnReference()
                                                                              : ServiceReferenceU();
                                                             });
        return manager;
    }

    ComponentManager::ComponentManager(std::shared_ptr<ComponentDescription const> description)
        : description(std::move(description))
        , enabled(this->description->metadata->enabled)
        , matches(this->description->metadata->references.size())
    {
    }

    ComponentManager::~ComponentManager() = default;

    bool
    ComponentManager::IsSingleton() const
    {
        return description->metadata->serviceScope == "singleton";
    }

    void
    ComponentManager::Open()
    {
        auto const& references = description->metadata->references;
        std::vector<std::unique_ptr<ReferenceTracker>> opening;
        try
        {
            for (std::size_t i = 0; i < references.size(); ++i)
            {
                opening.push_back(std::make_unique<ReferenceTracker>(description->bundleContext,
                                                                     references[i],
                                                                     i,
                                                                     description->id,
                                                                     weak_from_this()));
                opening.back()->Open();
            }
        }
        catch (std::exception const& e)
        {
            opening.clear(); // closes the ones opened
            throw std::runtime_error("Cannot track the references of the " + description->Describe() + ": "
                                     + e.what());
        }
        bool lateForDisposal = false;
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (disposed)
            {
                lateForDisposal = true;
            }
            else
            {
                trackers = std::move(opening);
                opened = true;
            }
        }
        if (lateForDisposal)
        {
            return; // opening closes the trackers as it goes out of scope
        }
        Drain();
    }

    void
    ComponentManager::Dispose()
    {
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            disposed = true;
        }
        Drain();
        std::vector<std::unique_ptr<ReferenceTracker>> closing;
        {
            std::unique_lock<std::mutex> lock(stateMutex);
            auto const self = std::this_thread::get_id();
            stateChanged.wait(lock,
                              [&]
                              {
                                  return (!life && !drainer) || drainer == self || CreatingOnThisThreadLocked();
                              });
            closing.swap(trackers);
        }
        for (auto& tracker : closing)
        {
            tracker->Close();
        }
    }

    void
    ComponentManager::SetEnabled(bool enable)
    {
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            enabled = enable;
        }
        Drain();
    }

    void
    ComponentManager::SetConfiguration(std::string const& pid, std::optional<AnyMap> properties, bool fromEvent)
    {
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (disposed || (!fromEvent && pidsWithEvents.count(pid) != 0))
            {
                return;
            }
            if (fromEvent)
            {
                pidsWithEvents.insert(pid);
            }
            if (properties)
            {
                configurations.insert_or_assign(pid, std::move(*properties));
            }
            else if (configurations.erase(pid) == 0)
            {
                return;
            }
            ++propertiesGeneration;
        }
        Drain();
    }

    void
    ComponentManager::ReferenceAdded(std::size_t index, ServiceMatch const& match)
    {
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (disposed)
            {
                return;
            }
            InsertSorted(matches[index], match);
        }
        Drain();
    }

    void
    ComponentManager::ReferenceModified(std::size_t index, ServiceMatch const& match)
    {
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (disposed || !ContainsService(matches[index], match.id))
            {
                return;
            }
            InsertSorted(matches[index], match);
        }
        Drain();
    }

    void
    ComponentManager::ReferenceRemoved(std::size_t index, long serviceId)
    {
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (disposed)
            {
                return;
            }
            auto& list = matches[index];
            list.erase(std::remove_if(list.begin(),
                                      list.end(),
                                      [serviceId](ServiceMatch const& m) { return m.id == serviceId; }),
                       list.end());
        }
        Drain();
    }

    InterfaceMapConstPtr
    ComponentManager::GetService(std::shared_ptr<ComponentLife> const& target, Bundle const& usingBundle)
    {
        return Obtain(target, usingBundle);
    }

    void
    ComponentManager::UngetService(std::shared_ptr<ComponentLife> const& target, InterfaceMapConstPtr const& service)
    {
        if (IsSingleton())
        {
            return; // the one instance lives as long as the life
        }
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (target != life || target->phase == ComponentLife::Phase::Ending)
            {
                return;
            }
            auto const found = std::find_if(target->instances.begin(),
                                            target->instances.end(),
                                            [&service](auto const& record)
                                            { return record->live && record->live->interfaces == service; });
            if (found == target->instances.end())
            {
                return;
            }
            (*found)->released = true;
        }
        Drain();
    }

    ServiceReferenceU
    ComponentManager::OwnReference() const
    {
        ServiceRegistrationU registration;
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            if (life)
            {
                registration = life->registration;
            }
        }
        try
        {
            return registration ? ServiceReferenceU(registration.GetReference()) : ServiceReferenceU();
        }
        catch (std::logic_error const&)
        {
            return ServiceReferenceU(); // unregistered meanwhile
        }
    }

    bool
    ComponentManager::CreatingOnThisThreadLocked() const
    {
        auto const self = std::this_thread::get_id();
        return life
               && std::any_of(life->instances.begin(),
                              life->instances.end(),
                              [self](auto const& record)
                              { return record->phase == InstanceRecord::Phase::Creating && record->creator == self; });
    }

    void
    ComponentManager::Drain()
    {
        std::unique_lock<std::mutex> lock(stateMutex);
        if (drainer)
        {
            return; // the drainer looks at the state again after its current step
        }
        drainer = std::this_thread::get_id();
        for (;;)
        {
            Step step = NextStepLocked();
            if (step.kind == StepKind::None)
            {
                break;
            }
            lock.unlock();
            Execute(step);
            lock.lock();
        }
        drainer.reset();
        lock.unlock();
        stateChanged.notify_all();
    }

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
        return properties;
    }

    ComponentManager::Step
    ComponentManager::EndLifeLocked()
    {
        Step step;
        step.kind = StepKind::EndLife;
        step.life = life;
        life->phase = ComponentLife::Phase::Ending;
        for (auto const& record : life->instances)
        {
            if (record->phase == InstanceRecord::Phase::Active)
            {
                step.instances.push_back(record);
            }
        }
        life->instances.clear();
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
                auto record = *it;
                instances.erase(it);
                if (record->phase == InstanceRecord::Phase::Active)
                {
                    step.kind = StepKind::Teardown;
                    step.instances.push_back(std::move(record));
                    return step;
                }
                return NextStepLocked();
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
                if (!SameServices(target, record->bound[i]))
                {
                    step.kind = StepKind::Rebind;
                    step.instances.push_back(record);
                    step.reference = i;
                    step.add = Without(target, record->bound[i]);
                    step.remove = Without(record->bound[i], target);
                    record->bound[i] = std::move(target);
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
                    Obtain(step.life, Bundle());
                    break;
                case StepKind::EndLife:
                    EndLife(step);
                    break;
                case StepKind::Teardown:
                    builder->Destroy(*step.instances.front()->live);
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
            registration = description->bundleContext.RegisterService(interfaces, step.properties);
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
            builder->Destroy(*(*it)->live);
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

    InterfaceMapConstPtr
    ComponentManager::Obtain(std::shared_ptr<ComponentLife> const& target, Bundle const& usingBundle)
    {
        auto const self = std::this_thread::get_id();
        auto const& references = description->metadata->references;
        auto record = std::make_shared<InstanceRecord>();
        ServiceProperties properties;
        std::vector<std::vector<ServiceMatch>> bindings;
        {
            std::unique_lock<std::mutex> lock(stateMutex);
            if (target != life || target->phase == ComponentLife::Phase::Ending)
            {
                return nullptr;
            }
            if (IsSingleton() && !target->instances.empty())
            {
                auto existing = target->instances.front();
                stateChanged.wait(lock,
                                  [&]
                                  {
                                      return existing->phase != InstanceRecord::Phase::Creating
                                             || existing->creator == self
                                             || target->phase == ComponentLife::Phase::Ending;
                                  });
                if (existing->phase != InstanceRecord::Phase::Creating)
                {
                    bool const usable
                        = existing->phase == InstanceRecord::Phase::Active && target->phase != ComponentLife::Phase::Ending;
                    return usable ? existing->live->interfaces : nullptr;
                }
                if (target->phase == ComponentLife::Phase::Ending)
                {
                    return nullptr;
                }
                lock.unlock();
                FOUNDATION_LOG(DsLogger(), foundation::log::severity::warning)
                    << "The " << description->Describe()
                    << " was requested while it is being created on the same thread (a circular dependency); "
                       "that request gets no service";
                return nullptr;
            }
            record->creator = self;
            record->usingBundle = usingBundle;
            record->propertiesGeneration = target->propertiesGeneration;
            for (std::size_t i = 0; i < references.size(); ++i)
            {
                record->bound.push_back(BindingRules::Initial(references[i], matches[i]));
            }
            properties = target->properties;
            bindings = record->bound;
            target->instances.push_back(record);
        }

        auto live = builder->Build(properties, bindings, usingBundle);
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            record->live = live;
            record->phase = live ? InstanceRecord::Phase::Active : InstanceRecord::Phase::Failed;
            record->creator = std::thread::id();
        }
        stateChanged.notify_all();
        Drain();

        std::lock_guard<std::mutex> lock(stateMutex);
        if (!live || target->phase == ComponentLife::Phase::Ending)
        {
            return nullptr;
        }
        return live->interfaces;
    }
} // namespace cppmicroservices::ds
