// As test_throwing_activator: registers a service and a listener, then fails
// to start, and the framework must take both back. As test_stop_throws: starts
// cleanly and throws from Stop, and the bundle must stop anyway.

#include "Greeter.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceEvent.h"

#include <memory>
#include <stdexcept>

namespace
{
    class SilentGreeter : public test::Greeter
    {
      public:
        std::string
        Greet(std::string const&) const override
        {
            return {};
        }
        bool
        SeesOwnContext() const override
        {
            return false;
        }
    };

    class ThrowingActivator : public cppmicroservices::BundleActivator
    {
      public:
        void
        Start(cppmicroservices::BundleContext context) override
        {
            stopThrows = context.GetBundle().GetSymbolicName() == "test_stop_throws";
            if (stopThrows)
            {
                return;
            }
            auto registration = context.RegisterService<test::Greeter>(std::make_shared<SilentGreeter>(),
                                                                       { { "greeting.language", std::string("none") } });
            (void)registration;
            context.AddServiceListener([](cppmicroservices::ServiceEvent const&) {});
            throw std::runtime_error("activator refused to start");
        }

        void
        Stop(cppmicroservices::BundleContext) override
        {
            if (stopThrows)
            {
                throw std::runtime_error("activator refused to stop");
            }
        }

      private:
        bool stopThrows = false;
    };
} // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(ThrowingActivator)
