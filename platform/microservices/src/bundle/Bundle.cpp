#include "cppmicroservices/Bundle.h"

#include "bundle/BundleContextPrivate.h"
#include "bundle/BundleLifecycle.h"
#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"
#include "framework/PrivateAccess.h"
#include "service/ServiceRegistrationBasePrivate.h"

#include "cppmicroservices/BundleContext.h"

#include <dlfcn.h>
#include <ostream>
#include <stdexcept>

namespace cppmicroservices
{
    namespace
    {
        void
        CheckValid(std::shared_ptr<BundlePrivate> const& d)
        {
            if (!d)
            {
                throw std::invalid_argument("invalid bundle");
            }
        }

        void
        CheckFramework(std::shared_ptr<BundlePrivate> const& d, std::shared_ptr<CoreBundleContext> const& c)
        {
            CheckValid(d);
            if (!c)
            {
                throw std::logic_error("The framework of " + d->Describe() + " is gone");
            }
        }

        void
        CheckInstalled(std::shared_ptr<BundlePrivate> const& d)
        {
            CheckValid(d);
            if (d->GetState() == Bundle::STATE_UNINSTALLED)
            {
                throw std::logic_error(d->Describe() + " is uninstalled");
            }
        }
    } // namespace

    Bundle::Bundle() = default;
    Bundle::Bundle(Bundle const&) = default;
    Bundle::Bundle(Bundle&&) noexcept = default;
    Bundle& Bundle::operator=(Bundle const&) = default;
    Bundle& Bundle::operator=(Bundle&&) noexcept = default;
    Bundle::~Bundle() = default;

    Bundle::Bundle(std::shared_ptr<BundlePrivate> d, std::shared_ptr<CoreBundleContext> c)
        : d(std::move(d))
        , c(std::move(c))
    {
    }

    Bundle&
    Bundle::operator=(std::nullptr_t)
    {
        d.reset();
        c.reset();
        return *this;
    }

    bool
    Bundle::operator==(Bundle const& rhs) const
    {
        return d == rhs.d;
    }

    bool
    Bundle::operator<(Bundle const& rhs) const
    {
        if (!d || !rhs.d)
        {
            return !d && rhs.d;
        }
        return d->id < rhs.d->id;
    }

    Bundle::operator bool() const { return static_cast<bool>(d); }

    Bundle::State
    Bundle::GetState() const
    {
        CheckValid(d);
        return d->GetState();
    }

    BundleContext
    Bundle::GetBundleContext() const
    {
        CheckValid(d);
        auto const state = d->GetState();
        if (state != STATE_STARTING && state != STATE_ACTIVE && state != STATE_STOPPING)
        {
            return BundleContext();
        }
        auto context = d->CurrentContext();
        if (!context || !context->IsValid())
        {
            return BundleContext();
        }
        return detail::PrivateAccess::MakeContext(std::move(context));
    }

    long
    Bundle::GetBundleId() const
    {
        CheckValid(d);
        return d->id;
    }

    std::string
    Bundle::GetLocation() const
    {
        CheckValid(d);
        return d->location;
    }

    void*
    Bundle::GetSymbol(void* handle, std::string const& symname) const
    {
        if (!d || handle == nullptr || symname.empty())
        {
            return nullptr;
        }
        return dlsym(handle, symname.c_str());
    }

    std::string
    Bundle::GetSymbolicName() const
    {
        CheckValid(d);
        return d->symbolicName;
    }

    BundleVersion
    Bundle::GetVersion() const
    {
        CheckValid(d);
        return d->version;
    }

    AnyMap const&
    Bundle::GetHeaders() const
    {
        CheckValid(d);
        return d->headers;
    }

    std::vector<ServiceReferenceU>
    Bundle::GetRegisteredServices() const
    {
        CheckInstalled(d);
        std::vector<ServiceReferenceU> result;
        if (!c)
        {
            return result;
        }
        for (auto& reg : c->services.RegisteredBy(d.get()))
        {
            result.emplace_back(detail::PrivateAccess::MakeReference(std::move(reg), nullptr));
        }
        return result;
    }

    std::vector<ServiceReferenceU>
    Bundle::GetServicesInUse() const
    {
        CheckInstalled(d);
        std::vector<ServiceReferenceU> result;
        if (!c)
        {
            return result;
        }
        for (auto& reg : c->services.All())
        {
            if (reg->usage.IsUsedBy(d.get()))
            {
                result.emplace_back(detail::PrivateAccess::MakeReference(std::move(reg), nullptr));
            }
        }
        return result;
    }

    void
    Bundle::Start(uint32_t)
    {
        CheckFramework(d, c);
        if (d->IsSystemBundle())
        {
            c->lifecycle.Start(*c);
            return;
        }
        BundleLifecycle::Start(d, c);
    }

    void
    Bundle::Start()
    {
        Start(0);
    }

    void
    Bundle::Stop(uint32_t)
    {
        CheckFramework(d, c);
        if (d->IsSystemBundle())
        {
            c->lifecycle.Stop(c);
            return;
        }
        BundleLifecycle::Stop(d, c);
    }

    void
    Bundle::Stop()
    {
        Stop(0);
    }

    void
    Bundle::Uninstall()
    {
        CheckFramework(d, c);
        if (d->IsSystemBundle())
        {
            throw std::logic_error("The system bundle cannot be uninstalled");
        }
        BundleLifecycle::Uninstall(d, c);
    }

    Bundle::TimeStamp
    Bundle::GetLastModified() const
    {
        CheckValid(d);
        return d->installTime;
    }

    std::ostream&
    operator<<(std::ostream& os, Bundle::State state)
    {
        switch (state)
        {
            case Bundle::STATE_UNINSTALLED:
                return os << "UNINSTALLED";
            case Bundle::STATE_INSTALLED:
                return os << "INSTALLED";
            case Bundle::STATE_RESOLVED:
                return os << "RESOLVED";
            case Bundle::STATE_STARTING:
                return os << "STARTING";
            case Bundle::STATE_STOPPING:
                return os << "STOPPING";
            case Bundle::STATE_ACTIVE:
                return os << "ACTIVE";
        }
        return os << "unknown bundle state (" << static_cast<uint32_t>(state) << ")";
    }

    std::ostream&
    operator<<(std::ostream& os, Bundle const& bundle)
    {
        if (!bundle)
        {
            return os << "Bundle[invalid]";
        }
        return os << "Bundle[id=" << bundle.GetBundleId() << ", loc=" << bundle.GetLocation()
                  << ", name=" << bundle.GetSymbolicName() << ", state=" << bundle.GetState() << "]";
    }
} // namespace cppmicroservices
