#include "cppmicroservices/ServiceRegistrationBase.h"

#include "framework/CoreBundleContext.h"
#include "framework/PrivateAccess.h"
#include "service/ServicePropertiesBuilder.h"
#include "service/ServiceRegistrationBasePrivate.h"

#include "cppmicroservices/ServiceEvent.h"

#include <stdexcept>

namespace cppmicroservices
{
    namespace
    {
        void
        ThrowIfGone(std::shared_ptr<ServiceRegistrationBasePrivate> const& d)
        {
            if (!d)
            {
                throw std::logic_error("ServiceRegistrationBase object invalid");
            }
            if (!d->IsAvailable() || d->life.load() == ServiceRegistrationBasePrivate::Life::Unregistered)
            {
                throw std::logic_error("Service is unregistered");
            }
        }

        void
        ApplyProperties(std::shared_ptr<ServiceRegistrationBasePrivate> const& d, ServiceProperties properties)
        {
            ThrowIfGone(d);
            int ranking = 0;
            auto props = ServicePropertiesBuilder::Build(std::move(properties),
                                                         d->id,
                                                         d->classes,
                                                         d->Scope(),
                                                         ServicePropertiesBuilder::RankingCheck::Strict,
                                                         ranking);
            auto const old = d->ExchangeProperties(props);
            auto core = d->core.lock();
            if (!core)
            {
                return;
            }
            core->services.UpdateRanking(d, ranking);
            ServiceEvent const event(ServiceEvent::SERVICE_MODIFIED,
                                     detail::PrivateAccess::MakeReference(d, nullptr));
            core->listeners.ServiceChanged(event, d->classes, *props, old.get());
        }
    } // namespace

    ServiceRegistrationBase::ServiceRegistrationBase() = default;
    ServiceRegistrationBase::ServiceRegistrationBase(ServiceRegistrationBase const& reg) = default;
    ServiceRegistrationBase::ServiceRegistrationBase(ServiceRegistrationBase&& reg) noexcept = default;
    ServiceRegistrationBase& ServiceRegistrationBase::operator=(ServiceRegistrationBase const& registration)
        = default;
    ServiceRegistrationBase& ServiceRegistrationBase::operator=(ServiceRegistrationBase&& registration) noexcept
        = default;
    ServiceRegistrationBase::~ServiceRegistrationBase() = default;

    ServiceRegistrationBase&
    ServiceRegistrationBase::operator=(std::nullptr_t)
    {
        d.reset();
        return *this;
    }

    ServiceRegistrationBase::operator bool() const { return static_cast<bool>(d); }

    ServiceReferenceBase
    ServiceRegistrationBase::GetReference(std::string const& interfaceId) const
    {
        ThrowIfGone(d);
        std::string const* boundTo = interfaceId.empty() ? &d->classes.front() : d->FindClass(interfaceId);
        if (boundTo == nullptr)
        {
            throw std::invalid_argument("The service was not registered under the interface " + interfaceId);
        }
        return detail::PrivateAccess::MakeReference(d, boundTo);
    }

    void
    ServiceRegistrationBase::SetProperties(ServiceProperties const& properties)
    {
        ApplyProperties(d, properties);
    }

    void
    ServiceRegistrationBase::SetProperties(ServiceProperties&& properties)
    {
        ApplyProperties(d, std::move(properties));
    }

    void
    ServiceRegistrationBase::Unregister()
    {
        if (!d)
        {
            throw std::logic_error("ServiceRegistrationBase object invalid");
        }
        auto expected = ServiceRegistrationBasePrivate::Life::Registered;
        if (!d->life.compare_exchange_strong(expected, ServiceRegistrationBasePrivate::Life::Unregistering))
        {
            if (expected == ServiceRegistrationBasePrivate::Life::Unregistering)
            {
                return; // another thread is unregistering it right now
            }
            throw std::logic_error("Service is unregistered");
        }

        auto core = d->core.lock();
        if (core)
        {
            core->services.Remove(*d);
            // The service is still obtainable while the listeners run.
            ServiceEvent const event(ServiceEvent::SERVICE_UNREGISTERING,
                                     detail::PrivateAccess::MakeReference(d, nullptr));
            core->listeners.ServiceChanged(event, d->classes, *d->Properties());
        }
        d->usage.MarkUnavailable(*d);
        d->life.store(ServiceRegistrationBasePrivate::Life::Unregistered);
    }

    bool
    ServiceRegistrationBase::operator<(ServiceRegistrationBase const& o) const
    {
        auto const ref = [](std::shared_ptr<ServiceRegistrationBasePrivate> const& p)
        { return detail::PrivateAccess::MakeReference(p, nullptr); };
        return ref(d) < ref(o.d);
    }

    bool
    ServiceRegistrationBase::operator==(ServiceRegistrationBase const& registration) const
    {
        return d == registration.d;
    }

    std::size_t
    ServiceRegistrationBase::Hash() const
    {
        return std::hash<ServiceRegistrationBasePrivate const*>()(d.get());
    }
} // namespace cppmicroservices
