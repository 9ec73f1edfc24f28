#include "service/ServiceUsage.h"

#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"
#include "framework/PrivateAccess.h"
#include "service/ServiceHolder.h"
#include "service/ServiceRegistrationBasePrivate.h"

#include "cppmicroservices/ServiceException.h"

#include <algorithm>

namespace cppmicroservices
{
    namespace
    {
        void
        Report(ServiceRegistrationBasePrivate& reg,
               std::shared_ptr<BundlePrivate> const& bundle,
               std::string const& message,
               ServiceException::Type type)
        {
            if (auto core = reg.core.lock())
            {
                core->ReportError(bundle, message, std::make_exception_ptr(ServiceException(message, type)));
            }
        }

        Bundle
        HandleOf(ServiceRegistrationBasePrivate& reg, std::shared_ptr<BundlePrivate> const& bundle)
        {
            return detail::PrivateAccess::MakeBundle(bundle, reg.core.lock());
        }
    } // namespace

    std::shared_ptr<ServiceHolder>
    ServiceUsage::GetService(ServiceRegistrationBasePrivate& reg, std::shared_ptr<BundlePrivate> const& bundle)
    {
        std::shared_ptr<ServiceUseEntry> entry;
        {
            std::unique_lock<std::mutex> lock(usageMutex);
            for (;;)
            {
                if (!available)
                {
                    return nullptr;
                }
                auto& slot = entries[bundle.get()];
                if (!slot)
                {
                    slot = std::make_shared<ServiceUseEntry>();
                    slot->bundle = bundle;
                    slot->key = bundle.get();
                }
                entry = slot;
                if (!entry->creating)
                {
                    break;
                }
                if (entry->creator == std::this_thread::get_id())
                {
                    lock.unlock();
                    Report(reg,
                           bundle,
                           "ServiceFactory recursion: the factory of service " + std::to_string(reg.id)
                               + " asked for its own service",
                           ServiceException::FACTORY_RECURSION);
                    return nullptr;
                }
                creationDone.wait(lock);
            }
            ++entry->useCount;
            if (!entry->service && !reg.factory)
            {
                entry->service = reg.service;
            }
            if (entry->service)
            {
                return std::make_shared<ServiceHolder>(reg.shared_from_this(), entry, entry->service, false);
            }
            entry->creating = true;
            entry->creator = std::this_thread::get_id();
        }

        InterfaceMapConstPtr made = CallFactory(reg, bundle);

        std::shared_ptr<ServiceHolder> holder;
        std::vector<Unget> ungets;
        {
            std::lock_guard<std::mutex> lock(usageMutex);
            entry->creating = false;
            entry->creator = std::thread::id();
            if (made && !entry->released)
            {
                entry->service = made;
                holder = std::make_shared<ServiceHolder>(reg.shared_from_this(), entry, made, false);
            }
            else
            {
                --entry->useCount;
                if (made)
                {
                    ungets.push_back({ bundle, made });
                }
                EraseIfIdleLocked(entry, bundle.get());
            }
        }
        creationDone.notify_all();
        CallUnget(reg, ungets);
        return holder;
    }

    std::shared_ptr<ServiceHolder>
    ServiceUsage::GetPrototypeService(ServiceRegistrationBasePrivate& reg,
                                      std::shared_ptr<BundlePrivate> const& bundle)
    {
        if (!IsAvailable())
        {
            return nullptr;
        }
        InterfaceMapConstPtr made = CallFactory(reg, bundle);
        if (!made)
        {
            return nullptr;
        }
        {
            std::lock_guard<std::mutex> lock(usageMutex);
            if (available)
            {
                auto& slot = entries[bundle.get()];
                if (!slot)
                {
                    slot = std::make_shared<ServiceUseEntry>();
                    slot->bundle = bundle;
                    slot->key = bundle.get();
                }
                slot->prototypes.push_back(made);
                return std::make_shared<ServiceHolder>(reg.shared_from_this(), slot, made, true);
            }
        }
        // Unregistered while the factory ran.
        CallUnget(reg, { Unget{ bundle, made } });
        return nullptr;
    }

    void
    ServiceUsage::Release(ServiceRegistrationBasePrivate& reg,
                          std::shared_ptr<ServiceUseEntry> const& entry,
                          InterfaceMapConstPtr const& service,
                          bool prototype) noexcept
    {
        std::vector<Unget> ungets;
        {
            std::lock_guard<std::mutex> lock(usageMutex);
            if (entry->released)
            {
                return; // already ungot by unregistration or by the bundle stopping
            }
            if (prototype)
            {
                auto it = std::find(entry->prototypes.begin(), entry->prototypes.end(), service);
                if (it == entry->prototypes.end())
                {
                    return;
                }
                entry->prototypes.erase(it);
                ungets.push_back({ entry->bundle, service });
            }
            else if (--entry->useCount == 0)
            {
                if (reg.factory && entry->service)
                {
                    ungets.push_back({ entry->bundle, entry->service });
                }
                entry->service = nullptr;
            }
            EraseIfIdleLocked(entry, entry->key);
        }
        CallUnget(reg, ungets);
    }

