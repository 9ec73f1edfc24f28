#ifndef CPPMICROSERVICES_BUNDLECONTEXT_H
#define CPPMICROSERVICES_BUNDLECONTEXT_H

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ListenerFunctors.h"
#include "cppmicroservices/ListenerToken.h"
#include "cppmicroservices/ServiceException.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceObjects.h"
#include "cppmicroservices/ServiceProperties.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace cppmicroservices
{
    class Bundle;
    class BundleContext;
    class BundleContextPrivate;
    class ServiceFactory;

    namespace detail
    {
        struct PrivateAccess;

        /// The context behind the pointer a bundle library's glue setter
        /// received; an invalid context for null. Used by GetBundleContext().
        US_Framework_EXPORT BundleContext MakeBundleContext(BundleContextPrivate* d);
    } // namespace detail

    /// A bundle's view of the framework, valid from the start of its
    /// activation until it has stopped. A value type; copies share one
    /// context. All members may be called from any thread, including from
    /// listeners and activators. Members that fire events (RegisterService,
    /// InstallBundles) deliver them synchronously on the calling thread; no
    /// member holds a framework lock while calling user code.
    ///
    /// Once the bundle has stopped, members throw std::runtime_error, and
    /// GetService / GetServiceObjects throw IllegalStateException. Members
    /// are const because a context is a handle: constness of the handle
    /// says nothing about the framework state behind it.
    class US_Framework_EXPORT BundleContext
    {
      public:
        /// An invalid context.
        BundleContext();
        BundleContext(BundleContext const&);
        BundleContext(BundleContext&&) noexcept;
        BundleContext& operator=(BundleContext const&);
        BundleContext& operator=(BundleContext&&) noexcept;
        BundleContext& operator=(std::nullptr_t);
        ~BundleContext();

        bool operator==(BundleContext const& rhs) const;
        bool
        operator!=(BundleContext const& rhs) const
        {
            return !(*this == rhs);
        }
        bool operator<(BundleContext const& rhs) const;

        /// False when default-constructed or once the bundle has stopped.
        explicit operator bool() const;

        /// A framework property; an empty Any when absent.
        Any GetProperty(std::string const& key) const;
        /// All framework properties.
        AnyMap GetProperties() const;

        /// The bundle this context belongs to.
        Bundle GetBundle() const;
        /// The bundle with id; an invalid Bundle when there is none. Throws
        /// std::logic_error if the framework is not running.
        Bundle GetBundle(long id) const;
        /// The bundles installed from location.
        std::vector<Bundle> GetBundles(std::string const& location) const;
        /// All installed bundles, the system bundle first.
        std::vector<Bundle> GetBundles() const;

        /// Registers the service objects in service under their interface
        /// ids (a factory under detail::kServiceFactoryKey). The framework sets
        /// service.id, objectclass and service.scope, overriding any supplied.
        /// Fires SERVICE_REGISTERED. Throws std::invalid_argument for a null or
        /// empty map or an empty interface id, std::runtime_error for property
        /// keys that differ only in case.
        [[nodiscard]] ServiceRegistrationU RegisterService(InterfaceMapConstPtr const& service,
                                                           ServiceProperties const& properties = ServiceProperties());

        /// Registers impl under I1 and Interfaces....
        template <class I1, class... Interfaces, class Impl>
        ServiceRegistration<I1, Interfaces...>
        RegisterService(std::shared_ptr<Impl> const& impl, ServiceProperties const& properties = ServiceProperties())
        {
            InterfaceMapConstPtr servicePtr = MakeInterfaceMap<I1, Interfaces...>(impl);
            return ServiceRegistration<I1, Interfaces...>(RegisterService(servicePtr, properties));
        }

        /// Registers a factory that makes I1, Interfaces... per bundle (or per
        /// call, for a PrototypeServiceFactory). Throws ServiceException for a
        /// null factory.
        template <class I1, class... Interfaces>
        ServiceRegistration<I1, Interfaces...>
        RegisterService(std::shared_ptr<ServiceFactory> const& factory,
                        ServiceProperties const& properties = ServiceProperties())
        {
            InterfaceMapConstPtr servicePtr = MakeInterfaceMap<I1, Interfaces...>(factory);
            return ServiceRegistration<I1, Interfaces...>(RegisterService(servicePtr, properties));
        }

        /// References to the services registered under clazz (all services
        /// when empty) that match filter (all when empty). With a class, the
        /// preferred service comes first (highest service.ranking, then lowest
        /// service.id); without, in registration order. Throws
        /// std::invalid_argument for a malformed filter.
        std::vector<ServiceReferenceU> GetServiceReferences(std::string const& clazz,
                                                            std::string const& filter = std::string());

        /// As above for S's interface id. Throws ServiceException if S has an
        /// empty interface id.
        template <class S>
        std::vector<ServiceReference<S>>
        GetServiceReferences(std::string const& filter = std::string())
        {
            std::string const& clazz = us_service_interface_iid<S>();
            if (clazz.empty())
            {
                throw ServiceException("The service interface class has no "
                                       "CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
            }
            std::vector<ServiceReferenceU> refs = GetServiceReferences(clazz, filter);
            std::vector<ServiceReference<S>> result;
            result.reserve(refs.size());
            for (auto const& ref : refs)
            {
                result.emplace_back(ref);
            }
            return result;
        }

        /// The preferred service under clazz; invalid when there is none.
        ServiceReferenceU GetServiceReference(std::string const& clazz);

        template <class S>
        ServiceReference<S>
        GetServiceReference()
        {
            std::string const& clazz = us_service_interface_iid<S>();
            if (clazz.empty())
            {
                throw ServiceException("The service interface class has no "
                                       "CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
            }
            return ServiceReference<S>(GetServiceReference(clazz));
        }

        /// The service object for reference's bound interface. The use count
        /// of this bundle rises by one and drops when the last copy of the
        /// returned pointer dies; for a factory, UngetService runs when it
        /// reaches zero. Null if the service is unregistered or its factory
        /// failed (reported as a FRAMEWORK_ERROR event). May call a factory,
        /// and so block on user code. Throws std::invalid_argument for an
        /// invalid reference, IllegalStateException for an invalid context.
        std::shared_ptr<void> GetService(ServiceReferenceBase const& reference);

        /// As above, returning the whole interface map.
        InterfaceMapConstPtr GetService(ServiceReferenceU const& reference);

        template <class S>
        std::shared_ptr<S>
        GetService(ServiceReference<S> const& reference)
        {
            return std::static_pointer_cast<S>(GetService(static_cast<ServiceReferenceBase const&>(reference)));
        }

        /// Service objects for reference, the way to get prototype-scope
        /// instances. Throws std::invalid_argument for an invalid reference,
        /// IllegalStateException for an invalid context.
        template <class S>
        ServiceObjects<S>
        GetServiceObjects(ServiceReference<S> const& reference)
        {
            return ServiceObjects<S>(PrepareServiceObjects(reference), reference);
        }

        /// Adds a listener for service events whose service matches filter
        /// (every service when empty). A listener sees SERVICE_MODIFIED, not
        /// SERVICE_REGISTERED, for a service that starts matching after
        /// SetProperties, and SERVICE_MODIFIED_ENDMATCH when it stops matching.
        /// Removed automatically when this bundle stops. Throws
        /// std::invalid_argument for a malformed filter.
        ListenerToken AddServiceListener(ServiceListener const& delegate, std::string const& filter = std::string());
        ListenerToken AddBundleListener(BundleListener const& delegate);
        ListenerToken AddFrameworkListener(FrameworkListener const& delegate);

        /// Removes the listener token names; a no-op for an invalid token or
        /// one already removed. The listener may still be running on another
        /// thread when this returns, but is not called for later events.
        void RemoveListener(ListenerToken token);

        /// A path for a file of this bundle in the framework's storage folder
        /// (Constants::FRAMEWORK_STORAGE, default "fwdir"); the folder is
        /// created when missing. The file itself is not.
        std::string GetDataFile(std::string const& filename) const;

        /// Installs the bundle in the shared library at location and returns
        /// it; a location already installed returns the existing bundle. The
        /// manifest is read from the file without loading the library, unless
        /// bundleManifest maps symbolic names to manifests, which are used
        /// instead. Fires BUNDLE_INSTALLED. Throws std::runtime_error naming
        /// the file when it cannot be read or holds no valid manifest,
        /// std::invalid_argument naming the file for a missing or invalid
        /// bundle.symbolic_name or bundle.version or a symbolic name already
        /// installed, std::logic_error if the framework is not running.
        std::vector<Bundle> InstallBundles(std::string const& location,
                                           AnyMap const& bundleManifest
                                           = AnyMap(any_map::UNORDERED_MAP_CASEINSENSITIVE_KEYS));

      private:
        friend struct detail::PrivateAccess;
        friend US_Framework_EXPORT BundleContext detail::MakeBundleContext(BundleContextPrivate* d);

        explicit BundleContext(std::shared_ptr<BundleContextPrivate> ctx);

        // Checks the context and the reference for GetServiceObjects.
        std::shared_ptr<BundleContextPrivate> PrepareServiceObjects(ServiceReferenceBase const& reference) const;

        std::shared_ptr<BundleContextPrivate> d;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_BUNDLECONTEXT_H
