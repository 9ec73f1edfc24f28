#ifndef CPPMICROSERVICES_SERVICETRACKERCUSTOMIZER_H
#define CPPMICROSERVICES_SERVICETRACKERCUSTOMIZER_H

#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReference.h"

#include <memory>
#include <stdexcept>

namespace cppmicroservices
{

    namespace detail
    {
        // How a tracker turns the service object it got from the framework into the object it tracks.
        // With a tracked type other than the service type there is no sensible default: such a tracker
        // needs a customizer of its own.
        template <class S, class T>
        struct TrackedTypeTraits
        {
            using ServiceType = S;
            using TrackedType = T;
            using TrackedParamType = T;

            static std::shared_ptr<TrackedType>
            ConvertToTrackedType(std::shared_ptr<S> const&)
            {
                throw std::runtime_error("A custom ServiceTrackerCustomizer instance is required for "
                                         "custom tracked objects.");
            }
        };

        template <class S>
        struct TrackedTypeTraits<S, S>
        {
            using ServiceType = S;
            using TrackedType = S;
            using TrackedParamType = S;

            static std::shared_ptr<TrackedType>
            ConvertToTrackedType(std::shared_ptr<S> const& s)
            {
                return s;
            }
        };

        // A tracker of untyped services tracks the whole interface map of each service.
        template <>
        struct TrackedTypeTraits<void, void>
        {
            using ServiceType = void;
            using TrackedType = void;
            using TrackedParamType = InterfaceMap const;

            static std::shared_ptr<TrackedParamType>
            ConvertToTrackedType(InterfaceMapConstPtr const& s)
            {
                return s;
            }
        };

        template <class T>
        struct TrackedTypeTraits<void, T>
        {
            using ServiceType = void;
            using TrackedType = T;
            using TrackedParamType = T;

            static std::shared_ptr<TrackedType>
            ConvertToTrackedType(InterfaceMapConstPtr const&)
            {
                throw std::runtime_error("A custom ServiceTrackerCustomizer instance is required for "
                                         "custom tracked objects.");
            }
        };
    } // namespace detail

    /**
     * Lets a ServiceTracker's user decide what is tracked for each matching service.
     *
     * The tracker calls these methods without holding any lock of its own, on whichever thread
     * registered, modified or unregistered the service (or the thread that opened or closed the
     * tracker). Implementations must be thread-safe and must not register or unregister services
     * while holding locks of their own that a service listener could need.
     */
    template <class S, class T = S>
    struct ServiceTrackerCustomizer
    {
        using TypeTraits = detail::TrackedTypeTraits<S, T>;
        using TrackedParamType = typename TypeTraits::TrackedParamType;

        virtual ~ServiceTrackerCustomizer() = default;

        /**
         * A matching service is being added. Returns the object to track for it, or nullptr to leave
         * the service untracked (it is then offered again on its next modification).
         */
        virtual std::shared_ptr<TrackedParamType> AddingService(ServiceReference<S> const& reference) = 0;

        /** A tracked service's properties changed and it still matches. */
        virtual void ModifiedService(ServiceReference<S> const& reference,
                                     std::shared_ptr<TrackedParamType> const& service)
            = 0;

        /**
         * A tracked service went away, stopped matching, or the tracker closed. Called exactly once
         * for every object AddingService returned. During unregistration the service is still usable.
         */
        virtual void RemovedService(ServiceReference<S> const& reference,
                                    std::shared_ptr<TrackedParamType> const& service)
            = 0;
    };

} // namespace cppmicroservices

#endif
