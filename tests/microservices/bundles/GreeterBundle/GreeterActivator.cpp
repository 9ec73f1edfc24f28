// Registers a test::Greeter on start (greeting.language "en", service.ranking
// from the manifest header greeting.ranking) and unregisters it on stop.

#include "Greeter.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/GetBundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include <memory>

namespace
{
    class EnglishGreeter : public test::Greeter
    {
      public:
        std::string
        Greet(std::string const& name) const override
        {
            return "Hello, " + name;
        }

        bool
        SeesOwnContext() const override
        {
            return static_cast<bool>(cppmicroservices::GetBundleContext());
        }
    };

    class GreeterActivator : public cppmicroservices::BundleActivator
    {
      public:
        void
        Start(cppmicroservices::BundleContext context) override
        {
            auto const& headers = context.GetBundle().GetHeaders();
            int const ranking = cppmicroservices::any_cast<int>(headers.at("greeting.ranking"));
            registration = context.RegisterService<test::Greeter>(
                std::make_shared<EnglishGreeter>(),
                { { "greeting.language", std::string("en") }, { "service.ranking", ranking } });
        }

        void
        Stop(cppmicroservices::BundleContext) override
        {
            registration.Unregister();
        }

      private:
        cppmicroservices::ServiceRegistration<test::Greeter> registration;
    };
} // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(GreeterActivator)
