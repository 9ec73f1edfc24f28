#ifndef CPPMICROSERVICES_SRC_FRAMEWORK_FRAMEWORKLIFECYCLE_H
#define CPPMICROSERVICES_SRC_FRAMEWORK_FRAMEWORKLIFECYCLE_H

#include "cppmicroservices/FrameworkEvent.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace cppmicroservices
{
    class BundlePrivate;
    class CoreBundleContext;

    // The system bundle's life: Init, Start, an asynchronous Stop on a
    // thread of its own, and WaitForStop. Any thread may call any member; the
    // contracts are those of Framework.
    class FrameworkLifecycle
    {
      public:
        FrameworkLifecycle() = default;
        // Joins a finished stop thread (detaches it when destroyed on it).
        ~FrameworkLifecycle();
        FrameworkLifecycle(FrameworkLifecycle const&) = delete;
        FrameworkLifecycle& operator=(FrameworkLifecycle const&) = delete;

        void Init(CoreBundleContext& core);
        void Start(CoreBundleContext& core);
        void Stop(std::shared_ptr<CoreBundleContext> const& core);
        FrameworkEvent WaitForStop(CoreBundleContext& core, std::chrono::milliseconds timeout);

      private:
        // The body of the stop thread. Never throws.
        void RunStop(std::shared_ptr<CoreBundleContext> const& core) noexcept;
        // Joins a previous stop thread unless it is the calling thread.
        void JoinStopThread();

        std::mutex lifecycleMutex; // guards everything below and the system bundle's state changes
        std::condition_variable stateChanged;
        bool stopping = false;
        // The outcome of the last stop, kept without a Bundle handle, which
        // would keep the framework alive from inside.
        FrameworkEvent::Type lastStopType = FrameworkEvent::FRAMEWORK_STOPPED;
        std::shared_ptr<BundlePrivate> lastStopBundle;
        std::string lastStopMessage = "Framework stopped";
        std::exception_ptr lastStopError;
        std::thread stopThread;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_FRAMEWORK_FRAMEWORKLIFECYCLE_H
