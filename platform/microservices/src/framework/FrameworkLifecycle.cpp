#include "framework/FrameworkLifecycle.h"

#include "bundle/BundleLifecycle.h"
#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"

#include <algorithm>

namespace cppmicroservices
{
    namespace
    {
        bool
        IsRunningState(Bundle::State state)
        {
            return state == Bundle::STATE_STARTING || state == Bundle::STATE_ACTIVE || state == Bundle::STATE_STOPPING;
        }
    } // namespace

    FrameworkLifecycle::~FrameworkLifecycle()
    {
        if (stopThread.joinable())
        {
            if (stopThread.get_id() == std::this_thread::get_id())
            {
                stopThread.detach(); // the last framework handle died on the stop thread itself
            }
            else
            {
                stopThread.join();
            }
        }
    }

    void
    FrameworkLifecycle::JoinStopThread()
    {
        std::thread previous;
        {
            std::lock_guard<std::mutex> lock(lifecycleMutex);
            if (stopThread.joinable() && stopThread.get_id() != std::this_thread::get_id())
            {
                previous = std::move(stopThread);
            }
        }
        if (previous.joinable())
        {
            previous.join();
        }
    }

    void
    FrameworkLifecycle::Init(CoreBundleContext& core)
    {
        // A stop that has finished may still have its thread to reap.
        {
            std::unique_lock<std::mutex> lock(lifecycleMutex);
            stateChanged.wait(lock, [&] { return !stopping; });
        }
        JoinStopThread();

        std::lock_guard<std::mutex> lock(lifecycleMutex);
        if (IsRunningState(core.systemBundle->GetState()))
        {
            return;
        }
        core.systemBundle->NewContext();
        core.systemBundle->SetState(Bundle::STATE_STARTING);
        core.log.Info("Framework initialised");
    }

    void
    FrameworkLifecycle::Start(CoreBundleContext& core)
    {
        Init(core);
        {
            std::lock_guard<std::mutex> lock(lifecycleMutex);
            if (core.systemBundle->GetState() != Bundle::STATE_STARTING)
            {
                return;
            }
            core.systemBundle->SetState(Bundle::STATE_ACTIVE);
        }
        core.log.Info("Framework started");
        BundleLifecycle::FireBundleEvent(core, BundleEvent::BUNDLE_STARTED, core.systemBundle);
        core.listeners.FrameworkChanged(
            FrameworkEvent(FrameworkEvent::FRAMEWORK_STARTED, core.MakeBundle(core.systemBundle), "Framework started"));
    }

    void
    FrameworkLifecycle::Stop(std::shared_ptr<CoreBundleContext> const& core)
    {
        std::lock_guard<std::mutex> lock(lifecycleMutex);
        auto const state = core->systemBundle->GetState();
        if (stopping || (state != Bundle::STATE_STARTING && state != Bundle::STATE_ACTIVE))
        {
            return;
        }
        core->systemBundle->SetState(Bundle::STATE_STOPPING);
        stopping = true;
        if (stopThread.joinable())
        {
            // A finished stop of an earlier run that nobody waited for.
            if (stopThread.get_id() != std::this_thread::get_id())
            {
                stopThread.join();
            }
            else
            {
                stopThread.detach();
            }
        }
        stopThread = std::thread([core] { core->lifecycle.RunStop(core); });
    }

    void
    FrameworkLifecycle::RunStop(std::shared_ptr<CoreBundleContext> const& core) noexcept
    {
        auto const& system = core->systemBundle;
        FrameworkEvent::Type resultType = FrameworkEvent::FRAMEWORK_STOPPED;
        std::shared_ptr<BundlePrivate> resultBundle = system;
        std::string resultMessage = "Framework stopped";
        std::exception_ptr resultError;
        try
        {
            BundleLifecycle::FireBundleEvent(*core, BundleEvent::BUNDLE_STOPPING, system);

            // Stop in reverse start order; repeat for bundles that a stopping
            // bundle started.
            for (int round = 0; round < 16; ++round)
            {
                std::vector<std::shared_ptr<BundlePrivate>> started;
                for (auto& bundle : core->bundles.GetAll())
                {
                    if (!bundle->IsSystemBundle() && bundle->startOrder.load() != 0)
                    {
                        started.push_back(std::move(bundle));
                    }
                }
                if (started.empty())
                {
                    break;
                }
                std::sort(started.begin(),
                          started.end(),
                          [](auto const& a, auto const& b) { return a->startOrder.load() > b->startOrder.load(); });
                for (auto const& bundle : started)
                {
                    try
                    {
                        BundleLifecycle::Stop(bundle, core);
                    }
                    catch (...)
                    {
                        auto error = std::current_exception();
                        core->ReportError(bundle, bundle->Describe() + " failed to stop", error);
                        if (resultType != FrameworkEvent::FRAMEWORK_ERROR)
                        {
                            resultType = FrameworkEvent::FRAMEWORK_ERROR;
                            resultBundle = bundle;
                            resultMessage = bundle->Describe() + " failed to stop";
                            resultError = error;
                        }
                    }
                }
            }
            core->listeners.FrameworkChanged(
                FrameworkEvent(resultType, core->MakeBundle(resultBundle), resultMessage, resultError));
        }
        catch (std::exception const& e)
        {
            core->log.Error(std::string("Error while stopping the framework: ") + e.what());
        }
        catch (...)
        {
            core->log.Error("Unknown error while stopping the framework");
        }

        BundleLifecycle::ReleaseResources(*system, *core);
        {
            std::lock_guard<std::mutex> lock(lifecycleMutex);
            system->SetState(Bundle::STATE_RESOLVED);
            stopping = false;
            lastStopType = resultType;
            lastStopBundle = std::move(resultBundle);
            lastStopMessage = std::move(resultMessage);
            lastStopError = resultError;
        }
        stateChanged.notify_all();
        core->log.Info("Framework stopped");
    }

    FrameworkEvent
    FrameworkLifecycle::WaitForStop(CoreBundleContext& core, std::chrono::milliseconds timeout)
    {
        {
            std::unique_lock<std::mutex> lock(lifecycleMutex);
            auto const done = [&] { return !stopping && !IsRunningState(core.systemBundle->GetState()); };
            if (timeout.count() <= 0)
            {
                stateChanged.wait(lock, done);
            }
            else if (!stateChanged.wait_for(lock, timeout, done))
            {
                return FrameworkEvent(FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT,
                                      core.MakeBundle(core.systemBundle),
                                      "Timed out waiting for the framework to stop");
            }
        }
        JoinStopThread();
        std::lock_guard<std::mutex> lock(lifecycleMutex);
        return FrameworkEvent(lastStopType,
                              core.MakeBundle(lastStopBundle ? lastStopBundle : core.systemBundle),
                              lastStopMessage,
                              lastStopError);
    }
} // namespace cppmicroservices
