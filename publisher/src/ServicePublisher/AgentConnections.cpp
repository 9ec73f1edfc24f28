// Connections to exchange endpoints, made on the work thread or as pool tasks.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "CurrentExceptionMessage.h"

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"
#include "agent/spf/legacyservicepublisher/Logger.h"

#include "foundation/log/Severity.h"

#include <atomic>
#include <chrono>

namespace agent::spf::legacyservicepublisher {

namespace severity = foundation::log::severity;
using agent::core::container::ServiceContainer;
using agent::core::serviceutils::Context;

namespace {

constexpr std::chrono::milliseconds kTransportTimeout{5000};
constexpr std::chrono::milliseconds kDirectoryTimeout{5000};
// The directory client's notifications run at most three at a time on the connection's pool.
constexpr unsigned int kDirectoryConcurrency = 3;
constexpr int kConnectionAttempts = 3;

}  // namespace

std::optional<ServicePublisher::AgentConnection> ServicePublisher::createNewAgentConnection(
    const std::string& endpoint) {
    FOUNDATION_LOG(getLogger(), severity::info) << "Creating new Agent Connection for exchange endpoint: " << endpoint;
    try {
        auto container = std::make_shared<ServiceContainer>();
        // No cap on the pool itself: each context's concurrency limit governs its work.
        container->setNewMaximumPoolSize(0);
        container->createTransport(agent::nanomsgtransport::getTransport(*container, kTransportTimeout, kTransportTimeout));
        container->connectTransport(endpoint);

        // True until the connection is cleaned up; contexts made afterwards are empty. Atomic:
        // the factory runs on services' and discovery callers' threads, cleanup on the work thread.
        auto alive = std::make_shared<std::atomic<bool>>(true);
        std::function<Context(unsigned int)> contextFactory = [container, alive](unsigned int concurrency) {
            if (!alive->load()) {
                return Context();
            }
            auto* raw = container.get();
            Context context(raw->getNodeID(), raw->generateServiceInstance(), raw, raw->getTransport(),
                            [raw] { return raw->generateRandomUUID(); });
            context.getThreadPool().setConcurrencyLimit(concurrency);
            return context;
        };

        const auto directoryContext = contextFactory(kDirectoryConcurrency);
        if (!directoryContext.isValid()) {
            return std::nullopt;
        }
        auto directoryClient = std::make_unique<agent::directory::DirectoryServiceClient>(directoryContext,
                                                                                           kDirectoryTimeout);
        const auto subscription = registerForCallbacks(endpoint, *directoryClient);
        if (subscription.is_nil()) {
            return std::nullopt;  // the subscription logged why
        }

        // A forced cut keeps the container, whose pool may still be winding services down; an
        // orderly one disconnects and lets it go, after which further calls do nothing.
        std::function<void(ForceCleanup)> cleanup = [container, alive](ForceCleanup force) mutable {
            if (!container) {
                return;
            }
            if (force == ForceCleanup::Yes) {
                container->forceDisconnectTransport();
            } else {
                container->disconnectTransport();
                container.reset();
            }
            alive->store(false);
        };
        container.reset();
        noteConnectionError(endpoint, "");
        return AgentConnection(std::move(contextFactory), std::move(cleanup), std::move(directoryClient),
                               subscription);
    } catch (...) {
        noteConnectionError(endpoint, currentExceptionMessage());
        logCurrentException(severity::error, "Failed to create AgentConnection for exchange endpoint: " + endpoint);
        return std::nullopt;
    }
}

void ServicePublisher::createNewAgentConnectionAsync(const std::string& endpoint) {
    const auto executor = threadpoolProvider->getExecutor();
    auto target = std::make_shared<const std::string>(endpoint);
    auto task = [this, target](foundation::concurrent::threadpool::stop_token stop) {
        const std::string& endpoint = *target;
        std::optional<AgentConnection> connection;
        bool stopped = false;
        for (int attempt = 0; attempt < kConnectionAttempts && !connection; ++attempt) {
            if (stop.stop_requested()) {
                stopped = true;
                break;
            }
            connection = createNewAgentConnection(endpoint);
        }
        {
            std::lock_guard<std::mutex> lock(connectionsMutex);
            pendingAgentConnections.erase(endpoint);
            if (!connection) {
                if (!stopped) {
                    failedAgentConnections.insert(endpoint);
                }
                return;
            }
            if (agentConnections.count(endpoint) != 0) {
                // Another connection got there first and stays.
                cleanUpAgentConnection(endpoint, *connection, ForceCleanup::No);
                return;
            }
            agentConnections.emplace(endpoint, std::move(*connection));
        }
        wakeWorkThread();
    };
    std::shared_ptr<foundation::concurrent::threadpool::WorkHandle> handle;
    try {
        handle = executor->postWork(connectionTaskGroup, std::move(task), false);
    } catch (...) {
        // A pool that has been shut down takes no more work; the endpoint stays unpending, so a
        // later pass on a live pool tries again.
        logCurrentException(severity::error, "Failed to create AgentConnection for exchange endpoint: " + endpoint);
        return;
    }
    // A creation already under way keeps its handle.
    pendingAgentConnections.emplace(endpoint, std::move(handle));
}

}  // namespace agent::spf::legacyservicepublisher
