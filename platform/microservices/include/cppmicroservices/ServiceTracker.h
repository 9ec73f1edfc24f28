#ifndef CPPMICROSERVICES_SERVICETRACKER_H
#define CPPMICROSERVICES_SERVICETRACKER_H

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/ServiceException.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceTrackerCustomizer.h"
#include "cppmicroservices/detail/ServiceTrackerState.h"

#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace cppmicroservices
{

    /**
     * Tracks the services that match a class or a filter, from Open() until Close().
     *
     * For every matching service the customizer's AddingService decides what is tracked (nullptr:
     * nothing); ModifiedService and RemovedService follow the service's life. Without a customizer
     * the tracker is its own: it tracks the service object itself.
     *
     * Every member may be called from any thread. Customizer calls run on the thread that caused them
     * (Open, Close, Remove, or whoever registered, modified or unregistered the service), never with a
     * lock of the tracker held.
     */
    template <class S, class T = S>
    class ServiceTracker : protected ServiceTrackerCustomizer<S, T>
    {
      public:
        using TypeTraits = typename ServiceTrackerCustomizer<S, T>::TypeTraits;
        using ServiceType = typename TypeTraits::ServiceType;
        using TrackedType = typename TypeTraits::TrackedType;
        using TrackedParamType = typename TypeTraits::TrackedParamType;
        using TrackingMap = std::unordered_map<ServiceReference<S>, std::shared_ptr<TrackedParamType>>;

        /** Closes the tracker; exceptions from doing so are swallowed. */
        ~ServiceTracker() override
        {
            try
            {
                Close();
            }
            catch (...)
            {
            }
        }

        /** Tracks the one service of reference. */
        ServiceTracker(BundleContext const& context,
                       ServiceReference<S> const& reference,
                       ServiceTrackerCustomizer<S, T>* customizer = nullptr)
            : ServiceTracker(context,
                             std::string(),
                             "(" + Constants::SERVICE_ID + "="
                                 + reference.GetProperty(Constants::SERVICE_ID).ToString() + ")",
                             customizer)
        {
        }

        /** Tracks every service registered under the class name clazz. */
        ServiceTracker(BundleContext const& context,
                       std::string const& clazz,
                       ServiceTrackerCustomizer<S, T>* customizer = nullptr)
            : ServiceTracker(context,
                             withoutLeadingScope(clazz),
                             "(" + Constants::OBJECTCLASS + "=" + escape(withoutLeadingScope(clazz)) + ")",
                             customizer)
        {
        }

        /** Tracks every service whose properties match filter. */
        ServiceTracker(BundleContext const& context,
                       LDAPFilter const& filter,
                       ServiceTrackerCustomizer<S, T>* customizer = nullptr)
            : ServiceTracker(context, std::string(), filter.ToString(), customizer)
        {
        }

        /** Tracks every service registered under S. Throws ServiceException when S has no interface id. */
        explicit ServiceTracker(BundleContext const& context, ServiceTrackerCustomizer<S, T>* customizer = nullptr)
            : ServiceTracker(context, interfaceIdOf(), customizer)
        {
        }

        ServiceTracker(ServiceTracker const&) = delete;
        ServiceTracker& operator=(ServiceTracker const&) = delete;

        /**
         * Starts tracking: listens for service events, then offers every matching service already
         * registered to AddingService on this thread. A no-op when already open. Throws
         * std::runtime_error when the context is no longer valid or the filter is malformed; an
         * exception from AddingService for a service already registered is rethrown after the
         * other services were offered.
         */
        virtual void
        Open()
        {
            {
                std::lock_guard<std::mutex> lock(d->stateMutex);
                if (d->open)
                {
                    return;
                }
                d->open = true;
                d->trackingCount = 0;
            }
            std::vector<ServiceReferenceU> initial;
            try
            {
                auto state = d;
                ListenerToken token = d->context.AddServiceListener([state](ServiceEvent const& event)
                                                                    { state->serviceChanged(event); },
                                                                    d->filter);
                {
                    std::lock_guard<std::mutex> lock(d->stateMutex);
                    d->listenerToken = std::move(token);
                }
                initial = d->context.GetServiceReferences(d->clazz, d->filter);
            }
            catch (std::exception const& e)
            {
                Close();
                throw std::runtime_error(std::string("ServiceTracker cannot be opened: ") + e.what());
            }
            std::exception_ptr firstFailure;
            for (auto const& base : initial)
            {
                ServiceReference<S> const reference(base);
                if (!reference)
                {
                    continue;
                }
                try
                {
                    d->track(reference, true);
                }
                catch (...)
                {
                    if (!firstFailure)
                    {
                        firstFailure = std::current_exception();
                    }
                }
            }
            if (firstFailure)
            {
                std::rethrow_exception(firstFailure);
            }
        }

        /**
         * Stops tracking: removes the listener, waits for customizer calls of other threads to end,
         * then calls RemovedService for every tracked service. Blocks; may be called from a
         * customizer. Afterwards GetTrackingCount() is -1.
         */
        virtual void
        Close()
        {
            ListenerToken token;
            TrackingMap removed;
            {
                std::unique_lock<std::mutex> lock(d->stateMutex);
                if (!d->open)
                {
                    return;
                }
                d->open = false;
                token = std::move(d->listenerToken);
            }
            if (token)
            {
                try
                {
                    d->context.RemoveListener(std::move(token));
                }
                catch (...)
                {
                    // The bundle stopped and its listeners went with it.
                }
            }
            {
                std::unique_lock<std::mutex> lock(d->stateMutex);
                d->waitForOtherCalls(lock);
                removed.swap(d->tracked);
                d->trackingCount = -1;
                d->stateChanged.notify_all();
            }
            for (auto const& entry : removed)
            {
                d->customizer->RemovedService(entry.first, entry.second);
            }
        }

        /**
         * Waits until a service is tracked and returns it (see GetService()). A zero duration waits
         * without limit, and throws std::logic_error once the tracker's context is no longer valid.
         * Returns nullptr on time-out or when the tracker closes. Throws std::invalid_argument for a
         * negative duration.
         */
        std::shared_ptr<TrackedParamType>
        WaitForService()
        {
            return WaitForService(std::chrono::milliseconds::zero());
        }

        template <class Rep, class Period>
        std::shared_ptr<TrackedParamType>
        WaitForService(std::chrono::duration<Rep, Period> const& rel_time)
        {
            if (rel_time < rel_time.zero())
            {
                throw std::invalid_argument("negative timeout");
            }
            bool const forever = rel_time == rel_time.zero();
            auto const deadline
                = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(rel_time);
            std::unique_lock<std::mutex> lock(d->stateMutex);
            auto const ready = [this] { return !d->tracked.empty() || !d->open; };
            if (forever)
            {
                // Polled, so that a tracker whose bundle went away does not wait forever.
                while (!d->stateChanged.wait_for(lock, std::chrono::milliseconds(500), ready))
                {
                    if (!d->context)
                    {
                        throw std::logic_error("ServiceTracker: the bundle context is no longer valid");
                    }
                }
            }
            else
            {
                d->stateChanged.wait_until(lock, deadline, ready);
            }
            lock.unlock();
            return GetService();
        }

        /** The references of every tracked service. */
        virtual std::vector<ServiceReference<S>>
        GetServiceReferences() const
        {
            std::vector<ServiceReference<S>> references;
            std::lock_guard<std::mutex> lock(d->stateMutex);
            references.reserve(d->tracked.size());
            for (auto const& entry : d->tracked)
            {
                references.push_back(entry.first);
            }
            return references;
        }

        /**
         * The reference of the best tracked service: highest service.ranking, then lowest service.id.
         * Throws ServiceException("No service is being tracked") when none is.
         */
        virtual ServiceReference<S>
        GetServiceReference() const
        {
            std::lock_guard<std::mutex> lock(d->stateMutex);
            auto const best = bestLocked();
            if (best == d->tracked.end())
            {
                throw ServiceException("No service is being tracked");
            }
            return best->first;
        }

        /** The object tracked for reference, or nullptr. */
        virtual std::shared_ptr<TrackedParamType>
        GetService(ServiceReference<S> const& reference) const
        {
            std::lock_guard<std::mutex> lock(d->stateMutex);
            auto const found = d->tracked.find(reference);
            return found == d->tracked.end() ? nullptr : found->second;
        }

        /** Every tracked object. */
        virtual std::vector<std::shared_ptr<TrackedParamType>>
        GetServices() const
        {
            std::vector<std::shared_ptr<TrackedParamType>> services;
            std::lock_guard<std::mutex> lock(d->stateMutex);
            services.reserve(d->tracked.size());
            for (auto const& entry : d->tracked)
            {
                services.push_back(entry.second);
            }
            return services;
        }

        /** The object tracked for the best service (see GetServiceReference()), or nullptr. */
        virtual std::shared_ptr<TrackedParamType>
        GetService() const
        {
            std::lock_guard<std::mutex> lock(d->stateMutex);
            auto const best = bestLocked();
            return best == d->tracked.end() ? nullptr : best->second;
        }

        /** Stops tracking reference; RemovedService runs on this thread if it was tracked. */
        virtual void
        Remove(ServiceReference<S> const& reference)
        {
            d->untrack(reference);
        }

        /** The number of tracked services. */
        virtual int
        Size() const
        {
            std::lock_guard<std::mutex> lock(d->stateMutex);
            return static_cast<int>(d->tracked.size());
        }

        /** Grows on every add, modification and removal; -1 while the tracker is not open. */
        virtual int
        GetTrackingCount() const
        {
            std::lock_guard<std::mutex> lock(d->stateMutex);
            return d->trackingCount;
        }

        /** Copies every tracked reference and object into map. */
        virtual void
        GetTracked(TrackingMap& map) const
        {
            std::lock_guard<std::mutex> lock(d->stateMutex);
            map.insert(d->tracked.begin(), d->tracked.end());
        }

        virtual bool
        IsEmpty() const
        {
            std::lock_guard<std::mutex> lock(d->stateMutex);
            return d->tracked.empty();
        }

      protected:
        /** Default customizer: tracks the service object obtained through the tracker's context. */
        std::shared_ptr<TrackedParamType>
        AddingService(ServiceReference<S> const& reference) override
        {
            return TypeTraits::ConvertToTrackedType(d->context.GetService(reference));
        }

        void
        ModifiedService(ServiceReference<S> const&, std::shared_ptr<TrackedParamType> const&) override
        {
        }

        /** Dropping the tracked object gives the service back. */
        void
        RemovedService(ServiceReference<S> const&, std::shared_ptr<TrackedParamType> const&) override
        {
        }

      private:
        using State = detail::ServiceTrackerState<S, T>;

        ServiceTracker(BundleContext const& context,
                       std::string const& clazz,
                       std::string const& filter,
                       ServiceTrackerCustomizer<S, T>* customizer)
            : d(std::make_shared<State>(context, clazz, filter))
        {
            if (!context)
            {
                throw std::invalid_argument("The bundle context argument is invalid");
            }
            d->customizer = customizer != nullptr ? customizer : this;
        }

        static std::string
        interfaceIdOf()
        {
            std::string const id = us_service_interface_iid<S>();
            if (id.empty())
            {
                throw ServiceException("The service interface class has no "
                                       "CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE macro");
            }
            return id;
        }

        // The registry stores class names without a leading "::".
        static std::string
        withoutLeadingScope(std::string const& clazz)
        {
            return clazz.compare(0, 2, "::") == 0 ? clazz.substr(2) : clazz;
        }

        // Filter values treat these characters specially; class names may contain them.
        static std::string
        escape(std::string const& value)
        {
            std::string escaped;
            escaped.reserve(value.size());
            for (char const c : value)
            {
                if (c == '(' || c == ')' || c == '*' || c == '\\')
                {
                    escaped.push_back('\\');
                }
                escaped.push_back(c);
            }
            return escaped;
        }

        // Requires d->stateMutex held.
        typename State::TrackingMap::const_iterator
        bestLocked() const
        {
            auto best = d->tracked.cend();
            for (auto it = d->tracked.cbegin(); it != d->tracked.cend(); ++it)
            {
                if (best == d->tracked.cend() || best->first < it->first)
                {
                    best = it;
                }
            }
            return best;
        }

        std::shared_ptr<State> const d;
    };

} // namespace cppmicroservices

#endif
