#include "component/ComponentManager.h"

#include "component/BindingRules.h"
#include "runtime/DsLogger.h"

#include <algorithm>

namespace cppmicroservices::ds
{
    namespace
    {
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
        return Obtain(target, usingBundle, true);
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

    InterfaceMapConstPtr
    ComponentManager::Obtain(std::shared_ptr<ComponentLife> const& target, Bundle const& usingBundle, bool wait)
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
                if (!wait)
                {
                    return nullptr;
                }
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
            // The singleton serves every bundle: its context names none.
            record->usingBundle = IsSingleton() ? Bundle() : usingBundle;
            record->propertiesGeneration = target->propertiesGeneration;
            for (std::size_t i = 0; i < references.size(); ++i)
            {
                record->bound.push_back(BindingRules::Initial(references[i], matches[i]));
            }
            properties = target->properties;
            bindings = record->bound;
            target->instances.push_back(record);
        }

        auto live = builder->Build(properties, bindings, record->usingBundle);
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
