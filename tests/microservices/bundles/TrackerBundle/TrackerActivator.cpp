// Tracks English test::Greeter services with a filtered ServiceTracker while the bundle is active,
// and registers a test::TrackerProbe that reports what the tracker saw.

#include "Greeter.h"
#include "TrackerProbe.h"

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/ServiceRegistration.h"
#include "cppmicroservices/ServiceTracker.h"

#include <atomic>
#include <memory>

namespace
{
    using cppmicroservices::ServiceReference;

    class GreeterCustomizer : public cppmicroservices::ServiceTrackerCustomizer<test::Greeter>
    {
      public:
        explicit GreeterCustomizer(cppmicroservices::BundleContext context) : context(std::move(context)) {}

        std::shared_ptr<test::Greeter>
        AddingService(ServiceReference<test::Greeter> const& reference) override
        {
            ++offered;
            auto const decline = reference.GetProperty("greeting.decline");
            if (!decline.Empty() && cppmicroservices::any_cast<bool>(decline))
            {
                return nullptr;
            }
            return context.GetService(reference);
        }

        void
        ModifiedService(ServiceReference<test::Greeter> const&, std::shared_ptr<test::Greeter> const&) override
        {
        }

        void
        RemovedService(ServiceReference<test::Greeter> const&, std::shared_ptr<test::Greeter> const&) override
        {
            ++removed;
        }

        cppmicroservices::BundleContext context;
        std::atomic<int> offered { 0 };
        std::atomic<int> removed { 0 };
    };

    class Probe : public test::TrackerProbe
    {
      public:
        explicit Probe(cppmicroservices::BundleContext context)
            : customizer(context)
            , tracker(context,
                      cppmicroservices::LDAPFilter("(&(objectclass=test::Greeter)(greeting.language=en))"),
                      &customizer)
        {
        }

        int
        Tracked() const override
        {
            return tracker.Size();
        }

        int
        Offered() const override
        {
            return customizer.offered;
        }

        int
        Removed() const override
        {
            return customizer.removed;
        }

        std::vector<std::string>
        Greetings(std::string const& name) const override
        {
            std::vector<std::string> greetings;
            for (auto const& greeter : tracker.GetServices())
            {
                greetings.push_back(greeter->Greet(name));
            }
            return greetings;
        }

        GreeterCustomizer customizer;
        cppmicroservices::ServiceTracker<test::Greeter> tracker;
    };

    class TrackerActivator : public cppmicroservices::BundleActivator
    {
      public:
        void
        Start(cppmicroservices::BundleContext context) override
        {
            probe = std::make_shared<Probe>(context);
            probe->tracker.Open();
            registration = context.RegisterService<test::TrackerProbe>(probe);
        }

        void
        Stop(cppmicroservices::BundleContext) override
        {
            registration.Unregister();
            probe->tracker.Close();
        }

      private:
        std::shared_ptr<Probe> probe;
        cppmicroservices::ServiceRegistration<test::TrackerProbe> registration;
    };
} // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(TrackerActivator)
