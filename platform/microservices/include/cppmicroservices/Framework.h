#ifndef CPPMICROSERVICES_FRAMEWORK_H
#define CPPMICROSERVICES_FRAMEWORK_H

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/GlobalConfig.h"

#include <chrono>

namespace cppmicroservices
{
    /// The system bundle (id 0, symbolic name "system_bundle"): the framework
    /// itself. Start() runs Init() when needed and makes the framework ACTIVE;
    /// Stop() returns at once and stops every bundle in reverse start order
    /// on a framework thread, so follow it with WaitForStop(). Stop a running
    /// framework before its last handle goes: otherwise the activators of its
    /// bundles never see Stop.
    class US_Framework_EXPORT Framework : public Bundle
    {
      public:
        /// Throws std::logic_error if b is not a system bundle.
        explicit Framework(Bundle b);

        Framework(Framework const&);
        Framework(Framework&&) noexcept;
        Framework& operator=(Framework const&);
        Framework& operator=(Framework&&) noexcept;
        ~Framework() override;

        /// Makes the framework STARTING with a valid context, so that bundles
        /// can be installed before Start(). A no-op when already STARTING,
        /// ACTIVE or STOPPING. Blocks if a previous stop is still running.
        void Init();

        /// Blocks until the framework has stopped or timeout passes (zero
        /// waits forever). Returns FRAMEWORK_STOPPED, FRAMEWORK_ERROR (a bundle
        /// failed to stop) or FRAMEWORK_WAIT_TIMEDOUT. Returns at once, with
        /// the outcome of the last stop (FRAMEWORK_STOPPED if there was none),
        /// when the framework is not STARTING, ACTIVE or STOPPING. Must not be called from a listener or an activator of this
        /// framework, which the stop may be waiting for.
        FrameworkEvent WaitForStop(std::chrono::milliseconds const& timeout);
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_FRAMEWORK_H
