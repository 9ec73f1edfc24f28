#pragma once

// The legacy service publisher component: Declarative Services creates it with an invokable
// publisher, a serialisation catalogue and a thread-pool provider; Configuration Admin hands it
// factory configurations ("qz.spf.legacyservicepublisher~<name>"); other bundles publish service
// interfaces to it. One work thread reconciles what runs on the configured exchange endpoints
// with what the configurations ask for, on every wake-up and periodically (every 500 ms in the
// first 5 s after Activate, every 5 s afterwards).
//
// Locks and their only nestings: connectionsMutex guards all reconciliation state (stateChanged
// is its condition); workMutex guards the work thread's wake-up fields and is never held together
// with connectionsMutex; inProcessMutex guards inProcessDiscovery; notificationMutex guards
// invokableFactories. Taken together, connectionsMutex comes first, then inProcessMutex or
// notificationMutex.

#include "agent/control/AgentInfo.h"
#include "agent/core/service/ServiceBase.h"
#include "agent/core/service/ServiceBuilderBase.h"
#include "agent/core/serviceutils/Context.h"
#include "agent/core/serviceutils/ServiceStub.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/directoryinterfaces/ServiceStartedNotification.h"
#include "agent/directoryinterfaces/ServiceStoppedNotification.h"
#include "agent/spf/core/APIVersion.h"
#include "agent/spf/core/Invokable.h"
#include "agent/spf/core/ServiceInterface.h"
#include "agent/spf/inprocessdiscovery/InProcessDiscovery.h"
#include "agent/spf/legacyservicepublisher/CallStatistics.h"
#include "agent/spf/legacyservicepublisher/PublisherStatus.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"
#include "agent/spf/servicepublisher/ServicePublisher.h"
#include "agent/spf/threadpoolprovider/ThreadPoolProvider.h"

#include "foundation/concurrent/threadpool/WorkHandle.h"

#include <cppmicroservices/AnyMap.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/ServiceRegistration.h>
#include <cppmicroservices/ServiceRegistrationBase.h>
#include <cppmicroservices/ServiceTracker.h>
#include <cppmicroservices/ServiceTrackerCustomizer.h>
#include <cppmicroservices/cm/ManagedServiceFactory.hpp>
#include <cppmicroservices/servicecomponent/ComponentContext.hpp>

#include <boost/multi_index/composite_key.hpp>
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index/random_access_index.hpp>
#include <boost/multi_index/tag.hpp>
#include <boost/multi_index_container.hpp>
#include <boost/property_tree/ptree.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace agent::spf::legacyservicepublisher {

// The invokable handed to SPF clients for one legacy service instance.
class InvokableImpl;
class PublisherStatusService;

