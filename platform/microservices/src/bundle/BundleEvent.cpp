#include "cppmicroservices/BundleEvent.h"

#include <ostream>

namespace cppmicroservices
{
    BundleEvent::BundleEvent() : type(BUNDLE_INSTALLED), valid(false) {}

    BundleEvent::BundleEvent(Type type, Bundle const& bundle) : BundleEvent(type, bundle, bundle) {}

    BundleEvent::BundleEvent(Type type, Bundle const& bundle, Bundle const& origin)
        : bundle(bundle)
        , origin(origin)
        , type(type)
        , valid(true)
    {
    }

    BundleEvent::BundleEvent(BundleEvent const&) = default;
    BundleEvent& BundleEvent::operator=(BundleEvent const&) = default;
    BundleEvent::~BundleEvent() = default;

    BundleEvent::operator bool() const { return valid; }

    Bundle
    BundleEvent::GetBundle() const
    {
        return bundle;
    }

    BundleEvent::Type
    BundleEvent::GetType() const
    {
        return type;
    }

    Bundle
    BundleEvent::GetOrigin() const
    {
        return origin;
    }

    bool
    BundleEvent::operator==(BundleEvent const& evt) const
    {
        return valid == evt.valid && type == evt.type && bundle == evt.bundle && origin == evt.origin;
    }

    std::ostream&
    operator<<(std::ostream& os, BundleEvent::Type eventType)
    {
        switch (eventType)
        {
            case BundleEvent::BUNDLE_INSTALLED:
                return os << "INSTALLED";
            case BundleEvent::BUNDLE_STARTED:
                return os << "STARTED";
            case BundleEvent::BUNDLE_STOPPED:
                return os << "STOPPED";
            case BundleEvent::BUNDLE_UPDATED:
                return os << "UPDATED";
            case BundleEvent::BUNDLE_UNINSTALLED:
                return os << "UNINSTALLED";
            case BundleEvent::BUNDLE_RESOLVED:
                return os << "RESOLVED";
            case BundleEvent::BUNDLE_UNRESOLVED:
                return os << "UNRESOLVED";
            case BundleEvent::BUNDLE_STARTING:
                return os << "STARTING";
            case BundleEvent::BUNDLE_STOPPING:
                return os << "STOPPING";
            case BundleEvent::BUNDLE_LAZY_ACTIVATION:
                return os << "LAZY_ACTIVATION";
        }
        return os << "unknown bundle event type (" << static_cast<uint32_t>(eventType) << ")";
    }

    std::ostream&
    operator<<(std::ostream& os, BundleEvent const& event)
    {
        if (!event)
        {
            return os << "NONE";
        }
        Bundle const b = event.GetBundle();
        return os << "BundleEvent [" << event.GetType() << "] #" << b.GetBundleId() << " (" << b.GetSymbolicName()
                  << ")";
    }
} // namespace cppmicroservices
