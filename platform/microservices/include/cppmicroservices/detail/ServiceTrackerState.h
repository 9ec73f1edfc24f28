#ifndef CPPMICROSERVICES_DETAIL_SERVICETRACKERSTATE_H
#define CPPMICROSERVICES_DETAIL_SERVICETRACKERSTATE_H

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ListenerToken.h"
#include "cppmicroservices/ServiceEvent.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceTrackerCustomizer.h"

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace cppmicroservices::detail
{

    // The shared state of one ServiceTracker. The framework's service listener holds it by shared
    // pointer, so an event that the framework delivers after the tracker closed (it may have copied
    // its listener list just before) finds a closed state instead of a destroyed tracker.
    //
    // Customizer calls happen without stateMutex held. Every event handler counts itself in
    // callsInFlight while it may still call the customizer, and Close() waits for those calls
    // (except the ones of its own thread, so a customizer may close its own tracker).
    template <class S, class T>
    class ServiceTrackerState
    {
      public:
        using Customizer = ServiceTrackerCustomizer<S, T>;
        using TrackedParamType = typename Customizer::TrackedParamType;
        using Reference = ServiceReference<S>;
        using Tracked = std::shared_ptr<TrackedParamType>;
        using TrackingMap = std::unordered_map<Reference, Tracked>;

        ServiceTrackerState(BundleContext context, std::string clazz, std::string filter)
            : context(std::move(context))
            , clazz(std::move(clazz))
            , filter(std::move(filter))
        {
        }

        BundleContext context;
        std::string const clazz;  // class of the initial query; empty = every class
        std::string const filter; // filter of the listener and the initial query
        Customizer* customizer = nullptr;

        std::mutex stateMutex; // guards every member below
        std::condition_variable stateChanged;
        bool open = false;
        ListenerToken listenerToken;
        TrackingMap tracked;
        std::unordered_set<Reference> adding;             // AddingService under way
        std::unordered_set<Reference> removedWhileAdding; // went away during AddingService
        int trackingCount = -1;
        std::unordered_map<std::thread::id, int> callsInFlight;
        int totalCallsInFlight = 0;

        void
        serviceChanged(ServiceEvent const& event)
        {
            ServiceReferenceU const base = event.GetServiceReference();
            Reference const reference(base);
            switch (event.GetType())
            {
                case ServiceEvent::SERVICE_REGISTERED:
                case ServiceEvent::SERVICE_MODIFIED:
                    if (reference)
                    {
                        track(reference, false);
                    }
                    break;
                case ServiceEvent::SERVICE_MODIFIED_ENDMATCH:
                case ServiceEvent::SERVICE_UNREGISTERING:
                    untrack(base);
                    break;
            }
        }

        // Adds the service (calling AddingService) or, when it is tracked already and this is an
        // event rather than the initial listing, reports the modification.
        void
        track(Reference const& reference, bool initial)
        {
            Tracked modified;
            {
                std::lock_guard<std::mutex> lock(stateMutex);
                if (!open || adding.count(reference) != 0)
                {
                    return;
                }
                auto const found = tracked.find(reference);
                if (found != tracked.end())
                {
                    if (initial)
                    {
                        return;
                    }
                    modified = found->second;
                    ++trackingCount;
                }
                else
                {
                    adding.insert(reference);
                }
                enterCall();
            }
            CallGuard guard(*this);
            if (modified)
            {
                customizer->ModifiedService(reference, modified);
                return;
            }
            Tracked object;
            try
            {
                object = customizer->AddingService(reference);
            }
            catch (...)
            {
                std::lock_guard<std::mutex> lock(stateMutex);
                adding.erase(reference);
                removedWhileAdding.erase(reference);
                throw;
            }
            bool keep = false;
            {
                std::lock_guard<std::mutex> lock(stateMutex);
                adding.erase(reference);
                bool const removed = removedWhileAdding.erase(reference) != 0;
                // A reference turns false once its service is unregistered; that covers an
                // unregistration that raced the initial listing before our listener saw it.
                keep = object && open && !removed && static_cast<bool>(reference);
                if (keep)
                {
                    tracked.emplace(reference, object);
                    ++trackingCount;
                    stateChanged.notify_all();
                }
            }
            if (object && !keep)
            {
                customizer->RemovedService(reference, object);
            }
        }

        void
        untrack(ServiceReferenceBase const& base)
        {
            Reference reference;
            Tracked object;
            {
                std::lock_guard<std::mutex> lock(stateMutex);
                auto found = findTracked(base);
                if (found == tracked.end())
                {
                    for (auto const& pending : adding)
                    {
                        if (static_cast<ServiceReferenceBase const&>(pending) == base)
                        {
                            removedWhileAdding.insert(pending);
                            break;
                        }
                    }
                    return;
                }
                reference = found->first;
                object = std::move(found->second);
                tracked.erase(found);
                ++trackingCount;
                enterCall();
            }
            CallGuard guard(*this);
            customizer->RemovedService(reference, object);
        }

        // Requires stateMutex held.
        typename TrackingMap::iterator
        findTracked(ServiceReferenceBase const& base)
        {
            Reference const typed(base);
            if (typed)
            {
                auto const found = tracked.find(typed);
                if (found != tracked.end())
                {
                    return found;
                }
            }
            return std::find_if(tracked.begin(),
                                tracked.end(),
                                [&base](auto const& entry)
                                { return static_cast<ServiceReferenceBase const&>(entry.first) == base; });
        }

        // Requires stateMutex held.
        void
        enterCall()
        {
            ++callsInFlight[std::this_thread::get_id()];
            ++totalCallsInFlight;
        }

        void
        leaveCall()
        {
            std::lock_guard<std::mutex> lock(stateMutex);
            auto const self = callsInFlight.find(std::this_thread::get_id());
            if (--self->second == 0)
            {
                callsInFlight.erase(self);
            }
            if (--totalCallsInFlight == 0 || callsInFlight.empty())
            {
                stateChanged.notify_all();
            }
        }

        // Requires stateMutex held (through lock). Waits until only this thread's calls are running.
        void
        waitForOtherCalls(std::unique_lock<std::mutex>& lock)
        {
            auto const self = std::this_thread::get_id();
            stateChanged.wait(lock,
                              [this, self]
                              {
                                  auto const mine = callsInFlight.find(self);
                                  int const own = mine == callsInFlight.end() ? 0 : mine->second;
                                  return totalCallsInFlight == own;
                              });
        }

      private:
        struct CallGuard
        {
            explicit CallGuard(ServiceTrackerState& state) : state(state) {}
            ~CallGuard() { state.leaveCall(); }
            CallGuard(CallGuard const&) = delete;
            CallGuard& operator=(CallGuard const&) = delete;
            ServiceTrackerState& state;
        };
    };

} // namespace cppmicroservices::detail

#endif
