#include "service/ServiceRegistry.h"

#include "framework/PrivateAccess.h"
#include "service/ServicePropertiesBuilder.h"
#include "service/ServiceRegistrationBasePrivate.h"
#include "service/SimpleObjectClassFilter.h"
#include "util/EqualIgnoringCase.h"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/PrototypeServiceFactory.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <stdexcept>

namespace cppmicroservices
{
    namespace
    {
        // Service ids are unique in the process and never reused.
        std::atomic<long> nextServiceId{ 1 };

        // Best first: higher ranking, then lower id.
        bool
        Before(ServiceRegistrationBasePrivate const& a, ServiceRegistrationBasePrivate const& b)
        {
            if (a.ranking != b.ranking)
            {
                return a.ranking > b.ranking;
            }
            return a.id < b.id;
        }

        std::string
        StripScope(std::string const& name)
        {
            return name.compare(0, 2, "::") == 0 ? name.substr(2) : name;
        }

        // The framework sets service.scope, with one exception: a plain service factory that hands
        // every bundle the same object (a singleton component of Declarative Services) may say so
        // with "singleton", which clients filter on.
        std::string const&
        ScopeOf(bool factory, bool prototype, ServiceProperties const& properties)
        {
            if (!factory)
            {
                return Constants::SCOPE_SINGLETON;
            }
            if (prototype)
            {
                return Constants::SCOPE_PROTOTYPE;
            }
            for (auto const& [key, value] : properties)
            {
                if (EqualIgnoringCase(key, Constants::SERVICE_SCOPE) && value.Type() == typeid(std::string)
                    && ref_any_cast<std::string>(value) == Constants::SCOPE_SINGLETON)
                {
                    return Constants::SCOPE_SINGLETON;
                }
            }
            return Constants::SCOPE_BUNDLE;
        }
    } // namespace

    std::shared_ptr<ServiceRegistrationBasePrivate>
    ServiceRegistry::Add(std::shared_ptr<CoreBundleContext> const& core,
                         std::shared_ptr<BundlePrivate> const& bundle,
                         InterfaceMapConstPtr const& service,
                         ServiceProperties const& properties)
    {
        if (!service || service->empty())
        {
            throw std::invalid_argument("Can't register an empty InterfaceMap as a service");
        }

        std::shared_ptr<ServiceFactory> factory;
        auto factoryIt = service->find(detail::kServiceFactoryKey);
        if (factoryIt != service->end())
        {
            factory = std::static_pointer_cast<ServiceFactory>(factoryIt->second);
            if (!factory)
            {
                throw std::invalid_argument("Can't register a null service factory");
            }
        }

        // Interface ids are stored without a leading "::"; rebuild the map when
        // one had it, so that lookups by the stored id find the object.
        bool rebuild = false;
        std::vector<std::string> classes;
        for (auto const& [key, object] : *service)
        {
            if (key.empty())
            {
                throw std::invalid_argument("Can't register a service under an empty interface id");
            }
            if (key == detail::kServiceFactoryKey)
            {
                continue;
            }
            if (!object)
            {
                throw std::invalid_argument("Can't register a null service object for " + key);
            }
            std::string clazz = StripScope(key);
            rebuild = rebuild || clazz != key;
            classes.push_back(std::move(clazz));
        }
        if (classes.empty())
        {
            throw std::invalid_argument("Can't register a service without an interface id");
        }
        std::sort(classes.begin(), classes.end());
        classes.erase(std::unique(classes.begin(), classes.end()), classes.end());

        InterfaceMapConstPtr stored = service;
        if (rebuild)
        {
            auto copy = std::make_shared<InterfaceMap>();
            for (auto const& [key, object] : *service)
            {
                copy->insert_or_assign(key == detail::kServiceFactoryKey ? key : StripScope(key), object);
            }
            stored = std::move(copy);
        }

        bool const prototype = factory && std::dynamic_pointer_cast<PrototypeServiceFactory>(factory) != nullptr;
        std::string const& scope = ScopeOf(factory != nullptr, prototype, properties);

        long const id = nextServiceId.fetch_add(1);
        int ranking = 0;
        auto props = ServicePropertiesBuilder::Build(properties,
                                                     id,
                                                     classes,
                                                     scope,
                                                     ServicePropertiesBuilder::RankingCheck::Lenient,
                                                     ranking);
        auto reg = std::make_shared<ServiceRegistrationBasePrivate>(id,
                                                                    std::move(classes),
                                                                    std::move(stored),
                                                                    std::move(factory),
                                                                    prototype,
                                                                    scope,
                                                                    bundle,
                                                                    core,
                                                                    std::move(props),
                                                                    ranking);

        std::lock_guard<std::mutex> lock(registryMutex);
        servicesById.emplace(id, reg);
        for (auto const& clazz : reg->classes)
        {
            InsertSortedLocked(servicesByClass[clazz], reg);
        }
        return reg;
    }

