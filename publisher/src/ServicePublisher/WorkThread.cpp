// Activation, deactivation and the work thread with its pacing.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "CurrentExceptionMessage.h"
#include "PublisherStatusService.h"
#include "ServicePublisher/PassObserver.h"
#include "agent/spf/legacyservicepublisher/Logger.h"

#include "foundation/log/Severity.h"

#include <shared_mutex>
#include <system_error>

namespace agent::spf::legacyservicepublisher {

namespace {

constexpr std::chrono::milliseconds firstPassDelay{500};
constexpr std::chrono::seconds fastPhase{5};
constexpr std::chrono::milliseconds shortInterval{500};
constexpr std::chrono::seconds longInterval{5};

}  // namespace

void ServicePublisher::Activate(const std::shared_ptr<ComponentContext>& context) {
    {
        // publishService reads both under this lock on framework threads.
        std::lock_guard<std::mutex> lock(connectionsMutex);
        bundleContext = context->GetBundleContext();
        deactivating = false;
    }
    statusService = std::make_shared<PublisherStatusService>([this] { return statusReport(); });
    try {
        statusRegistration = bundleContext.RegisterService<PublisherStatus>(statusService);
    } catch (...) {
        // Operators go without the report; the component's work does not depend on it.
        logCurrentException(foundation::log::severity::warning, "Unable to offer the publisher status");
    }
    auto tracker = std::make_unique<cppmicroservices::ServiceTracker<InProcessDiscovery>>(bundleContext, this);
    tracker->Open();
    inProcessTracker = std::move(tracker);
    {
        std::lock_guard<std::mutex> lock(workMutex);
        stopRequested = false;
        wakeRequested = true;
        const auto now = std::chrono::steady_clock::now();
        fastPhaseEnd = now + fastPhase;
        nextPassDue = now + firstPassDelay;
    }
    try {
        workThread = std::thread(&ServicePublisher::threadProc, this);
    } catch (const std::system_error& e) {
        inProcessTracker.reset();
        throw std::system_error(e.code(), "thread constructor failed");
    }
}

void ServicePublisher::Deactivate(const std::shared_ptr<ComponentContext>&) {
    if (statusService) {
        try {
            statusRegistration.Unregister();
        } catch (const std::exception&) {
            // Withdrawn with the bundle already.
        }
        statusRegistration = nullptr;
        statusService->detach();
        statusService.reset();
    }
    if (inProcessTracker) {
        inProcessTracker->Close();
    }
    {
        std::lock_guard<std::mutex> lock(workMutex);
        stopRequested = true;
    }
    workCondition.notify_one();
    if (workThread.joinable()) {
        workThread.join();
    }

    {
        std::lock_guard<std::mutex> lock(connectionsMutex);
        deactivating = true;
        for (auto& pending : pendingAgentConnections) {
            if (pending.second) {
                pending.second->requestStop();
            }
        }
    }
    stateChanged.notify_all();

    // Only this component's connection tasks are waited for: the pool is shared with the host.
    // A pool that has been shut down runs nothing more, and its tasks have already ended.
    const auto executor = threadpoolProvider->getExecutor();
    {
        std::shared_lock<std::shared_mutex> poolLock(executor->shutdownMutex());
        if (!executor->isShutDown()) {
            executor->waitForTaskGroups({connectionTaskGroup});
        }
    }

    // Directory subscriptions still live until their connections go below may queue more
    // endpoints meanwhile; those connections are torn down in order all the same.
    std::set<std::string> forcedEndpoints;
    {
        std::lock_guard<std::mutex> lock(workMutex);
        forcedEndpoints.swap(endpointsToForceTeardown);
    }
    {
        std::lock_guard<std::mutex> lock(connectionsMutex);
        for (const auto& endpoint : forcedEndpoints) {
            cleanUpAgentConnection(endpoint, ForceCleanup::Yes);
        }
        cleanUpAllAgentConnections();
        withdrawInProcessBridge();
        [this]() noexcept { serviceInterfaces.clear(); }();
    }
    {
        std::lock_guard<std::mutex> lock(workMutex);
        endpointsToForceTeardown.clear();
    }
    inProcessTracker.reset();
    bundleContext = nullptr;
}

bool ServicePublisher::workThreadShouldWakeup() const {
    return stopRequested || wakeRequested || !endpointsToForceTeardown.empty();
}

void ServicePublisher::wakeWorkThread() {
    {
        std::lock_guard<std::mutex> lock(workMutex);
        wakeRequested = true;
    }
    workCondition.notify_one();
}

void ServicePublisher::threadProc() {
    const foundation::log::function_trace trace(
        getLogger(), "void agent::spf::legacyservicepublisher::ServicePublisher::threadProc()", "src/ServicePublisher",
        891);
    bool rerunAtOnce = false;
    bool stopSeen = false;
    for (;;) {
        PassReport pass;
        pass.publisher = this;
        pass.rerun = rerunAtOnce;
        std::set<std::string> forcedEndpoints;
        {
            std::unique_lock<std::mutex> workLock(workMutex);
            bool takeOverWork = true;
            if (!rerunAtOnce) {
                workCondition.wait_until(workLock, nextPassDue, [this] { return workThreadShouldWakeup(); });
                if (stopRequested) {
                    stopSeen = true;
                } else if (!wakeRequested && endpointsToForceTeardown.empty()) {
                    takeOverWork = false;  // nextPassDue came with nothing recorded
                }
            } else {
                stopSeen = stopRequested;
            }
            if (takeOverWork) {
                wakeRequested = false;
                forcedEndpoints.swap(endpointsToForceTeardown);
            }
            pass.woken = takeOverWork;
        }

        {
            std::lock_guard<std::mutex> connectionsLock(connectionsMutex);
            for (const auto& endpoint : forcedEndpoints) {
                FOUNDATION_LOG(getLogger(), foundation::log::severity::info)
                    << "Forcing teardown of exchange endpoint: " << endpoint;
                cleanUpAgentConnection(endpoint, ForceCleanup::Yes);
            }
            ensureAllConfiguredAgentConnectionsAreHonoured(forcedEndpoints);
            ensureAllPublisherConfigurationsAreHonoured(ChangeType::ConfigurationOrPass);
            rerunAtOnce = ensureAllKnownServicesHaveInvokables();
            const auto now = std::chrono::steady_clock::now();
            pass.fastPace = now < fastPhaseEnd;
            nextPassDue = now + (pass.fastPace ? std::chrono::steady_clock::duration(shortInterval)
                                               : std::chrono::steady_clock::duration(longInterval));
        }

        pass.stopSeen = stopSeen;
        pass.forcedEndpoints = std::move(forcedEndpoints);
        PassObserver::report(pass);
        if (stopSeen) {
            return;
        }
    }
}

}  // namespace agent::spf::legacyservicepublisher
