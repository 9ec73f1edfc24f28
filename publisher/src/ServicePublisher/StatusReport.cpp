// The component's status report, and the notes it keeps for it.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "ServicePublisher/EndpointKeywords.h"

namespace agent::spf::legacyservicepublisher {

using Connection = PublisherStatus::Connection;

namespace {

// Call with connectionsMutex and statusMutex held (through the lambdas' owner).
template <class Known>
std::string exchangeOf(const std::string& endpoint, const Known& korvexConnectorAgent, const Known& serviceHostAgent) {
    if (endpoint == keywords::korvexConnectorDiscovery) {
        return korvexConnectorAgent ? korvexConnectorAgent->getExchange() : "";
    }
    if (endpoint == keywords::serviceHostDiscovery) {
        return serviceHostAgent ? serviceHostAgent->getExchange() : "";
    }
    if (endpoint == keywords::allEndpoints) {
        return "";
    }
    return endpoint;
}

}  // namespace

void ServicePublisher::noteConnectionError(const std::string& endpoint, const std::string& error) {
    std::lock_guard<std::mutex> lock(statusMutex);
    if (error.empty()) {
        lastConnectionErrors.erase(endpoint);
    } else {
        lastConnectionErrors[endpoint] = error;
    }
}

bool ServicePublisher::noteServiceProblem(const std::string& configuration, const std::string& uniqueID,
                                          const std::string& endpoint, const std::string& problem) {
    std::lock_guard<std::mutex> lock(statusMutex);
    const auto key = std::make_tuple(configuration, uniqueID, endpoint);
    if (problem.empty()) {
        return serviceProblems.erase(key) != 0;
    }
    auto& noted = serviceProblems[key];
    const bool changed = noted != problem;
    noted = problem;
    return changed;
}

void ServicePublisher::forgetServiceProblemsOf(const std::string& configuration) {
    std::lock_guard<std::mutex> lock(statusMutex);
    for (auto problem = serviceProblems.begin(); problem != serviceProblems.end();) {
        problem = std::get<0>(problem->first) == configuration ? serviceProblems.erase(problem) : std::next(problem);
    }
}

PublisherStatus::Report ServicePublisher::statusReport() {
    PublisherStatus::Report report;
    {
        std::lock_guard<std::mutex> lock(connectionsMutex);
        std::lock_guard<std::mutex> statusLock(statusMutex);
        std::set<std::string> endpoints;
        for (const auto& [key, configuration] : publisherConfigurations) {
            endpoints.insert(configuration.endpoints.begin(), configuration.endpoints.end());
        }
        std::map<std::string, std::string> unreachable;  // endpoint → why, for the services
        for (const auto& endpoint : endpoints) {
            Connection connection;
            connection.endpoint = endpoint;
            connection.exchange = exchangeOf(endpoint, korvexConnectorAgent, serviceHostAgent);
            const auto& exchange = connection.exchange;
            if (endpoint == keywords::allEndpoints) {
                connection.state = agentConnections.empty() ? Connection::State::waiting : Connection::State::connected;
                connection.detail = std::to_string(agentConnections.size()) + " exchanges connected";
            } else if (!exchange.empty() && agentConnections.count(exchange) != 0) {
                connection.state = Connection::State::connected;
            } else if (!exchange.empty() && pendingAgentConnections.count(exchange) != 0) {
                connection.state = Connection::State::pending;
            } else if (failedAgentConnections.count(endpoint) != 0 ||
                       (!exchange.empty() && failedAgentConnections.count(exchange) != 0)) {
                connection.state = Connection::State::failed;
                const auto error = lastConnectionErrors.find(exchange);
                connection.detail = error == lastConnectionErrors.end() ? "" : error->second;
            } else {
                connection.state = Connection::State::waiting;
                connection.detail = endpoint == keywords::inProcess ? "no in-process exchange in the framework"
                                    : exchange.empty()              ? "no exchange of that kind in the agent registry"
                                                                    : "not tried yet";
            }
            if (connection.state != Connection::State::connected) {
                unreachable[endpoint] = endpoint + ": not connected";
            }
            report.connections.push_back(std::move(connection));
        }

        for (const auto& [key, configuration] : publisherConfigurations) {
            for (const auto& requested : configuration.serviceConfigurations) {
                PublisherStatus::Service service;
                service.configuration = key;
                service.name = requested.name;
                service.major = requested.version.major;
                service.uniqueID = requested.uniqueID;
                for (const auto& entry : serviceEntries) {
                    if (entry.configurationKey == key && entry.uniqueID == requested.uniqueID) {
                        service.runningOn.push_back(entry.exchangeEndpoint);
                    }
                }
                for (const auto& endpoint : configuration.endpoints) {
                    if (const auto why = unreachable.find(endpoint); why != unreachable.end()) {
                        service.problems.push_back(why->second);
                    }
                }
                for (const auto& [problemKey, problem] : serviceProblems) {
                    if (std::get<0>(problemKey) == key && std::get<1>(problemKey) == requested.uniqueID) {
                        service.problems.push_back(std::get<2>(problemKey) + ": " + problem);
                    }
                }
                report.services.push_back(std::move(service));
            }
        }
    }
    std::lock_guard<std::mutex> lock(notificationMutex);
    for (const auto& entry : invokableFactories) {
        const auto& legacy = entry.serviceStub.getVersion();
        report.invokables.push_back({entry.getServiceName(),
                                     agent::spf::core::APIVersion(legacy.getMajor(), legacy.getMinor(),
                                                                  legacy.getPatch(), legacy.getBuild()),
                                     entry.exchangeEndpoint, entry.serviceUuid, entry.statistics->snapshot()});
    }
    return report;
}

}  // namespace agent::spf::legacyservicepublisher