class ServicePublisher final
    : public agent::spf::servicepublisher::ServicePublisher,
      public cppmicroservices::service::cm::ManagedServiceFactory,
      public cppmicroservices::ServiceTrackerCustomizer<agent::spf::inprocessdiscovery::InProcessDiscovery> {
public:
    using InvokablePublisherType = agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>;
    using ComponentContext = cppmicroservices::service::component::ComponentContext;
    using InProcessDiscovery = agent::spf::inprocessdiscovery::InProcessDiscovery;

    // How a connection is torn down: Yes cuts the transport at once (the container stays alive
    // while services wind down on its pool); No disconnects in order and releases the container.
    enum class ForceCleanup { Yes = 0, No = 1 };

    // Which running agent an endpoint keyword asks for: "korvexConnectorDiscovery" (registry
    // filter "(mode=korvexdrive)") or "norbridgeServiceHostDiscovery" ("(mode=desktopservices)").
    enum class ConnectorMode { KORVEXDrive = 0, DesktopServices = 1 };

    // What a reconciliation does: InterfaceAdded only starts missing services, InterfaceWithdrawn
    // only stops services no longer asked for, ConfigurationOrPass does both.
    enum class ChangeType { InterfaceAdded = 0, InterfaceWithdrawn = 1, ConfigurationOrPass = 2 };

    // One requested service of a publisher configuration. Only the major version takes part in
    // choosing the interface.
    struct ServiceConfiguration {
        ServiceConfiguration(std::string name, agent::spf::core::APIVersion version,
                             boost::property_tree::ptree requestedProperties, std::string uniqueID);

        std::string name;
        agent::spf::core::APIVersion version;
        // Properties the chosen interface must have; empty = no requirement.
        boost::property_tree::ptree requestedProperties;
        // Identifies the instance within its publisher configuration.
        std::string uniqueID;
    };

    // One factory configuration, parsed.
    struct PublisherConfiguration {
        PublisherConfiguration(std::set<std::string> endpoints, std::vector<ServiceConfiguration> serviceConfigurations,
                               unsigned int modificationCount);

        // Exchange endpoint addresses and endpoint keywords.
        std::set<std::string> endpoints;
        // In configuration order.
        std::vector<ServiceConfiguration> serviceConfigurations;
        // Only a higher count replaces a stored configuration.
        unsigned int modificationCount;
    };

    // One open connection to an exchange endpoint. The record owns the directory client; the
    // container behind it is owned jointly by the two closures. Move-only; nothing here throws.
    struct AgentConnection {
        AgentConnection(std::function<agent::core::serviceutils::Context(unsigned int)> contextFactory,
                        std::function<void(ForceCleanup)> cleanup,
                        std::unique_ptr<agent::directory::DirectoryServiceClient> directoryClient,
                        boost::uuids::uuid callbackRegistrationId) noexcept
            : contextFactory(std::move(contextFactory)),
              cleanup(std::move(cleanup)),
              directoryClient(std::move(directoryClient)),
              callbackRegistrationId(callbackRegistrationId) {}
        AgentConnection(AgentConnection&&) noexcept = default;
        AgentConnection& operator=(AgentConnection&&) noexcept = default;
        AgentConnection(const AgentConnection&) = delete;
        AgentConnection& operator=(const AgentConnection&) = delete;
        // Member order makes this destroy the directory client, then cleanup, then contextFactory.
        ~AgentConnection() = default;

        // A fresh agent context on the connection; the argument is its concurrency limit.
        std::function<agent::core::serviceutils::Context(unsigned int)> contextFactory;
        // Disconnects the transport, by force or in order.
        std::function<void(ForceCleanup)> cleanup;
        std::unique_ptr<agent::directory::DirectoryServiceClient> directoryClient;
        // The directory subscription; nil when there is none.
        boost::uuids::uuid callbackRegistrationId;
    };

    // One published service interface and the builder chosen for it from its metadata
    // ("spf.legacy.servicebuilder", "spf.legacy.bundleid", "spf.legacy.servicebuilderlibrary").
    // Immutable once made; not copyable.
    struct ServiceInterfaceEntry {
        // Chooses the builder (getServiceBuilder); throws what that throws.
        ServiceInterfaceEntry(boost::uuids::uuid id, agent::spf::core::ServiceInterface serviceInterface,
                              const cppmicroservices::BundleContext& context,
                              std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue);
        ServiceInterfaceEntry(const ServiceInterfaceEntry&) = delete;
        ServiceInterfaceEntry& operator=(const ServiceInterfaceEntry&) = delete;

        const std::string& getServiceInterfaceName() const { return interfaceName; }
        const agent::spf::core::APIVersion& getServiceInterfaceVersion() const { return version; }
        const std::map<std::string, std::string>& getServiceProperties() const { return serviceProperties; }

        // A new, unstarted service from the builder; may be null. Throws what the builder throws.
        std::shared_ptr<agent::core::service::ServiceBase> create() const;

        // The declarative-services builder unless "spf.legacy.servicebuilder" is exactly "true";
        // then the bundle's builder ("spf.legacy.bundleid", base 10) or the library's
        // ("spf.legacy.servicebuilderlibrary"). Throws std::runtime_error
        // "Unable to obtain valid Bundle for legacy bundle based ServiceInterface" or
        // "Unable to obtain library name for legacy library based ServiceInterface", or the
        // std::invalid_argument / std::out_of_range of a malformed bundle id.
        std::shared_ptr<agent::core::service::ServiceBuilderBase> getServiceBuilder(
            const cppmicroservices::BundleContext& context,
            std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue);

        const boost::uuids::uuid uuid;
        const agent::spf::core::ServiceInterface serviceInterface;
        const std::string interfaceName;
        const agent::spf::core::APIVersion version;
        const std::map<std::string, std::string> serviceProperties;
        const std::shared_ptr<agent::core::service::ServiceBuilderBase> serviceBuilder;
    };

    // One running legacy service instance, identified by (exchangeEndpoint, configurationKey,
    // uniqueID): constructing it starts the service, destroying it stops the service. Made and
    // destroyed under connectionsMutex only.
    struct ServiceEntry {
        // Starts `service` with the requested properties and the context. Throws
        // std::runtime_error "Failed to create ServiceBase" for a null service, "Failed to create
        // a valid Context" for an invalid context, "Failed to start service <name>" when start
        // says no, and what start throws; the service is not stopped then.
        ServiceEntry(std::string exchangeEndpoint, std::string configurationKey, std::string uniqueID,
                     boost::uuids::uuid interfaceId, agent::core::serviceutils::Context context,
                     boost::property_tree::ptree requestedProperties,
                     std::shared_ptr<agent::core::service::ServiceBase> service);
        // Stops the service before the context goes; a failure to stop ends the process.
        ~ServiceEntry();
        ServiceEntry(const ServiceEntry&) = delete;
        ServiceEntry& operator=(const ServiceEntry&) = delete;

        std::string exchangeEndpoint;
        std::string configurationKey;
        std::string uniqueID;
        // The ServiceInterfaceEntry whose builder made the service.
        boost::uuids::uuid interfaceId;
        agent::core::serviceutils::Context context;
        boost::property_tree::ptree requestedProperties;
        std::shared_ptr<agent::core::service::ServiceBase> service;
    };

    // The invokable factory published for one directory instance, keyed by (exchangeEndpoint,
    // serviceUuid): constructing it registers the factory with the invokable publisher (name,
    // uuid and version of the instance; "endpointAddress" and the instance's metadata as
    // properties), destroying it withdraws the factory and cleans up every invokable still out.
    // Not copyable; its callbacks hold its address.
    struct InvokableFactoryEntry {
        // Throws what the registration throws; nothing is registered then.
        InvokableFactoryEntry(std::string exchangeEndpoint, agent::core::serviceutils::ServiceStub stub,
                              std::function<agent::core::serviceutils::Context(unsigned int)> contextFactory,
                              std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue,
                              InvokablePublisherType& publisher);
        // Blocks until the factory's callbacks running elsewhere and the invokables' calls have
        // ended; must not run on a thread that holds `mutex`. A failure ends the process.
        ~InvokableFactoryEntry();
        InvokableFactoryEntry(const InvokableFactoryEntry&) = delete;
        InvokableFactoryEntry& operator=(const InvokableFactoryEntry&) = delete;

        std::string getServiceName() const { return serviceStub.getName(); }
        // A new invokable on a fresh context of the connection (client threads). Throws
        // std::runtime_error "Obtaining a valid Context for the Invokable failed" once the
        // connection is gone.
        std::shared_ptr<agent::spf::core::Invokable> getInvokable();
        // Takes back and cleans up an invokable this entry made; others, and one given back
        // before, are ignored. Client threads; blocks while the invokable's calls end.
        void ungetInvokable(std::shared_ptr<agent::spf::core::Invokable> invokable);

        std::string exchangeEndpoint;
        boost::uuids::uuid serviceUuid;
        agent::core::serviceutils::ServiceStub serviceStub;
        std::function<agent::core::serviceutils::Context(unsigned int)> contextFactory;
        std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> serialisationCatalogue;
        std::mutex mutex;  // guards invokables and calls of contextFactory
        std::set<std::shared_ptr<InvokableImpl>> invokables;
        // The calls of every invokable made here, for the status report.
        const std::shared_ptr<CallStatistics> statistics = std::make_shared<CallStatistics>();
        InvokablePublisherType& invokablePublisher;
        agent::spf::servicepublisher::InvokableFactoryHandle registration;
    };

    // Index tags of the entry containers.
    struct ByUuid {};
    struct ByNameAndVersion {};
    struct BySequence {};
    struct ByIdentity {};
    struct ByEndpoint {};
    struct ByEndpointAndService {};

    using ServiceInterfaces = boost::multi_index_container<
        ServiceInterfaceEntry,
        boost::multi_index::indexed_by<
            boost::multi_index::hashed_unique<
                boost::multi_index::tag<ByUuid>,
                boost::multi_index::member<ServiceInterfaceEntry, const boost::uuids::uuid, &ServiceInterfaceEntry::uuid>>,
            boost::multi_index::ordered_non_unique<
                boost::multi_index::tag<ByNameAndVersion>,
                boost::multi_index::composite_key<
                    ServiceInterfaceEntry,
                    boost::multi_index::member<ServiceInterfaceEntry, const std::string, &ServiceInterfaceEntry::interfaceName>,
                    boost::multi_index::member<ServiceInterfaceEntry, const agent::spf::core::APIVersion,
                                               &ServiceInterfaceEntry::version>>>>>;

    using ServiceEntries = boost::multi_index_container<
        ServiceEntry,
        boost::multi_index::indexed_by<
            boost::multi_index::random_access<boost::multi_index::tag<BySequence>>,
            boost::multi_index::ordered_unique<
                boost::multi_index::tag<ByIdentity>,
                boost::multi_index::composite_key<
                    ServiceEntry, boost::multi_index::member<ServiceEntry, std::string, &ServiceEntry::exchangeEndpoint>,
                    boost::multi_index::member<ServiceEntry, std::string, &ServiceEntry::configurationKey>,
                    boost::multi_index::member<ServiceEntry, std::string, &ServiceEntry::uniqueID>>>,
            boost::multi_index::ordered_non_unique<
                boost::multi_index::tag<ByEndpoint>,
                boost::multi_index::member<ServiceEntry, std::string, &ServiceEntry::exchangeEndpoint>>>>;

    using InvokableFactories = boost::multi_index_container<
        InvokableFactoryEntry,
        boost::multi_index::indexed_by<boost::multi_index::ordered_unique<
            boost::multi_index::tag<ByEndpointAndService>,
            boost::multi_index::composite_key<
                InvokableFactoryEntry,
                boost::multi_index::member<InvokableFactoryEntry, std::string, &InvokableFactoryEntry::exchangeEndpoint>,
                boost::multi_index::member<InvokableFactoryEntry, boost::uuids::uuid,
                                           &InvokableFactoryEntry::serviceUuid>>>>>;

    using AgentConnections = std::map<std::string, AgentConnection>;

    // The directory client of the in-process exchange (which keeps that exchange open) and the
    // discovery service it came from; both null when there is none.
    using FrameworkDiscoveryResult = std::pair<std::unique_ptr<agent::directory::DirectoryServiceClient>,
                                               std::shared_ptr<InProcessDiscovery>>;

    // Declarative Services calls this with the three bound references (never null). Does not
    // start the work thread. Framework thread; throws only std::bad_alloc.
    ServicePublisher(const std::shared_ptr<InvokablePublisherType>& invokablePublisher,
                     const std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue>& serialisationCatalogue,
                     const std::shared_ptr<agent::spf::threadpoolprovider::ThreadPoolProvider>& threadpoolProvider);
    ServicePublisher(const ServicePublisher&) = delete;
    ServicePublisher& operator=(const ServicePublisher&) = delete;
    // The work thread must have been joined (Deactivate); destroys every entry still held.
    ~ServicePublisher() override;

    // Registers an interface and returns the uuid that withdraws it. Blocks, deliberately, until
    // the first publisher configuration has arrived. Any thread; takes connectionsMutex. Throws
    // std::runtime_error("Unable to publish service") when deactivation has begun (also while
    // waiting) or when starting the configured services on the new interface fails, and the
    // builder-selection errors of ServiceInterfaceEntry::getServiceBuilder; the registry is
    // then as it was.
    boost::uuids::uuid publishService(agent::spf::core::ServiceInterface serviceInterface) override;
    // Withdraws the interface with that uuid and stops the services that depended on it. False
    // for an unknown uuid. Any thread; takes connectionsMutex; a failure ends the process.
    bool unpublishService(const boost::uuids::uuid& id) noexcept override;

    // Records factory configuration `pid` (key: the PID without its first 30 characters when it
    // has 31 or more) unless an equal or higher modificationCount is stored, reconciles at once
    // and wakes the work thread. An empty map is ignored. Configuration Admin's thread; takes
    // connectionsMutex, then workMutex. Throws what parsing throws for a missing or mistyped
    // "config.endpointsToConnectTo" or "serviceConfigurations" (nothing is recorded then).
    void Updated(const std::string& pid, const cppmicroservices::AnyMap& properties) override;
    // Forgets configuration `pid` and wakes the work thread, whose next pass stops its services.
    // Configuration Admin's thread; takes connectionsMutex, then workMutex. Throws only std::bad_alloc.
    void Removed(const std::string& pid) override;

    // The in-process discovery tracker's callbacks (framework threads). The first discovery
    // service added (and not marked "spf::legacyservicepublisher::selfPublished") is the one in
    // use until it is removed; adding it and removing it wake the work thread.
    std::shared_ptr<InProcessDiscovery> AddingService(
        const cppmicroservices::ServiceReference<InProcessDiscovery>& reference) override;
    void ModifiedService(const cppmicroservices::ServiceReference<InProcessDiscovery>& reference,
                         const std::shared_ptr<InProcessDiscovery>& service) override;
    void RemovedService(const cppmicroservices::ServiceReference<InProcessDiscovery>& reference,
                        const std::shared_ptr<InProcessDiscovery>& service) override;

    // Takes the bundle context, opens the in-process discovery tracker and starts the work
    // thread, whose first pass runs at once. Framework thread. Throws std::system_error
    // "thread constructor failed" when the thread cannot be made (the component stays inactive);
    // calling it while the work thread still runs ends the process.
    void Activate(const std::shared_ptr<ComponentContext>& context);
    // Closes the tracker, stops the work thread after one last full pass, waits for this
    // component's connection tasks, tears every connection down and empties the interface
    // registry. Blocking; framework thread; never called from the work thread.
    void Deactivate(const std::shared_ptr<ComponentContext>& context);

    // What the component is doing: its connections, configured services and published
    // instances with their calls. Any thread; takes connectionsMutex, then notificationMutex.
    PublisherStatus::Report statusReport();

private:
    friend class ServicePublisherTestAccess;

    // Remember why an endpoint could not be reached, and why a configured service does not run
    // on an endpoint; an empty text forgets it. Any thread; take statusMutex themselves.
    // noteServiceProblem says whether that changed what was noted.
    void noteConnectionError(const std::string& endpoint, const std::string& error);
    bool noteServiceProblem(const std::string& configuration, const std::string& uniqueID,
                            const std::string& endpoint, const std::string& problem);
    // A configuration that changed or went starts with nothing noted (so its problems are logged anew).
    void forgetServiceProblemsOf(const std::string& configuration);

    // Work thread.
    // Call with workMutex held.
    bool workThreadShouldWakeup() const;
    void threadProc();
    // Sets wakeRequested and notifies the work thread. Call with neither workMutex nor
    // connectionsMutex held.
    void wakeWorkThread();

    // Configuration.
    // Parses one factory configuration; uses no member state. Logs and skips bad elements;
    // throws for a missing or mistyped "config.endpointsToConnectTo" or "serviceConfigurations".
    PublisherConfiguration toPublisherConfiguration(const cppmicroservices::AnyMap& properties);
    // The PID whole when shorter than 31 characters, else without its first 30.
    static std::string configurationKey(const std::string& pid);
    // Starts every configured service missing on the connections its configuration selects
    // (unless `change` is InterfaceWithdrawn) with the highest interface of its name and major
    // version that has the requested properties, and stops every running one no configuration
    // asks for any more or whose interface is gone (unless `change` is InterfaceAdded). False
    // when starting an instance failed (logged; the next call tries again). Call with
    // connectionsMutex held; takes inProcessMutex and notificationMutex briefly.
    bool ensureAllPublisherConfigurationsAreHonoured(ChangeType change);
    // The connections an entry of a configuration's endpoints selects: the connection of that
    // name, else what its keyword stands for ("inprocess" makes that connection when needed).
    // Call with connectionsMutex held.
    std::vector<AgentConnections::iterator> connectionsSelectedBy(const std::string& endpoint);

    // Agent connections. Call with connectionsMutex held unless said otherwise.
    // Connects a container of its own to `endpoint`, with a directory client subscribed to its
    // directory. Blocks until connected or refused; an empty result (logged) on any failure.
    // Takes no lock itself; never throws.
    std::optional<AgentConnection> createNewAgentConnection(const std::string& endpoint);
    // Posts up to three attempts at the connection to the thread-pool provider's executor,
    // tagged with connectionTaskGroup, and records it as pending (an earlier pending one keeps
    // its entry). The task files the connection, or the endpoint as failed, under
    // connectionsMutex; a stop request ends it without either. Non-blocking.
    void createNewAgentConnectionAsync(const std::string& endpoint);
    // Opens the connections the configurations ask for (literal endpoints as pool tasks, the
    // agents behind the discovery keywords at once, "inprocess" while its discovery service
    // is in use) and ends, in order, every other one. Endpoints that failed for good, and
    // those in `justShutDown` for this one pass, are left out.
    void ensureAllConfiguredAgentConnectionsAreHonoured(const std::set<std::string>& justShutDown);
    // Follows the running agent of `mode`: a known agent that has gone is torn down by force,
    // a newly found one connected (and remembered in `known`); its exchange goes into `keep`.
    // Returns the exchange in use for the mode ("" for none) and whether this call connected it.
    std::pair<std::string, bool> checkStatusOfKORVEXConnector(std::unique_ptr<agent::control::AgentInfo>& known,
                                                              ConnectorMode mode, std::set<std::string>& keep,
                                                              const std::set<std::string>& justShutDown);

    // Withdraws the service host's exchange from the process, if it was offered, so that it is
    // offered again when found again. Call with connectionsMutex held.
    void withdrawInProcessBridge() noexcept;

    // What the agent registry of a mode says about the agent in use.
    struct AgentStatus {
        enum Code {
            FirstFound = 0,    // none was known; `agent` is the first running one
            KnownRunning = 1,  // the known agent still runs; `agent` is its entry
            KnownGone = 2,     // the known agent has gone; `agent` is the first running one
            NoneRunning = 3,   // no agent runs (or there is no registry root)
            Failed = 4         // the registry could not be read (logged)
        };
        Code code;
        std::optional<agent::control::AgentInfo> agent;
    };
    // Reads the registry of `mode` (found through the user storage root override service of
    // that mode, if there is one). Blocks on the file system; never throws.
    AgentStatus lookUpRunningAgents(const agent::control::AgentInfo* known, ConnectorMode mode) const;
    // Ends the directory subscription (waiting for its notifications), withdraws the
    // endpoint's invokable factories, stops its services and disconnects in order; with
    // ForceCleanup::Yes the transport is cut first, so that a dead exchange holds nothing up.
    // The caller erases the record. Takes notificationMutex.
    void cleanUpAgentConnection(const std::string& endpoint, AgentConnection& connection, ForceCleanup force);
    // The above for the connection to `endpoint`, erased afterwards; nothing without one.
    void cleanUpAgentConnection(const std::string& endpoint, ForceCleanup force);
    // Every connection, in order of endpoint, in order; agentConnections is left empty.
    void cleanUpAllAgentConnections();

    // In-process exchange.
    // Whether an in-process discovery service is in use. Takes inProcessMutex only.
    bool hasInProcess() const;
    // A directory client of the in-process exchange with that concurrency, and the discovery
    // service it came from (which must outlive it); both null without a service or when the
    // service refuses (logged). Takes inProcessMutex only, never while calling the service.
    FrameworkDiscoveryResult getInProcessFrameworkDiscoveryService(unsigned int concurrency) const;
    // Adds the "inprocess" connection, unless there is one already, and returns it; end() (and
    // a log line) when it cannot be made. Call with connectionsMutex held.
    AgentConnections::iterator addInProcessExchangeEndpoint();

    // Directory notifications (the notifications run on the connection's pool and take
    // notificationMutex, then workMutex, never both and never connectionsMutex).
    // Subscribes to every change in the endpoint's directory, the running services first.
    // Returns the subscription, or the nil uuid after logging why there is none. Blocks on
    // the directory; never throws.
    boost::uuids::uuid registerForCallbacks(const std::string& endpoint,
                                            agent::directory::DirectoryServiceClient& client);
    // Logs it and, when the instance has no invokable factory yet, wakes the work thread.
    void serviceStartedNotification(const std::string& endpoint,
                                    const agent::directoryinterfaces::ServiceStartedNotification& notification);
    // Logs it and withdraws the instance's invokable factory; the stop of the endpoint's own
    // "directory" queues the endpoint for forced teardown and wakes the work thread.
    void serviceStoppedNotification(const std::string& endpoint,
                                    const agent::directoryinterfaces::ServiceStoppedNotification& notification);
    // When `metadata` names a replace-matching key and value, deregisters every instance of
    // `serviceName` in the directory that carries them and has major version `majorVersion`
    // ("spf::servicemajor"). Work thread; blocks on the directory; logs failures, never throws.
    void removeExpiredDuplicateServicesIfRequired(agent::directory::DirectoryServiceClient& client,
                                                  const std::string& serviceName,
                                                  const boost::property_tree::ptree& metadata,
                                                  unsigned int majorVersion);

    // Publishes an invokable factory for every instance a connected directory lists that has
    // none (the directory itself left out). Three failed queries of one directory in a row tear
    // its connection down by force; a successful one starts the count again. True when a query
    // failed in this pass, so that the next pass follows at once. Work thread; call with
    // connectionsMutex held; takes notificationMutex.
    bool ensureAllKnownServicesHaveInvokables();

    std::shared_ptr<InvokablePublisherType> invokablePublisher;
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> serialisationCatalogue;
    std::shared_ptr<agent::spf::threadpoolprovider::ThreadPoolProvider> threadpoolProvider;
    cppmicroservices::BundleContext bundleContext;

    std::mutex workMutex;  // guards the five work-thread fields below
    std::condition_variable workCondition;
    bool stopRequested = false;
    std::chrono::steady_clock::time_point fastPhaseEnd;
    std::chrono::steady_clock::time_point nextPassDue;
    std::set<std::string> endpointsToForceTeardown;
    bool wakeRequested = false;

    std::mutex connectionsMutex;  // guards every member from here to serviceEntries, and deactivating
    std::unique_ptr<agent::control::AgentInfo> korvexConnectorAgent;
    std::unique_ptr<agent::control::AgentInfo> serviceHostAgent;
    std::string serviceHostExchange;
    cppmicroservices::ServiceRegistrationBase inProcessBridgeRegistration{cppmicroservices::ServiceRegistrationU()};
    AgentConnections agentConnections;
    std::map<std::string, std::shared_ptr<foundation::concurrent::threadpool::WorkHandle>> pendingAgentConnections;
    std::map<std::string, unsigned int> directoryQueryFailures;
    std::map<std::string, PublisherConfiguration> publisherConfigurations;
    std::set<std::string> failedAgentConnections;
    std::condition_variable stateChanged;
    ServiceInterfaces serviceInterfaces;
    ServiceEntries serviceEntries;
    boost::uuids::random_generator uuidGenerator;
    bool deactivating = false;

    std::mutex notificationMutex;  // guards invokableFactories
    InvokableFactories invokableFactories;
    boost::uuids::uuid connectionTaskGroup;

    mutable std::mutex inProcessMutex;  // guards inProcessDiscovery
    std::shared_ptr<InProcessDiscovery> inProcessDiscovery;
    std::unique_ptr<cppmicroservices::ServiceTracker<InProcessDiscovery>> inProcessTracker;
    std::string desktopRealmName;
    std::thread workThread;

    std::mutex statusMutex;  // guards lastConnectionErrors and serviceProblems
    std::map<std::string, std::string> lastConnectionErrors;
    // By (configuration key, uniqueID, endpoint).
    std::map<std::tuple<std::string, std::string, std::string>, std::string> serviceProblems;
    std::shared_ptr<PublisherStatusService> statusService;
    cppmicroservices::ServiceRegistration<PublisherStatus> statusRegistration;
};

}  // namespace agent::spf::legacyservicepublisher
