#include "cppmicroservices/BundleContext.h"

#include "bundle/BundleContextPrivate.h"
#include "bundle/BundleLifecycle.h"
#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"
#include "framework/PrivateAccess.h"
#include "service/ServiceHolder.h"
#include "service/ServiceRegistrationBasePrivate.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/IllegalStateException.h"
#include "cppmicroservices/ServiceEvent.h"

#include <filesystem>
#include <stdexcept>

namespace cppmicroservices
{
    namespace
    {
        // Pins the context for the length of a call, or throws.
        BundleContextPrivate::Pinned
        Pin(std::shared_ptr<BundleContextPrivate> const& d)
        {
            if (!d)
            {
                throw std::runtime_error("The bundle context is no longer valid");
            }
            return d->Pin();
        }

        BundleContextPrivate::Pinned
        PinForService(std::shared_ptr<BundleContextPrivate> const& d)
        {
            BundleContextPrivate::Pinned pinned;
            if (!d || !d->TryPin(pinned))
            {
                throw IllegalStateException("The bundle context is no longer valid");
            }
            return pinned;
        }

        std::shared_ptr<ServiceHolder>
        Obtain(BundleContextPrivate::Pinned const& pinned, ServiceReferenceBase const& reference)
        {
            auto const& reg = detail::PrivateAccess::Get(reference);
            if (!reg)
            {
                throw std::invalid_argument("The service reference is invalid");
            }
            return reg->usage.GetService(*reg, pinned.bundle);
        }
    } // namespace

    namespace detail
    {
        BundleContext
        MakeBundleContext(BundleContextPrivate* d)
        {
            if (d == nullptr)
            {
                return BundleContext();
            }
            return BundleContext(d->shared_from_this());
        }
    } // namespace detail

    BundleContext::BundleContext() = default;
    BundleContext::BundleContext(std::shared_ptr<BundleContextPrivate> ctx) : d(std::move(ctx)) {}
    BundleContext::BundleContext(BundleContext const&) = default;
    BundleContext::BundleContext(BundleContext&&) noexcept = default;
    BundleContext& BundleContext::operator=(BundleContext const&) = default;
    BundleContext& BundleContext::operator=(BundleContext&&) noexcept = default;
    BundleContext::~BundleContext() = default;

    BundleContext&
    BundleContext::operator=(std::nullptr_t)
    {
        d.reset();
        return *this;
    }

    bool
    BundleContext::operator==(BundleContext const& rhs) const
    {
        return d == rhs.d;
    }

    bool
    BundleContext::operator<(BundleContext const& rhs) const
    {
        return d < rhs.d;
    }

    BundleContext::operator bool() const { return d && d->IsValid(); }

    Any
    BundleContext::GetProperty(std::string const& key) const
    {
        auto pinned = Pin(d);
        auto it = pinned.core->properties.find(key);
        return it == pinned.core->properties.end() ? Any() : it->second;
    }

    AnyMap
    BundleContext::GetProperties() const
    {
        auto pinned = Pin(d);
        return pinned.core->properties;
    }

    Bundle
    BundleContext::GetBundle() const
    {
        auto pinned = Pin(d);
        return pinned.core->MakeBundle(pinned.bundle);
    }

    Bundle
    BundleContext::GetBundle(long id) const
    {
        auto pinned = Pin(d);
        if (!pinned.core->IsRunning())
        {
            throw std::logic_error("The framework is not running");
        }
        auto bundle = pinned.core->bundles.Get(id);
        return bundle ? pinned.core->MakeBundle(bundle) : Bundle();
    }

    std::vector<Bundle>
    BundleContext::GetBundles(std::string const& location) const
    {
        auto pinned = Pin(d);
        std::vector<Bundle> result;
        for (auto const& bundle : pinned.core->bundles.GetByLocation(location))
        {
            result.push_back(pinned.core->MakeBundle(bundle));
        }
        return result;
    }

    std::vector<Bundle>
    BundleContext::GetBundles() const
    {
        auto pinned = Pin(d);
        std::vector<Bundle> result;
        for (auto const& bundle : pinned.core->bundles.GetAll())
        {
            result.push_back(pinned.core->MakeBundle(bundle));
        }
        return result;
    }

