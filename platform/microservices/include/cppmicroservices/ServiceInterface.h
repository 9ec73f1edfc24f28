#ifndef CPPMICROSERVICES_SERVICEINTERFACE_H
#define CPPMICROSERVICES_SERVICEINTERFACE_H

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/ServiceException.h"

#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>

namespace cppmicroservices
{
    class ServiceFactory;

    namespace detail
    {
        // The demangled name of a type, e.g. "test::Greeter".
        US_Framework_EXPORT std::string GetDemangledName(std::type_info const& type);
    } // namespace detail

    /// Service objects of one registration, keyed by interface id.
    using InterfaceMap = std::unordered_map<std::string, std::shared_ptr<void>>;
    using InterfaceMapPtr = std::shared_ptr<InterfaceMap>;
    using InterfaceMapConstPtr = std::shared_ptr<InterfaceMap const>;

    namespace detail
    {
        // Key under which MakeInterfaceMap stores a service factory; the
        // registry recognises factory-backed registrations by it.
        inline char const* const kServiceFactoryKey = "org.cppmicroservices.factory";
    } // namespace detail
} // namespace cppmicroservices

/// The interface id of T: its demangled name unless
/// CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE gave it another. The reference
/// stays valid for the life of the process (or of the library that
/// instantiated it).
template <class T>
std::string const&
us_service_interface_iid()
{
    static std::string const name = cppmicroservices::detail::GetDemangledName(typeid(T));
    return name;
}

template <>
inline std::string const&
us_service_interface_iid<void>()
{
    static std::string const name;
    return name;
}

/// Gives a service interface a fixed id. Use at global scope, after the
/// interface's declaration.
#define CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(_service_interface_type, _service_interface_id)                  \
    template <>                                                                                                    \
    inline std::string const& us_service_interface_iid<_service_interface_type>()                                  \
    {                                                                                                              \
        static std::string const name(_service_interface_id);                                                      \
        return name;                                                                                               \
    }

namespace cppmicroservices
{
    /// Builds the InterfaceMap of a service implementing Interfaces..., or of
    /// a ServiceFactory that will make such services. Throws ServiceException
    /// for a null factory and std::invalid_argument for a null implementation.
    template <class... Interfaces>
    class MakeInterfaceMap
    {
      public:
        template <class Impl>
        MakeInterfaceMap(std::shared_ptr<Impl> const& impl) : m(std::make_shared<InterfaceMap>())
        {
            static_assert(sizeof...(Interfaces) > 0, "At least one interface is required");
            constexpr bool implementsAll = (std::is_convertible_v<Impl*, Interfaces*> && ...);
            if constexpr (!implementsAll && std::is_base_of_v<ServiceFactory, Impl>)
            {
                // A concrete factory type passed where an implementation was
                // expected: register it as a factory.
                InsertFactory(std::static_pointer_cast<ServiceFactory>(impl));
            }
            else
            {
                static_assert(implementsAll, "The implementation must derive from every listed interface");
                if (!impl)
                {
                    throw std::invalid_argument("The service implementation must not be null");
                }
                (m->insert_or_assign(us_service_interface_iid<Interfaces>(),
                                     std::static_pointer_cast<void>(std::static_pointer_cast<Interfaces>(impl))),
                 ...);
            }
        }

        MakeInterfaceMap(std::shared_ptr<ServiceFactory> factory) : m(std::make_shared<InterfaceMap>())
        {
            static_assert(sizeof...(Interfaces) > 0, "At least one interface is required");
            InsertFactory(std::move(factory));
        }

        operator InterfaceMapPtr() { return m; }
        operator InterfaceMapConstPtr() { return m; }

      private:
        void
        InsertFactory(std::shared_ptr<ServiceFactory> factory)
        {
            if (!factory)
            {
                throw ServiceException("The service factory argument must not be nullptr.");
            }
            std::shared_ptr<void> asVoid = factory;
            (m->insert_or_assign(us_service_interface_iid<Interfaces>(), asVoid), ...);
            m->insert_or_assign(detail::kServiceFactoryKey, asVoid);
        }

        InterfaceMapPtr m;
    };

    /// The object registered under Interface's id, or null.
    template <class Interface>
    std::shared_ptr<Interface>
    ExtractInterface(InterfaceMapConstPtr const& map)
    {
        if (!map)
        {
            return nullptr;
        }
        auto it = map->find(us_service_interface_iid<Interface>());
        if (it == map->end())
        {
            return nullptr;
        }
        return std::static_pointer_cast<Interface>(it->second);
    }

    /// The object registered under interfaceId; an empty id gives the first
    /// entry of the map. Null when absent.
    inline std::shared_ptr<void>
    ExtractInterface(InterfaceMapConstPtr const& map, std::string const& interfaceId)
    {
        if (!map || map->empty())
        {
            return nullptr;
        }
        if (interfaceId.empty())
        {
            return map->begin()->second;
        }
        auto it = map->find(interfaceId);
        return it == map->end() ? nullptr : it->second;
    }

    /// Views a concrete factory as a ServiceFactory, for the factory overload
    /// of BundleContext::RegisterService.
    template <class T>
    std::shared_ptr<ServiceFactory>
    ToFactory(std::shared_ptr<T> const& factory)
    {
        return std::static_pointer_cast<ServiceFactory>(factory);
    }
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SERVICEINTERFACE_H