    void
    ServiceUsage::ReleaseBundle(ServiceRegistrationBasePrivate& reg, BundlePrivate const* bundle)
    {
        std::vector<Unget> ungets;
        {
            std::lock_guard<std::mutex> lock(usageMutex);
            auto it = entries.find(bundle);
            if (it == entries.end())
            {
                return;
            }
            CollectLocked(reg, *it->second, ungets);
            entries.erase(it);
        }
        CallUnget(reg, ungets);
    }

    void
    ServiceUsage::MarkUnavailable(ServiceRegistrationBasePrivate& reg)
    {
        std::vector<Unget> ungets;
        {
            std::lock_guard<std::mutex> lock(usageMutex);
            available = false;
            for (auto& [key, entry] : entries)
            {
                CollectLocked(reg, *entry, ungets);
            }
            entries.clear();
        }
        creationDone.notify_all();
        CallUnget(reg, ungets);
    }

    bool
    ServiceUsage::IsAvailable() const
    {
        std::lock_guard<std::mutex> lock(usageMutex);
        return available;
    }

    bool
    ServiceUsage::IsUsedBy(BundlePrivate const* bundle) const
    {
        std::lock_guard<std::mutex> lock(usageMutex);
        auto it = entries.find(bundle);
        return it != entries.end() && (it->second->useCount > 0 || !it->second->prototypes.empty());
    }

    std::vector<std::shared_ptr<BundlePrivate>>
    ServiceUsage::UsingBundles() const
    {
        std::vector<std::shared_ptr<BundlePrivate>> result;
        std::lock_guard<std::mutex> lock(usageMutex);
        for (auto const& [key, entry] : entries)
        {
            if (entry->useCount > 0 || !entry->prototypes.empty())
            {
                if (auto b = entry->bundle.lock())
                {
                    result.push_back(std::move(b));
                }
            }
        }
        return result;
    }

    InterfaceMapConstPtr
    ServiceUsage::CallFactory(ServiceRegistrationBasePrivate& reg, std::shared_ptr<BundlePrivate> const& bundle)
    {
        InterfaceMapConstPtr made;
        try
        {
            made = reg.factory->GetService(HandleOf(reg, bundle),
                                           detail::PrivateAccess::MakeRegistration(reg.shared_from_this()));
        }
        catch (std::exception const& e)
        {
            Report(reg,
                   bundle,
                   "ServiceFactory of service " + std::to_string(reg.id) + " threw an exception: " + e.what(),
                   ServiceException::FACTORY_EXCEPTION);
            return nullptr;
        }
        catch (...)
        {
            Report(reg,
                   bundle,
                   "ServiceFactory of service " + std::to_string(reg.id) + " threw an unknown exception",
                   ServiceException::FACTORY_EXCEPTION);
            return nullptr;
        }
        if (!made || made->empty())
        {
            Report(reg,
                   bundle,
                   "ServiceFactory of service " + std::to_string(reg.id) + " returned no service object",
                   ServiceException::FACTORY_ERROR);
            return nullptr;
        }
        for (auto const& clazz : reg.classes)
        {
            auto it = made->find(clazz);
            if (it == made->end() || !it->second)
            {
                Report(reg,
                       bundle,
                       "ServiceFactory of service " + std::to_string(reg.id)
                           + " returned an object that does not provide " + clazz,
                       ServiceException::FACTORY_ERROR);
                return nullptr;
            }
        }
        return made;
    }

    void
    ServiceUsage::CallUnget(ServiceRegistrationBasePrivate& reg, std::vector<Unget> const& ungets) noexcept
    {
        for (auto const& unget : ungets)
        {
            auto bundle = unget.bundle.lock();
            try
            {
                reg.factory->UngetService(HandleOf(reg, bundle),
                                          detail::PrivateAccess::MakeRegistration(reg.shared_from_this()),
                                          unget.service);
            }
            catch (std::exception const& e)
            {
                Report(reg,
                       bundle,
                       "ServiceFactory of service " + std::to_string(reg.id) + " threw from UngetService: " + e.what(),
                       ServiceException::FACTORY_EXCEPTION);
            }
            catch (...)
            {
                Report(reg,
                       bundle,
                       "ServiceFactory of service " + std::to_string(reg.id) + " threw from UngetService",
                       ServiceException::FACTORY_EXCEPTION);
            }
        }
    }

    void
    ServiceUsage::CollectLocked(ServiceRegistrationBasePrivate const& reg,
                                ServiceUseEntry& entry,
                                std::vector<Unget>& out)
    {
        entry.released = true;
        if (reg.factory)
        {
            if (entry.service)
            {
                out.push_back({ entry.bundle, entry.service });
            }
            for (auto const& p : entry.prototypes)
            {
                out.push_back({ entry.bundle, p });
            }
        }
        entry.service = nullptr;
        entry.prototypes.clear();
        entry.useCount = 0;
    }

    void
    ServiceUsage::EraseIfIdleLocked(std::shared_ptr<ServiceUseEntry> const& entry, BundlePrivate const* key)
    {
        if (entry->useCount == 0 && entry->prototypes.empty() && !entry->creating)
        {
            auto it = entries.find(key);
            if (it != entries.end() && it->second == entry)
            {
                entries.erase(it);
            }
            entry->released = true;
        }
    }
} // namespace cppmicroservices
