#ifndef TESTS_MICROSERVICES_TESTBUNDLES_H
#define TESTS_MICROSERVICES_TESTBUNDLES_H

#include "cppmicroservices/BundleEvent.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/ServiceEvent.h"

#include <mutex>
#include <string>
#include <vector>

namespace testbundles
{
    // The library of a test bundle target from tests/microservices/bundles.
    inline std::string
    Path(std::string const& target)
    {
        return std::string(US_TEST_BUNDLE_DIR) + "/lib" + target + ".so";
    }

    // Collects events from listeners on any thread.
    template <class Event>
    class EventLog
    {
      public:
        void
        operator()(Event const& e)
        {
            std::lock_guard<std::mutex> lock(mutex);
            events.push_back(e);
        }

        std::vector<Event>
        Events() const
        {
            std::lock_guard<std::mutex> lock(mutex);
            return events;
        }

        std::vector<typename Event::Type>
        Types() const
        {
            std::vector<typename Event::Type> types;
            for (auto const& e : Events())
            {
                types.push_back(e.GetType());
            }
            return types;
        }

      private:
        mutable std::mutex mutex; // guards events
        std::vector<Event> events;
    };
} // namespace testbundles

#endif // TESTS_MICROSERVICES_TESTBUNDLES_H
