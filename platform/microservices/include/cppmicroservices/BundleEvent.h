#ifndef CPPMICROSERVICES_BUNDLEEVENT_H
#define CPPMICROSERVICES_BUNDLEEVENT_H

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/GlobalConfig.h"

#include <cstdint>
#include <iosfwd>
#include <memory>

namespace cppmicroservices
{
    /// A change in a bundle's life, delivered to bundle listeners
    /// synchronously on the thread that made the change.
    class US_Framework_EXPORT BundleEvent
    {
      public:
        enum Type : uint32_t
        {
            BUNDLE_INSTALLED = 0x00000001,
            BUNDLE_STARTED = 0x00000002,
            BUNDLE_STOPPED = 0x00000004,
            BUNDLE_UPDATED = 0x00000008,
            BUNDLE_UNINSTALLED = 0x00000010,
            BUNDLE_RESOLVED = 0x00000020,
            BUNDLE_UNRESOLVED = 0x00000040,
            BUNDLE_STARTING = 0x00000080,
            BUNDLE_STOPPING = 0x00000100,
            BUNDLE_LAZY_ACTIVATION = 0x00000200
        };

        /// An invalid event.
        BundleEvent();
        BundleEvent(Type type, Bundle const& bundle);
        /// origin is the bundle that caused the change, e.g. the installer.
        BundleEvent(Type type, Bundle const& bundle, Bundle const& origin);
        BundleEvent(BundleEvent const&);
        BundleEvent& operator=(BundleEvent const&);
        ~BundleEvent();

        explicit operator bool() const;
        Bundle GetBundle() const;
        Type GetType() const;
        Bundle GetOrigin() const;

        bool operator==(BundleEvent const& evt) const;

      private:
        Bundle bundle;
        Bundle origin;
        Type type;
        bool valid;
    };

    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, BundleEvent::Type eventType);
    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, BundleEvent const& event);
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_BUNDLEEVENT_H
