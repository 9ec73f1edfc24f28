#ifndef CPPMICROSERVICES_DS_COMPONENT_COMPONENTMANAGER_H
#define CPPMICROSERVICES_DS_COMPONENT_COMPONENTMANAGER_H

#include "component/ComponentDescription.h"
#include "component/ComponentLife.h"
#include "component/InstanceBuilder.h"
#include "component/ReferenceTracker.h"
#include "component/ServiceMatch.h"

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceProperties.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace cppmicroservices::ds
{
    /// Runs one component: tracks its references and configurations, and
    /// registers, creates, rebinds, modifies, deactivates and unregisters it
    /// as they change.
    ///
    /// Every change (a reference event, a configuration, enabling, disposal)
    /// updates the state under stateMutex and then drains: the first thread
    /// to find no drainer becomes it and performs the steps the state calls
    /// for, one at a time and with no lock held, until none is left; any
    /// other thread returns at once, its change being picked up by the
    /// drainer's next look at the state. So the transitions of one component
    /// are serialised (a life ends completely before the next begins, each
    /// instance is deactivated exactly once) while user code -- constructors,
    /// Activate, Deactivate, service registration and the events it fires --
    /// never runs under a DS lock. The one exception to "one thread at a
    /// time" is creating an instance on demand (GetService of a delayed
    /// component), done by the requesting thread; the drainer leaves a life
    /// alone while one of its instances is being created, and the creator
    /// drains when it is done.
    ///
    /// Every public member may be called from any thread.
    class ComponentManager final : public std::enable_shared_from_this<ComponentManager>
    {
      public:
        static std::shared_ptr<ComponentManager> Create(std::shared_ptr<ComponentDescription const> description);
        ~ComponentManager();

        ComponentManager(ComponentManager const&) = delete;
        ComponentManager& operator=(ComponentManager const&) = delete;

        ComponentDescription const&
        Description() const
        {
            return *description;
        }

        /// Opens the reference trackers, then brings the component up if it
        /// is satisfied (an immediate one is active when this returns, unless
        /// another thread is draining it). Blocks on user code. Throws
        /// std::runtime_error if the bundle's context is no longer valid.
        void Open();

        /// Deactivates and unregisters the component for good and closes its
        /// trackers; returns once that is done (unless called from inside
        /// this component's own transition, which then finishes it).
        /// Blocks on user code. Idempotent.
        void Dispose();

        /// Enables or disables the component (a disabled one is never
        /// satisfied). Blocks on user code when this thread drains.
        void SetEnabled(bool enabled);

        /// The configuration of pid: its properties, or nullopt once it is
        /// deleted. Changes the component's properties (Modified, or a new
        /// instance) and, for configuration-policy require, its
        /// satisfaction. fromEvent is false for configurations read when the
        /// component or Configuration Admin appeared: those are ignored once
        /// an event for pid arrived, since they may be older. Blocks on user
        /// code when this thread drains.
        void SetConfiguration(std::string const& pid, std::optional<AnyMap> properties, bool fromEvent);

        /// From the reference trackers, on the thread of the service event.
        void ReferenceAdded(std::size_t index, ServiceMatch const& match);
        void ReferenceModified(std::size_t index, ServiceMatch const& match);
        void ReferenceRemoved(std::size_t index, long serviceId);

        /// From the service factory of life: the instance for usingBundle,
        /// created on this thread when needed. Null if life is over or the
        /// instance cannot be created.
        InterfaceMapConstPtr GetService(std::shared_ptr<ComponentLife> const& life, Bundle const& usingBundle);
        /// From the service factory: the instance of service (bundle or
        /// prototype scope) is no longer used and is deactivated.
        void UngetService(std::shared_ptr<ComponentLife> const& life, InterfaceMapConstPtr const& service);

      private:
        enum class StepKind
        {
            None,
            StartLife,       ///< register the service of a new life
            CreateImmediate, ///< create the instance of an immediate component
            EndLife,         ///< unregister and deactivate a life
            Teardown,        ///< deactivate one released instance (if it is active)
            Rebind,          ///< move a dynamic reference of an instance
            Modify,          ///< call Modified with new properties
            UpdateProperties ///< give the registration new properties
        };

        struct Step
        {
            StepKind kind = StepKind::None;
            std::shared_ptr<ComponentLife> life;
            std::vector<std::shared_ptr<InstanceRecord>> instances;
            std::size_t reference = 0;
            std::vector<ServiceMatch> add;
            std::vector<ServiceMatch> remove;
            ServiceProperties properties;
        };

        explicit ComponentManager(std::shared_ptr<ComponentDescription const> description);

        // Performs the steps the state calls for unless another thread is
        // already doing so. Call with no lock held.
        void Drain();
        // Requires stateMutex held. Decides the next step and records its
        // effect on the state, so that it is taken exactly once.
        Step NextStepLocked();
        // Requires stateMutex held.
        Step EndLifeLocked();
        // Requires stateMutex held.
        bool IsSatisfiedLocked() const;
        // Requires stateMutex held.
        bool StaticBindingBrokenLocked(InstanceRecord const& record) const;
        // Requires stateMutex held.
        ServiceProperties PropertiesLocked() const;
        // Requires stateMutex held.
        bool CreatingOnThisThreadLocked() const;

        // Call with no lock held; never throws.
        void Execute(Step& step);
        void StartLife(Step& step);
        void EndLife(Step& step);
        void Rebind(Step& step);
        // Creates an instance of target for usingBundle on this thread, or
        // returns the singleton instance -- when wait, waiting while another
        // thread creates it; else returning null at once (the drainer, which
        // must not wait for a creator). Call with no lock held.
        InterfaceMapConstPtr Obtain(std::shared_ptr<ComponentLife> const& target, Bundle const& usingBundle, bool wait);
        ServiceReferenceU OwnReference() const;
        bool IsSingleton() const;

        std::shared_ptr<ComponentDescription const> const description;
        std::unique_ptr<InstanceBuilder> builder; // set by Create, then immutable

        mutable std::mutex stateMutex; // guards every member below
        std::condition_variable stateChanged;
        bool opened = false;
        bool disposed = false;
        bool enabled;
        std::optional<std::thread::id> drainer;
        std::vector<std::unique_ptr<ReferenceTracker>> trackers;
        std::vector<std::vector<ServiceMatch>> matches; // per reference, best first
        std::map<std::string, AnyMap> configurations;   // by pid
        std::set<std::string> pidsWithEvents;           // pids whose events arrived
        std::uint64_t propertiesGeneration = 0;
        std::shared_ptr<ComponentLife> life;
    };
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_COMPONENT_COMPONENTMANAGER_H
