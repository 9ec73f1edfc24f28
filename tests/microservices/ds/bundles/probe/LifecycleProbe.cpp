#include "LifecycleProbe.h"

#include <algorithm>

namespace dstest
{
    LifecycleProbe&
    LifecycleProbe::Get()
    {
        static LifecycleProbe probe;
        return probe;
    }

    int
    LifecycleProbe::NextInstance()
    {
        std::lock_guard<std::mutex> lock(eventsMutex);
        return ++lastInstance;
    }

    void
    LifecycleProbe::Record(std::string const& component, std::string const& what, int instance, std::string detail)
    {
        std::lock_guard<std::mutex> lock(eventsMutex);
        events.push_back({ events.size(), component, what, instance, std::move(detail) });
    }

    std::vector<ProbeEvent>
    LifecycleProbe::Events() const
    {
        std::lock_guard<std::mutex> lock(eventsMutex);
        return events;
    }

    std::vector<ProbeEvent>
    LifecycleProbe::EventsOf(std::string const& component) const
    {
        std::vector<ProbeEvent> selected;
        for (auto const& event : Events())
        {
            if (event.component == component)
            {
                selected.push_back(event);
            }
        }
        return selected;
    }

    std::size_t
    LifecycleProbe::Count(std::string const& component, std::string const& what) const
    {
        auto const all = EventsOf(component);
        return static_cast<std::size_t>(
            std::count_if(all.begin(), all.end(), [&what](ProbeEvent const& e) { return e.what == what; }));
    }

    void
    LifecycleProbe::Clear()
    {
        std::lock_guard<std::mutex> lock(eventsMutex);
        events.clear();
        lastInstance = 0;
    }
} // namespace dstest
