#include "component/ComponentContextImpl.h"

#include "cppmicroservices/servicecomponent/ComponentException.hpp"

#include <algorithm>
#include <utility>

namespace cppmicroservices::ds
{
    using service::component::ComponentException;

    ComponentContextImpl::ComponentContextImpl(std::shared_ptr<ComponentDescription const> description,
                                               ServiceProperties properties,
                                               Bundle usingBundle,
                                               std::function<ServiceReferenceU()> ownReference)
        : description(std::move(description))
        , usingBundle(std::move(usingBundle))
        , ownReference(std::move(ownReference))
        , properties(std::move(properties))
        , bound(this->description->metadata->references.size())
    {
    }

    std::unordered_map<std::string, Any>
    ComponentContextImpl::GetProperties() const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        return properties;
    }

    BundleContext
    ComponentContextImpl::GetBundleContext() const
    {
        return description->bundleContext;
    }

    Bundle
    ComponentContextImpl::GetUsingBundle() const
    {
        return usingBundle;
    }

    void
    ComponentContextImpl::EnableComponent(std::string const& name)
    {
        if (description->enabler)
        {
            description->enabler(name, true);
        }
    }

    void
    ComponentContextImpl::DisableComponent(std::string const& name)
    {
        if (description->enabler)
        {
            description->enabler(name, false);
        }
    }

    ServiceReferenceBase
    ComponentContextImpl::GetServiceReference() const
    {
        return ownReference ? ownReference() : ServiceReferenceU();
    }

    void
    ComponentContextImpl::SetBound(std::vector<std::vector<BoundService>> services)
    {
        services.resize(description->metadata->references.size());
        std::lock_guard<std::mutex> lock(stateMutex);
        bound = std::move(services);
    }

    void
    ComponentContextImpl::AddBound(std::size_t index, BoundService service)
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        auto& list = bound.at(index);
        auto const position = std::find_if(list.begin(),
                                           list.end(),
                                           [&service](BoundService const& b)
                                           { return service.match.IsBetterThan(b.match); });
        list.insert(position, std::move(service));
    }

    std::optional<BoundService>
    ComponentContextImpl::RemoveBound(std::size_t index, long serviceId)
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        auto& list = bound.at(index);
        auto const found = std::find_if(list.begin(),
                                        list.end(),
                                        [serviceId](BoundService const& b) { return b.match.id == serviceId; });
        if (found == list.end())
        {
            return std::nullopt;
        }
        BoundService removed = std::move(*found);
        list.erase(found);
        return removed;
    }

    std::optional<BoundService>
    ComponentContextImpl::FindBound(std::size_t index, long serviceId) const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        auto const& list = bound.at(index);
        auto const found = std::find_if(list.begin(),
                                        list.end(),
                                        [serviceId](BoundService const& b) { return b.match.id == serviceId; });
        if (found == list.end())
        {
            return std::nullopt;
        }
        return *found;
    }

    void
    ComponentContextImpl::SetProperties(ServiceProperties newProperties)
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        properties.swap(newProperties); // the old ones die after the lock is released
    }

    void
    ComponentContextImpl::Invalidate()
    {
        std::vector<std::vector<BoundService>> released;
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            valid = false;
            released.swap(bound);
        }
        // Dropping the objects gives the services back; their factories may run here.
    }

    std::size_t
    ComponentContextImpl::IndexOfLocked(std::string const& refName) const
    {
        if (!valid)
        {
            throw ComponentException("The context of " + description->Describe()
                                     + " is no longer valid: the instance was deactivated");
        }
        auto const& references = description->metadata->references;
        for (std::size_t i = 0; i < references.size(); ++i)
        {
            if (references[i].name == refName)
            {
                return i;
            }
        }
        throw ComponentException("The " + description->Describe() + " has no reference named '" + refName + "'");
    }

    std::shared_ptr<void>
    ComponentContextImpl::LocateService(std::string const& name, std::string const& type) const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        auto const index = IndexOfLocked(name);
        auto const& reference = description->metadata->references[index];
        for (auto const& service : bound[index])
        {
            if (service.objects)
            {
                return ExtractInterface(service.objects, type.empty() ? reference.interfaceName : type);
            }
        }
        if (!reference.optional)
        {
            throw ComponentException("The mandatory reference '" + name + "' of " + description->Describe()
                                     + " has no bound service");
        }
        return nullptr;
    }

    std::shared_ptr<void>
    ComponentContextImpl::LocateService(std::string const& refName, ServiceReferenceBase const& sRef) const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        auto const index = IndexOfLocked(refName);
        for (auto const& service : bound[index])
        {
            if (service.objects && static_cast<ServiceReferenceBase const&>(service.match.reference) == sRef)
            {
                return ExtractInterface(service.objects, sRef.GetInterfaceId());
            }
        }
        return nullptr;
    }

    std::vector<std::shared_ptr<void>>
    ComponentContextImpl::LocateServices(std::string const& name, std::string const& type) const
    {
        std::lock_guard<std::mutex> lock(stateMutex);
        auto const index = IndexOfLocked(name);
        auto const& reference = description->metadata->references[index];
        std::vector<std::shared_ptr<void>> services;
        for (auto const& service : bound[index])
        {
            if (service.objects)
            {
                if (auto object = ExtractInterface(service.objects, type.empty() ? reference.interfaceName : type))
                {
                    services.push_back(std::move(object));
                }
            }
        }
        return services;
    }
} // namespace cppmicroservices::ds
