#ifndef TESTS_MICROSERVICES_DS_BUNDLES_DSTESTINTERFACES_H
#define TESTS_MICROSERVICES_DS_BUNDLES_DSTESTINTERFACES_H

#include <string>

// Service interfaces shared by the component test bundles and the tests.
namespace test
{
    // Referenced by the lifecycle bundle's components; the tests register them.
    struct RefA
    {
        virtual ~RefA() = default;
        virtual int Id() const = 0;
    };
    struct RefB
    {
        virtual ~RefB() = default;
        virtual int Id() const = 0;
    };
    struct RefC
    {
        virtual ~RefC() = default;
        virtual int Id() const = 0;
    };

    // Referenced by the binding bundle's components, each with a target on the property "feed".
    struct Feed
    {
        virtual ~Feed() = default;
        virtual int Id() const = 0;
    };

    // Provided by components; Instance() is the probe's number of the instance.
    struct IfaceA
    {
        virtual ~IfaceA() = default;
        virtual int Instance() const = 0;
    };
    struct IfaceB
    {
        virtual ~IfaceB() = default;
        virtual std::string Flavour() const = 0;
    };
    struct LazyService
    {
        virtual ~LazyService() = default;
        virtual int Instance() const = 0;
    };
    struct OnDemand
    {
        virtual ~OnDemand() = default;
        virtual int Instance() const = 0;
    };
    struct Echo
    {
        virtual ~Echo() = default;
        virtual int Instance() const = 0;
    };
    // Lets a test call ComponentContext::EnableComponent / DisableComponent.
    struct Switch
    {
        virtual ~Switch() = default;
        virtual void Enable(std::string const& name) = 0;
        virtual void Disable(std::string const& name) = 0;
    };
    // A component's view of its configuration.
    struct Configured
    {
        virtual ~Configured() = default;
        virtual int Instance() const = 0;
        virtual std::string Setting() const = 0;
    };
} // namespace test

#endif // TESTS_MICROSERVICES_DS_BUNDLES_DSTESTINTERFACES_H
