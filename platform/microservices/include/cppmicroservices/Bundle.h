#ifndef CPPMICROSERVICES_BUNDLE_H
#define CPPMICROSERVICES_BUNDLE_H

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/BundleVersion.h"
#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceReference.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices
{
    class BundleContext;
    class BundlePrivate;
    class CoreBundleContext;
    namespace detail
    {
        struct PrivateAccess;
    }

    /// An installed bundle: a shared library whose manifest was embedded at
    /// build time. A value type over the framework's bundle object; copies
    /// name the same bundle and keep its framework alive. All members may be
    /// called from any thread. Start and Stop block while the bundle's
    /// activator runs and deliver bundle events on the calling thread.
    class US_Framework_EXPORT Bundle
    {
      public:
        using TimeStamp = std::chrono::steady_clock::time_point;

        enum State : uint32_t
        {
            STATE_UNINSTALLED = 0x00000001,
            STATE_INSTALLED = 0x00000002,
            STATE_RESOLVED = 0x00000004,
            STATE_STARTING = 0x00000008,
            STATE_STOPPING = 0x00000010,
            STATE_ACTIVE = 0x00000020
        };

        enum StartOptions : uint32_t
        {
            START_TRANSIENT = 0x00000001,
            START_ACTIVATION_POLICY = 0x00000002
        };

        enum StopOptions : uint32_t
        {
            STOP_TRANSIENT = 0x00000001
        };

        /// An invalid bundle.
        Bundle();
        Bundle(Bundle const&);
        Bundle(Bundle&&) noexcept;
        Bundle& operator=(Bundle const&);
        Bundle& operator=(Bundle&&) noexcept;
        Bundle& operator=(std::nullptr_t);
        virtual ~Bundle();

        bool operator==(Bundle const& rhs) const;
        bool
        operator!=(Bundle const& rhs) const
        {
            return !(*this == rhs);
        }
        /// Orders by bundle id.
        bool operator<(Bundle const& rhs) const;
        explicit operator bool() const;

        State GetState() const;

        /// The bundle's context; invalid unless the bundle is STARTING, ACTIVE
        /// or STOPPING.
        BundleContext GetBundleContext() const;

        long GetBundleId() const;
        /// The path the bundle was installed from.
        std::string GetLocation() const;
        /// dlsym on handle; null when either is null or the symbol is absent.
        void* GetSymbol(void* handle, std::string const& symname) const;
        std::string GetSymbolicName() const;
        BundleVersion GetVersion() const;

        /// The manifest as a case-insensitive AnyMap. Valid while this Bundle
        /// (or a copy) lives, also after uninstall. Throws
        /// std::invalid_argument for an invalid Bundle.
        AnyMap const& GetHeaders() const;

        /// The services this bundle registered. Throws std::logic_error once
        /// uninstalled.
        std::vector<ServiceReferenceU> GetRegisteredServices() const;
        /// The services this bundle currently uses. Throws std::logic_error
        /// once uninstalled.
        std::vector<ServiceReferenceU> GetServicesInUse() const;

        /// Starts the bundle: fires BUNDLE_STARTING; when the manifest has
        /// bundle.activator true, loads the library, hands it its context and
        /// runs the activator's Start; then the bundle is ACTIVE and
        /// BUNDLE_STARTED fires. A no-op when already ACTIVE. Throws
        /// SharedLibraryException if the library cannot be loaded,
        /// std::runtime_error if the activator symbols are missing or its Start
        /// throws (the bundle is then RESOLVED again), std::logic_error if the
        /// bundle is uninstalled or the framework is not running. Starting the
        /// system bundle starts the framework.
        void Start(uint32_t options);
        void Start();

        /// Stops the bundle: runs the activator's Stop, then unregisters the
        /// bundle's services, removes its listeners, releases the services it
        /// uses and invalidates its context. A no-op unless STARTING or
        /// ACTIVE. Throws std::runtime_error if the activator's Stop threw
        /// (the bundle is stopped anyway). Stopping the system bundle stops the
        /// framework asynchronously; see Framework::WaitForStop.
        void Stop(uint32_t options);
        void Stop();

        /// Stops the bundle if needed and removes it from the framework.
        /// Throws std::logic_error for the system bundle or when already
        /// uninstalled.
        void Uninstall();

        /// When the bundle was installed.
        TimeStamp GetLastModified() const;

      protected:
        friend struct detail::PrivateAccess;

        Bundle(std::shared_ptr<BundlePrivate> d, std::shared_ptr<CoreBundleContext> c);

        std::shared_ptr<BundlePrivate> d;
        std::shared_ptr<CoreBundleContext> c; ///< keeps the framework alive while the handle exists
    };

    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, Bundle const& bundle);
    US_Framework_EXPORT std::ostream& operator<<(std::ostream& os, Bundle::State state);
} // namespace cppmicroservices

namespace std
{
    template <>
    struct hash<cppmicroservices::Bundle>
    {
        std::size_t
        operator()(cppmicroservices::Bundle const& b) const
        {
            return b ? std::hash<std::string>()(b.GetSymbolicName()) : 0;
        }
    };
} // namespace std

#endif // CPPMICROSERVICES_BUNDLE_H