    ServiceRegistrationU
    BundleContext::RegisterService(InterfaceMapConstPtr const& service, ServiceProperties const& properties)
    {
        auto pinned = Pin(d);
        auto reg = pinned.core->services.Add(pinned.core, pinned.bundle, service, properties);
        ServiceEvent const event(ServiceEvent::SERVICE_REGISTERED, detail::PrivateAccess::MakeReference(reg, nullptr));
        pinned.core->listeners.ServiceChanged(event, reg->classes, *reg->Properties());
        return ServiceRegistrationU(detail::PrivateAccess::MakeRegistration(std::move(reg)));
    }

    std::vector<ServiceReferenceU>
    BundleContext::GetServiceReferences(std::string const& clazz, std::string const& filter)
    {
        auto pinned = Pin(d);
        return pinned.core->services.Find(clazz, filter);
    }

    ServiceReferenceU
    BundleContext::GetServiceReference(std::string const& clazz)
    {
        auto pinned = Pin(d);
        return pinned.core->services.FindBest(clazz);
    }

    std::shared_ptr<void>
    BundleContext::GetService(ServiceReferenceBase const& reference)
    {
        auto pinned = PinForService(d);
        auto holder = Obtain(pinned, reference);
        std::string const* bound = detail::PrivateAccess::InterfaceId(reference);
        auto const& reg = detail::PrivateAccess::Get(reference);
        return MakeServicePointer(std::move(holder), bound ? *bound : reg->classes.front());
    }

    InterfaceMapConstPtr
    BundleContext::GetService(ServiceReferenceU const& reference)
    {
        auto pinned = PinForService(d);
        return MakeServiceMapPointer(Obtain(pinned, reference));
    }

    std::shared_ptr<BundleContextPrivate>
    BundleContext::PrepareServiceObjects(ServiceReferenceBase const& reference) const
    {
        PinForService(d);
        if (!detail::PrivateAccess::Get(reference))
        {
            throw std::invalid_argument("The service reference is invalid");
        }
        return d;
    }

    ListenerToken
    BundleContext::AddServiceListener(ServiceListener const& delegate, std::string const& filter)
    {
        auto pinned = Pin(d);
        return detail::PrivateAccess::MakeToken(pinned.core->listeners.AddServiceListener(d, delegate, filter));
    }

    ListenerToken
    BundleContext::AddBundleListener(BundleListener const& delegate)
    {
        auto pinned = Pin(d);
        return detail::PrivateAccess::MakeToken(pinned.core->listeners.AddBundleListener(d, delegate));
    }

    ListenerToken
    BundleContext::AddFrameworkListener(FrameworkListener const& delegate)
    {
        auto pinned = Pin(d);
        return detail::PrivateAccess::MakeToken(pinned.core->listeners.AddFrameworkListener(d, delegate));
    }

    void
    BundleContext::RemoveListener(ListenerToken token)
    {
        auto pinned = Pin(d);
        if (token)
        {
            pinned.core->listeners.RemoveListener(d.get(), detail::PrivateAccess::Id(token));
        }
    }

    std::string
    BundleContext::GetDataFile(std::string const& filename) const
    {
        auto pinned = Pin(d);
        std::filesystem::path const folder
            = std::filesystem::path(pinned.core->storagePath) / "data" / std::to_string(pinned.bundle->id);
        std::error_code ignored;
        std::filesystem::create_directories(folder, ignored);
        return (folder / filename).string();
    }

    std::vector<Bundle>
    BundleContext::InstallBundles(std::string const& location, AnyMap const& bundleManifest)
    {
        auto pinned = Pin(d);
        if (!pinned.core->IsRunning())
        {
            throw std::logic_error("The framework is not running");
        }
        std::vector<std::shared_ptr<BundlePrivate>> installed;
        std::vector<std::shared_ptr<BundlePrivate>> bundles;
        try
        {
            bundles = pinned.core->bundles.Install(location, bundleManifest, installed);
        }
        catch (std::exception const& e)
        {
            pinned.core->log.Error(e.what());
            throw;
        }
        Bundle const origin = pinned.core->MakeBundle(pinned.bundle);
        for (auto const& bundle : installed)
        {
            pinned.core->log.Info(bundle->Describe() + " installed");
            pinned.core->listeners.BundleChanged(
                BundleEvent(BundleEvent::BUNDLE_INSTALLED, pinned.core->MakeBundle(bundle), origin));
        }
        std::vector<Bundle> result;
        for (auto const& bundle : bundles)
        {
            result.push_back(pinned.core->MakeBundle(bundle));
        }
        return result;
    }
} // namespace cppmicroservices
