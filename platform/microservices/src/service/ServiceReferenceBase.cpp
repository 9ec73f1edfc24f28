#include "cppmicroservices/ServiceReferenceBase.h"

#include "framework/CoreBundleContext.h"
#include "framework/PrivateAccess.h"
#include "service/ServiceHolder.h"
#include "service/ServiceRegistrationBasePrivate.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/ServiceReference.h"

#include <ostream>

namespace cppmicroservices
{
    ServiceReferenceBase::ServiceReferenceBase() : interfaceId(nullptr) {}
    ServiceReferenceBase::ServiceReferenceBase(ServiceReferenceBase const& ref) = default;
    ServiceReferenceBase::ServiceReferenceBase(ServiceReferenceBase&& ref) noexcept = default;
    ServiceReferenceBase& ServiceReferenceBase::operator=(ServiceReferenceBase const& reference) = default;
    ServiceReferenceBase& ServiceReferenceBase::operator=(ServiceReferenceBase&& reference) noexcept = default;
    ServiceReferenceBase::~ServiceReferenceBase() = default;

    ServiceReferenceBase&
    ServiceReferenceBase::operator=(std::nullptr_t)
    {
        d.reset();
        interfaceId = nullptr;
        return *this;
    }

    ServiceReferenceBase::operator bool() const { return d && d->IsAvailable(); }

    Any
    ServiceReferenceBase::GetProperty(std::string const& key) const
    {
        if (!d)
        {
            return Any();
        }
        auto props = d->Properties();
        auto it = props->find(key);
        return it == props->end() ? Any() : it->second;
    }

    void
    ServiceReferenceBase::GetPropertyKeys(std::vector<std::string>& keys) const
    {
        if (!d)
        {
            return;
        }
        auto props = d->Properties();
        keys.reserve(keys.size() + props->size());
        for (auto const& [key, value] : *props)
        {
            keys.push_back(key);
        }
    }

    std::vector<std::string>
    ServiceReferenceBase::GetPropertyKeys() const
    {
        std::vector<std::string> keys;
        GetPropertyKeys(keys);
        return keys;
    }

    Bundle
    ServiceReferenceBase::GetBundle() const
    {
        if (!d || !d->IsAvailable())
        {
            return Bundle();
        }
        auto owner = d->owner.lock();
        auto core = d->core.lock();
        if (!owner || !core)
        {
            return Bundle();
        }
        return detail::PrivateAccess::MakeBundle(std::move(owner), std::move(core));
    }

    std::vector<Bundle>
    ServiceReferenceBase::GetUsingBundles() const
    {
        std::vector<Bundle> result;
        if (!d)
        {
            return result;
        }
        auto core = d->core.lock();
        for (auto& bundle : d->usage.UsingBundles())
        {
            result.push_back(detail::PrivateAccess::MakeBundle(std::move(bundle), core));
        }
        return result;
    }

    std::string
    ServiceReferenceBase::GetInterfaceId() const
    {
        return interfaceId ? *interfaceId : std::string();
    }

    bool
    ServiceReferenceBase::IsConvertibleTo(std::string const& interfaceid) const
    {
        return d && d->FindClass(interfaceid) != nullptr;
    }

    bool
    ServiceReferenceBase::operator<(ServiceReferenceBase const& reference) const
    {
        if (!d || !reference.d)
        {
            return !d && reference.d;
        }
        if (d == reference.d)
        {
            return false;
        }
        // Read the rankings from the properties: the registry's copy is
        // guarded by its lock, the properties are a consistent snapshot.
        auto rankingOf = [](ServiceRegistrationBasePrivate const& reg)
        {
            auto props = reg.Properties();
            auto it = props->find(Constants::SERVICE_RANKING);
            if (it != props->end() && it->second.Type() == typeid(int))
            {
                return any_cast<int>(it->second);
            }
            return 0;
        };
        int const r1 = rankingOf(*d);
        int const r2 = rankingOf(*reference.d);
        if (r1 != r2)
        {
            return r1 < r2;
        }
        return d->id > reference.d->id;
    }

    bool
    ServiceReferenceBase::operator==(ServiceReferenceBase const& reference) const
    {
        return d == reference.d;
    }

    std::size_t
    ServiceReferenceBase::Hash() const
    {
        return std::hash<ServiceRegistrationBasePrivate const*>()(d.get());
    }

    void
    ServiceReferenceBase::SetInterfaceId(std::string const& id)
    {
        interfaceId = d ? d->FindClass(id) : nullptr;
        if (!interfaceId)
        {
            d.reset();
        }
    }

    std::ostream&
    operator<<(std::ostream& os, ServiceReferenceBase const& serviceRef)
    {
        if (!serviceRef)
        {
            return os << "Invalid service reference";
        }
        os << "Reference for service object registered from " << serviceRef.GetBundle().GetSymbolicName() << " "
           << serviceRef.GetBundle().GetVersion() << " (";
        bool first = true;
        for (auto const& key : serviceRef.GetPropertyKeys())
        {
            os << (first ? "" : ", ") << key << "=" << serviceRef.GetProperty(key).ToStringNoExcept();
            first = false;
        }
        return os << ")";
    }

    ServiceReferenceU
    ServiceReferenceFromService(std::shared_ptr<void> const& s)
    {
        auto* deleter = std::get_deleter<ServiceDeleter>(s);
        if (deleter == nullptr || !deleter->holder)
        {
            return ServiceReferenceU();
        }
        return detail::PrivateAccess::MakeReference(deleter->holder->registration, nullptr);
    }
} // namespace cppmicroservices
