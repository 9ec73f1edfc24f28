#ifndef TESTS_MICROSERVICES_BUNDLES_GREETER_H
#define TESTS_MICROSERVICES_BUNDLES_GREETER_H

#include <string>

namespace test
{
    // The service interface registered by the greeter test bundle.
    struct Greeter
    {
        virtual ~Greeter() = default;
        virtual std::string Greet(std::string const& name) const = 0;
        // Whether GetBundleContext() inside the bundle returned a valid context.
        virtual bool SeesOwnContext() const = 0;
    };
} // namespace test

#endif // TESTS_MICROSERVICES_BUNDLES_GREETER_H
