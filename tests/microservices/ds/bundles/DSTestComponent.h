#ifndef TESTS_MICROSERVICES_DS_BUNDLES_DSTESTCOMPONENT_H
#define TESTS_MICROSERVICES_DS_BUNDLES_DSTESTCOMPONENT_H

#include "DSTestInterfaces.h"
#include "LifecycleProbe.h"

#include "cppmicroservices/GlobalConfig.h"
#include "cppmicroservices/servicecomponent/detail/ComponentInstanceImpl.hpp"

#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

// What the component test bundles share: instances that record their calls in
// the probe, and the entry points the runtime looks up.
namespace ds_test
{
    using cppmicroservices::service::component::ComponentContext;
    using cppmicroservices::service::component::detail::Binder;
    using cppmicroservices::service::component::detail::ComponentInstanceImpl;
    using cppmicroservices::service::component::detail::DynamicBinder;

    // An instance numbered by the probe, recording "construct" (with detail)
    // and every later call under its component's name. Activate and
    // Deactivate record themselves unless a component hides them.
    class Probed
    {
      public:
        explicit Probed(std::string name, std::string detail = {})
            : name(std::move(name))
            , number(dstest::LifecycleProbe::Get().NextInstance())
        {
            Record("construct", std::move(detail));
        }

        void
        Record(std::string const& what, std::string detail = {}) const
        {
            dstest::LifecycleProbe::Get().Record(name, what, number, std::move(detail));
        }

        void
        Activate(std::shared_ptr<ComponentContext> const&)
        {
            Record("activate");
        }

        void
        Deactivate(std::shared_ptr<ComponentContext> const&)
        {
            Record("deactivate");
        }

        std::string const name;
        int const number;
    };

    // A Probed providing Interface, whose Instance() is the probe's number.
    template <class Interface>
    class ProbedService
        : public Probed
        , public Interface
    {
      public:
        using Probed::Probed;

        int
        Instance() const override
        {
            return number;
        }
    };

    // The id of a referenced service as the probe records it.
    template <class Service>
    std::string
    IdOf(std::shared_ptr<Service> const& service)
    {
        return service ? std::to_string(service->Id()) : std::string("null");
    }

    // One dynamic binder: the services of reference go to Component's bind
    // and unbind methods (declared by Component or a base Owner).
    template <class Component, class Owner, class Service>
    std::vector<std::shared_ptr<Binder<Component>>>
    Binds(std::string const& reference,
          void (Owner::*bind)(std::shared_ptr<Service> const&),
          void (Owner::*unbind)(std::shared_ptr<Service> const&))
    {
        return { std::make_shared<DynamicBinder<Component, Service>>(reference, bind, unbind) };
    }
} // namespace ds_test

// The entry points of the component whose implementation-class, with "::" as
// "_", is Symbol: the runtime makes its instances with the expression given.
#define DS_TEST_COMPONENT(Symbol, ...)                                                                                \
    extern "C" US_ABI_EXPORT cppmicroservices::service::component::detail::ComponentInstance* NewInstance_##Symbol()  \
    {                                                                                                                 \
        return new (std::nothrow) __VA_ARGS__;                                                                        \
    }                                                                                                                 \
    extern "C" US_ABI_EXPORT void DeleteInstance_##Symbol(                                                            \
        cppmicroservices::service::component::detail::ComponentInstance* instance)                                    \
    {                                                                                                                 \
        delete instance;                                                                                              \
    }

#endif // TESTS_MICROSERVICES_DS_BUNDLES_DSTESTCOMPONENT_H
