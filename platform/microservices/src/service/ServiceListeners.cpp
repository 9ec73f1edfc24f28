#include "service/ServiceListeners.h"

#include "bundle/BundleContextPrivate.h"
#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"
#include "service/SimpleObjectClassFilter.h"

#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/ServiceEvent.h"

#include <algorithm>

namespace cppmicroservices
{
    namespace
    {
        std::string
        SymbolicNameOf(BundleContextPrivate const& context)
        {
            auto bundle = context.bundle.lock();
            return bundle ? bundle->symbolicName : std::string("<gone>");
        }

        template <class EntryPtr>
        bool
        ShouldCall(EntryPtr const& entry)
        {
            return !entry->removed.load() && entry->context->IsValid();
        }
    } // namespace

    ServiceListeners::ServiceListeners(CoreBundleContext& core)
        : core(core)
        , serviceListeners(std::make_shared<ServiceSnapshot>())
        , bundleListeners(std::make_shared<BundleSnapshot>())
        , frameworkListeners(std::make_shared<FrameworkSnapshot>())
    {
    }

    ListenerTokenId
    ServiceListeners::AddServiceListener(std::shared_ptr<BundleContextPrivate> const& context,
                                         ServiceListener listener,
                                         std::string const& filter)
    {
        auto entry = std::make_shared<ServiceEntry>();
        entry->context = context;
        entry->listener = std::move(listener);
        if (!filter.empty())
        {
            if (auto clazz = SimpleObjectClassFilter(filter))
            {
                entry->objectClass = *clazz;
            }
            else
            {
                entry->filter.emplace(filter); // throws std::invalid_argument when malformed
            }
        }
        entry->id = nextId.fetch_add(1);

        std::lock_guard<std::mutex> lock(listenersMutex);
        auto next = std::make_shared<ServiceSnapshot>(*serviceListeners);
        if (entry->objectClass.empty())
        {
            next->general.push_back(entry);
        }
        else
        {
            next->byClass[entry->objectClass].push_back(entry);
        }
        serviceListeners = std::move(next);
        return entry->id;
    }

    ListenerTokenId
    ServiceListeners::AddBundleListener(std::shared_ptr<BundleContextPrivate> const& context, BundleListener listener)
    {
        auto entry = std::make_shared<BundleEntry>();
        entry->context = context;
        entry->listener = std::move(listener);
        entry->id = nextId.fetch_add(1);

        std::lock_guard<std::mutex> lock(listenersMutex);
        auto next = std::make_shared<BundleSnapshot>(*bundleListeners);
        next->push_back(entry);
        bundleListeners = std::move(next);
        return entry->id;
    }

    ListenerTokenId
    ServiceListeners::AddFrameworkListener(std::shared_ptr<BundleContextPrivate> const& context,
                                           FrameworkListener listener)
    {
        auto entry = std::make_shared<FrameworkEntry>();
        entry->context = context;
        entry->listener = std::move(listener);
        entry->id = nextId.fetch_add(1);

        std::lock_guard<std::mutex> lock(listenersMutex);
        auto next = std::make_shared<FrameworkSnapshot>(*frameworkListeners);
        next->push_back(entry);
        frameworkListeners = std::move(next);
        return entry->id;
    }

    template <class Pred>
    void
    ServiceListeners::RemoveLocked(Pred pred)
    {
        auto prune = [&](auto& list)
        {
            bool changed = false;
            for (auto it = list.begin(); it != list.end();)
            {
                if (pred(**it))
                {
                    (*it)->removed.store(true);
                    it = list.erase(it);
                    changed = true;
                }
                else
                {
                    ++it;
                }
            }
            return changed;
        };

        auto services = std::make_shared<ServiceSnapshot>(*serviceListeners);
        bool changed = prune(services->general);
        for (auto it = services->byClass.begin(); it != services->byClass.end();)
        {
            changed = prune(it->second) || changed;
            it = it->second.empty() ? services->byClass.erase(it) : std::next(it);
        }
        if (changed)
        {
            serviceListeners = std::move(services);
        }

        auto bundles = std::make_shared<BundleSnapshot>(*bundleListeners);
        if (prune(*bundles))
        {
            bundleListeners = std::move(bundles);
        }
        auto frameworks = std::make_shared<FrameworkSnapshot>(*frameworkListeners);
        if (prune(*frameworks))
        {
            frameworkListeners = std::move(frameworks);
        }
    }

