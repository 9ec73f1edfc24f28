#include "service/ServiceRegistrationBasePrivate.h"

#include "cppmicroservices/Constants.h"

#include <algorithm>

namespace cppmicroservices
{
    ServiceRegistrationBasePrivate::ServiceRegistrationBasePrivate(long id,
                                                                   std::vector<std::string> classes,
                                                                   InterfaceMapConstPtr service,
                                                                   std::shared_ptr<ServiceFactory> factory,
                                                                   bool prototype,
                                                                   std::string const& scope,
                                                                   std::shared_ptr<BundlePrivate> const& owner,
                                                                   std::weak_ptr<CoreBundleContext> core,
                                                                   std::shared_ptr<AnyMap const> properties,
                                                                   int ranking)
        : id(id)
        , classes(std::move(classes))
        , service(std::move(service))
        , factory(std::move(factory))
        , prototype(prototype)
        , scope(scope)
        , owner(owner)
        , ownerKey(owner.get())
        , core(std::move(core))
        , ranking(ranking)
        , properties(std::move(properties))
    {
    }

    std::shared_ptr<AnyMap const>
    ServiceRegistrationBasePrivate::Properties() const
    {
        std::lock_guard<std::mutex> lock(propertiesMutex);
        return properties;
    }

    std::shared_ptr<AnyMap const>
    ServiceRegistrationBasePrivate::ExchangeProperties(std::shared_ptr<AnyMap const> newProperties)
    {
        std::lock_guard<std::mutex> lock(propertiesMutex);
        properties.swap(newProperties);
        return newProperties;
    }

    std::string const*
    ServiceRegistrationBasePrivate::FindClass(std::string const& interfaceId) const
    {
        auto it = std::find(classes.begin(), classes.end(), interfaceId);
        return it == classes.end() ? nullptr : &*it;
    }

    std::string const&
    ServiceRegistrationBasePrivate::Scope() const
    {
        return scope;
    }
} // namespace cppmicroservices
