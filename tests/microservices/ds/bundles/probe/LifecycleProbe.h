#ifndef TESTS_MICROSERVICES_DS_BUNDLES_PROBE_LIFECYCLEPROBE_H
#define TESTS_MICROSERVICES_DS_BUNDLES_PROBE_LIFECYCLEPROBE_H

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace dstest
{
    // One call a test component recorded.
    struct ProbeEvent
    {
        std::size_t sequence = 0;
        std::string component;
        std::string what; // construct, activate, deactivate, bind, unbind, modified
        int instance = 0;
        std::string detail;
    };

    // What the test components did, recorded from any thread, in one process-wide log that the
    // test bundles and the tests share through this library.
    class LifecycleProbe
    {
      public:
        static LifecycleProbe& Get();

        // A new instance number (1, 2, ...).
        int NextInstance();
        void Record(std::string const& component, std::string const& what, int instance, std::string detail = {});

        std::vector<ProbeEvent> Events() const;
        std::vector<ProbeEvent> EventsOf(std::string const& component) const;
        std::size_t Count(std::string const& component, std::string const& what) const;
        // Forgets every event and restarts instance numbers at 1.
        void Clear();

      private:
        mutable std::mutex eventsMutex; // guards the members below
        std::vector<ProbeEvent> events;
        int lastInstance = 0;
    };
} // namespace dstest

#endif // TESTS_MICROSERVICES_DS_BUNDLES_PROBE_LIFECYCLEPROBE_H