    void
    ServiceListeners::RemoveListener(BundleContextPrivate const* context, ListenerTokenId id)
    {
        std::lock_guard<std::mutex> lock(listenersMutex);
        RemoveLocked([&](Entry const& e) { return e.id == id && e.context.get() == context; });
    }

    void
    ServiceListeners::RemoveAllListeners(BundleContextPrivate const* context)
    {
        std::lock_guard<std::mutex> lock(listenersMutex);
        RemoveLocked([&](Entry const& e) { return e.context.get() == context; });
    }

    void
    ServiceListeners::ServiceChanged(ServiceEvent const& event,
                                     std::vector<std::string> const& classes,
                                     AnyMap const& properties,
                                     AnyMap const* oldProperties)
    {
        std::shared_ptr<ServiceSnapshot const> snapshot;
        {
            std::lock_guard<std::mutex> lock(listenersMutex);
            snapshot = serviceListeners;
        }

        // Listeners are called in the order they were added.
        std::vector<ServiceEntry*> receivers;
        receivers.reserve(snapshot->general.size());
        for (auto const& e : snapshot->general)
        {
            receivers.push_back(e.get());
        }
        bool const mixed = !receivers.empty();
        for (auto const& clazz : classes)
        {
            auto it = snapshot->byClass.find(clazz);
            if (it != snapshot->byClass.end())
            {
                for (auto const& e : it->second)
                {
                    receivers.push_back(e.get());
                }
            }
        }
        if (mixed || classes.size() > 1)
        {
            std::sort(receivers.begin(), receivers.end(), [](auto* a, auto* b) { return a->id < b->id; });
        }

        ServiceEvent endMatch;
        for (ServiceEntry* entry : receivers)
        {
            if (!ShouldCall(entry))
            {
                continue;
            }
            ServiceEvent const* delivered = &event;
            bool const matches
                = !entry->filter || detail::LDAPMatchValidatedProperties(*entry->filter, properties);
            if (!matches)
            {
                if (event.GetType() != ServiceEvent::SERVICE_MODIFIED || oldProperties == nullptr
                    || !detail::LDAPMatchValidatedProperties(*entry->filter, *oldProperties))
                {
                    continue;
                }
                if (!endMatch)
                {
                    endMatch = ServiceEvent(ServiceEvent::SERVICE_MODIFIED_ENDMATCH, event.GetServiceReference());
                }
                delivered = &endMatch;
            }
            try
            {
                entry->listener(*delivered);
            }
            catch (...)
            {
                auto bundle = entry->context->bundle.lock();
                core.ReportError(bundle,
                                 "Service listener in " + SymbolicNameOf(*entry->context) + " threw an exception!",
                                 std::current_exception());
            }
        }
    }

    void
    ServiceListeners::BundleChanged(BundleEvent const& event)
    {
        std::shared_ptr<BundleSnapshot const> snapshot;
        {
            std::lock_guard<std::mutex> lock(listenersMutex);
            snapshot = bundleListeners;
        }
        for (auto const& entry : *snapshot)
        {
            if (!ShouldCall(entry))
            {
                continue;
            }
            try
            {
                entry->listener(event);
            }
            catch (...)
            {
                auto bundle = entry->context->bundle.lock();
                core.ReportError(bundle,
                                 "Bundle listener in " + SymbolicNameOf(*entry->context) + " threw an exception!",
                                 std::current_exception());
            }
        }
    }

    void
    ServiceListeners::FrameworkChanged(FrameworkEvent const& event)
    {
        std::shared_ptr<FrameworkSnapshot const> snapshot;
        {
            std::lock_guard<std::mutex> lock(listenersMutex);
            snapshot = frameworkListeners;
        }
        for (auto const& entry : *snapshot)
        {
            if (!ShouldCall(entry))
            {
                continue;
            }
            try
            {
                entry->listener(event);
            }
            catch (std::exception const& e)
            {
                // Reporting it as a framework event could loop; the log is the end of the line.
                core.log.Error("Framework listener in " + SymbolicNameOf(*entry->context)
                               + " threw an exception: " + e.what());
            }
            catch (...)
            {
                core.log.Error("Framework listener in " + SymbolicNameOf(*entry->context)
                               + " threw an unknown exception");
            }
        }
    }

    std::size_t
    ServiceListeners::ServiceListenerCount() const
    {
        std::lock_guard<std::mutex> lock(listenersMutex);
        std::size_t n = serviceListeners->general.size();
        for (auto const& [clazz, list] : serviceListeners->byClass)
        {
            n += list.size();
        }
        return n;
    }
} // namespace cppmicroservices