    std::vector<ServiceReferenceU>
    ServiceRegistry::Find(std::string const& clazz, std::string const& filterText) const
    {
        std::optional<LDAPFilter> filter;
        if (!filterText.empty())
        {
            filter.emplace(filterText);
        }

        std::string indexClass = StripScope(clazz);
        bool registrationOrder = indexClass.empty();
        if (indexClass.empty() && filter)
        {
            // "(objectclass=X)" alone, as trackers use: answer it from the index.
            if (auto simple = SimpleObjectClassFilter(filterText))
            {
                indexClass = *simple;
                filter.reset();
            }
        }

        Registrations candidates;
        {
            std::lock_guard<std::mutex> lock(registryMutex);
            if (indexClass.empty())
            {
                candidates.reserve(servicesById.size());
                for (auto const& [id, reg] : servicesById)
                {
                    candidates.push_back(reg);
                }
            }
            else
            {
                auto it = servicesByClass.find(indexClass);
                if (it != servicesByClass.end())
                {
                    candidates = it->second;
                }
            }
        }
        if (registrationOrder && !indexClass.empty())
        {
            std::sort(candidates.begin(),
                      candidates.end(),
                      [](auto const& a, auto const& b) { return a->id < b->id; });
        }

        std::vector<ServiceReferenceU> result;
        result.reserve(candidates.size());
        for (auto& reg : candidates)
        {
            if (filter && !detail::LDAPMatchValidatedProperties(*filter, *reg->Properties()))
            {
                continue;
            }
            std::string const* boundTo = registrationOrder ? nullptr : reg->FindClass(indexClass);
            result.emplace_back(detail::PrivateAccess::MakeReference(std::move(reg), boundTo));
        }
        return result;
    }

    ServiceReferenceU
    ServiceRegistry::FindBest(std::string const& clazz) const
    {
        std::string const indexClass = StripScope(clazz);
        std::shared_ptr<ServiceRegistrationBasePrivate> best;
        {
            std::lock_guard<std::mutex> lock(registryMutex);
            if (indexClass.empty())
            {
                for (auto const& [id, reg] : servicesById)
                {
                    if (!best || Before(*reg, *best))
                    {
                        best = reg;
                    }
                }
            }
            else
            {
                auto it = servicesByClass.find(indexClass);
                if (it != servicesByClass.end() && !it->second.empty())
                {
                    best = it->second.front();
                }
            }
        }
        if (!best)
        {
            return ServiceReferenceU();
        }
        std::string const* boundTo = indexClass.empty() ? nullptr : best->FindClass(indexClass);
        return detail::PrivateAccess::MakeReference(std::move(best), boundTo);
    }

    bool
    ServiceRegistry::Remove(ServiceRegistrationBasePrivate const& reg)
    {
        std::lock_guard<std::mutex> lock(registryMutex);
        if (servicesById.erase(reg.id) == 0)
        {
            return false;
        }
        for (auto const& clazz : reg.classes)
        {
            auto it = servicesByClass.find(clazz);
            if (it == servicesByClass.end())
            {
                continue;
            }
            auto& list = it->second;
            list.erase(std::remove_if(list.begin(), list.end(), [&](auto const& r) { return r.get() == &reg; }),
                       list.end());
            if (list.empty())
            {
                servicesByClass.erase(it);
            }
        }
        return true;
    }

    void
    ServiceRegistry::UpdateRanking(std::shared_ptr<ServiceRegistrationBasePrivate> const& reg, int ranking)
    {
        std::lock_guard<std::mutex> lock(registryMutex);
        if (reg->ranking == ranking)
        {
            return;
        }
        if (servicesById.count(reg->id) == 0)
        {
            reg->ranking = ranking; // already unregistered: nothing to re-sort
            return;
        }
        for (auto const& clazz : reg->classes)
        {
            auto& list = servicesByClass[clazz];
            list.erase(std::remove(list.begin(), list.end(), reg), list.end());
        }
        reg->ranking = ranking;
        for (auto const& clazz : reg->classes)
        {
            InsertSortedLocked(servicesByClass[clazz], reg);
        }
    }

    std::vector<std::shared_ptr<ServiceRegistrationBasePrivate>>
    ServiceRegistry::RegisteredBy(BundlePrivate const* bundle) const
    {
        Registrations result;
        std::lock_guard<std::mutex> lock(registryMutex);
        for (auto const& [id, reg] : servicesById)
        {
            if (reg->ownerKey == bundle)
            {
                result.push_back(reg);
            }
        }
        return result;
    }

    std::vector<std::shared_ptr<ServiceRegistrationBasePrivate>>
    ServiceRegistry::All() const
    {
        Registrations result;
        std::lock_guard<std::mutex> lock(registryMutex);
        result.reserve(servicesById.size());
        for (auto const& [id, reg] : servicesById)
        {
            result.push_back(reg);
        }
        return result;
    }

    void
    ServiceRegistry::InsertSortedLocked(Registrations& list, std::shared_ptr<ServiceRegistrationBasePrivate> const& reg)
    {
        auto pos = std::upper_bound(list.begin(),
                                    list.end(),
                                    reg,
                                    [](auto const& a, auto const& b) { return Before(*a, *b); });
        list.insert(pos, reg);
    }
} // namespace cppmicroservices
