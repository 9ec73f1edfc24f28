#ifndef TESTS_MICROSERVICES_DS_DSFIXTURE_H
#define TESTS_MICROSERVICES_DS_DSFIXTURE_H

#include "DSTestInterfaces.h"
#include "LifecycleProbe.h"
#include "support/FrameworkFixture.h"
#include "support/WaitFor.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ServiceRegistration.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace dstest
{
    // The library of a bundle target built into the library output folder.
    inline std::string
    BundlePath(std::string const& target)
    {
        return std::string(DS_TEST_BUNDLE_DIR) + "/lib" + target + ".so";
    }

    // A referenced service the tests register: Id() tells the component which one it got.
    template <class Interface>
    class IdService : public Interface
    {
      public:
        explicit IdService(int id) : id(id) {}

        int
        Id() const override
        {
            return id;
        }

      private:
        int const id;
    };

    // A running framework with Declarative Services started, a capture of the runtime's log
    // lines and an empty probe. Stderr logging is off while a test runs.
    class DSFixture : public testsupport::FrameworkFixture
    {
      protected:
        void
        SetUp() override
        {
            foundation::log::removeSink(foundation::log::defaultStderrSink());
            foundation::log::addSink(capture);
            LifecycleProbe::Get().Clear();
            FrameworkFixture::SetUp();
            runtime = Install(BundlePath("DeclarativeServices"));
            runtime.Start();
        }

        void
        TearDown() override
        {
            FrameworkFixture::TearDown();
            foundation::log::removeSink(capture);
            foundation::log::addSink(foundation::log::defaultStderrSink());
        }

        cppmicroservices::Bundle
        StartBundle(std::string const& target)
        {
            auto bundle = Install(BundlePath(target));
            bundle.Start();
            return bundle;
        }

        // Registers an IdService<Interface> with id and properties from the framework's context.
        template <class Interface>
        cppmicroservices::ServiceRegistration<Interface>
        Register(int id, cppmicroservices::ServiceProperties properties = {})
        {
            return context.RegisterService<Interface>(std::make_shared<IdService<Interface>>(id), properties);
        }

        // The probe events of component as "what#instance(detail)": "activate#2(triple)";
        // unnumbered, as "what(detail)": "bind(2)".
        static std::vector<std::string>
        Calls(std::string const& component, bool numbered = true)
        {
            std::vector<std::string> calls;
            for (auto const& event : LifecycleProbe::Get().EventsOf(component))
            {
                calls.push_back(event.what + (numbered ? "#" + std::to_string(event.instance) : "")
                                + (event.detail.empty() ? "" : "(" + event.detail + ")"));
            }
            return calls;
        }

        static std::vector<std::string>
        Trace(std::string const& component)
        {
            return Calls(component, false);
        }

        // Waits until component has recorded count calls of what.
        static bool
        WaitForCalls(std::string const& component, std::string const& what, std::size_t count)
        {
            return testsupport::WaitFor([&] { return LifecycleProbe::Get().Count(component, what) >= count; });
        }

        // Whether one captured log line contains every fragment; a failure shows the log.
        ::testing::AssertionResult
        Logged(std::initializer_list<std::string> fragments) const
        {
            std::string log;
            for (auto const& text : capture->texts())
            {
                if (std::all_of(fragments.begin(), fragments.end(),
                                [&](std::string const& fragment) { return text.find(fragment) != std::string::npos; }))
                {
                    return ::testing::AssertionSuccess();
                }
                log += text + "\n";
            }
            return ::testing::AssertionFailure() << "no such line in the log:\n" << log;
        }

        std::shared_ptr<foundation::log::capture_sink> capture
            = std::make_shared<foundation::log::capture_sink>("cppmicroservices::ds");
        cppmicroservices::Bundle runtime;
    };
} // namespace dstest

#endif // TESTS_MICROSERVICES_DS_DSFIXTURE_H
