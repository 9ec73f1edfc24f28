#ifndef TESTS_MICROSERVICES_BUNDLES_TRACKERPROBE_H
#define TESTS_MICROSERVICES_BUNDLES_TRACKERPROBE_H

#include <string>
#include <vector>

namespace test
{
    // Registered by the tracker test bundle: what its ServiceTracker of English greeters has seen.
    // Greeters with the property greeting.decline = true are declined by its customizer.
    struct TrackerProbe
    {
        virtual ~TrackerProbe() = default;
        virtual int Tracked() const = 0;
        virtual int Offered() const = 0;
        virtual int Removed() const = 0;
        virtual std::vector<std::string> Greetings(std::string const& name) const = 0;
    };
} // namespace test

#endif // TESTS_MICROSERVICES_BUNDLES_TRACKERPROBE_H
