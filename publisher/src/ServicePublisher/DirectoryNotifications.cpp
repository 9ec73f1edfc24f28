// Directory subscriptions, their notifications, and removal of expired duplicate services.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "CurrentExceptionMessage.h"

#include "agent/directory/DirectoryDeregistrationToken.h"
#include "agent/spf/legacyservicepublisher/Logger.h"

#include "foundation/log/Severity.h"

#include <boost/tuple/tuple.hpp>

#include <map>
#include <string>

namespace agent::spf::legacyservicepublisher {

namespace severity = foundation::log::severity;
using agent::directory::DirectoryServiceClient;
using agent::directoryinterfaces::ServiceStartedNotification;
using agent::directoryinterfaces::ServiceStoppedNotification;

namespace {

// The name under which every exchange's directory lists itself; its stop means the exchange
// is going away.
const std::string kDirectoryServiceName = "directory";

}  // namespace

boost::uuids::uuid ServicePublisher::registerForCallbacks(const std::string& endpoint,
                                                          DirectoryServiceClient& client) {
    try {
        // The callbacks run on the connection's pool, which the connection's teardown drains
        // (the client's destructor waits for them) long before this object goes.
        auto callback = agent::directory::makeCallbackFunction(
            [this, endpoint](const ServiceStartedNotification& notification) {
                serviceStartedNotification(endpoint, notification);
            },
            [this, endpoint](const ServiceStoppedNotification& notification) {
                serviceStoppedNotification(endpoint, notification);
            });
        // Retrospectively: the services already running arrive as started notifications, so
        // a new connection learns of them the same way as of later ones.
        return client.registerForCallbacks(callback, DirectoryServiceClient::Retrospectively, boost::none,
                                           boost::none);
    } catch (...) {
        logCurrentException(severity::error, "Failed to register for directory notifications on endpoint " + endpoint);
        return boost::uuids::uuid{};
    }
}

void ServicePublisher::serviceStartedNotification(const std::string& endpoint,
                                                  const ServiceStartedNotification& notification) {
    FOUNDATION_LOG(getLogger(), severity::info)
        << "Service started notification for " << notification.serviceName << " on endpoint " << endpoint;
    bool published = false;
    {
        std::lock_guard<std::mutex> lock(notificationMutex);
        published = invokableFactories.count(boost::make_tuple(endpoint, notification.serviceInstance)) != 0;
    }
    if (!published) {
        // The work thread publishes a factory for it.
        wakeWorkThread();
    }
}

void ServicePublisher::serviceStoppedNotification(const std::string& endpoint,
                                                  const ServiceStoppedNotification& notification) {
    FOUNDATION_LOG(getLogger(), severity::info)
        << "Service stopped notification for " << notification.serviceName << " on endpoint " << endpoint;
    {
        std::lock_guard<std::mutex> lock(notificationMutex);
        const auto factory = invokableFactories.find(boost::make_tuple(endpoint, notification.serviceInstance));
        if (factory != invokableFactories.end()) {
            invokableFactories.erase(factory);
        }
    }
    if (notification.serviceName != kDirectoryServiceName) {
        return;
    }
    // The exchange is shutting down: the next pass tears its connection down by force.
    {
        std::lock_guard<std::mutex> lock(workMutex);
        endpointsToForceTeardown.insert(endpoint);
    }
    workCondition.notify_one();
}

void ServicePublisher::removeExpiredDuplicateServicesIfRequired(DirectoryServiceClient& client,
                                                                const std::string& serviceName,
                                                                const boost::property_tree::ptree& metadata,
                                                                unsigned int majorVersion) {
    try {
        // Neither key holds a '.', so each is a single element of the tree's default path.
        const auto key = metadata.get_child_optional("spf::legacyservicepublisher::replaceMatchingKey");
        if (!key) {
            return;
        }
        const auto value = metadata.get_child_optional("spf::legacyservicepublisher::replaceMatchingValue");
        if (!value) {
            FOUNDATION_LOG(getLogger(), severity::error) << "replaceMatchingKey specified but no value provided";
            return;
        }
        // An instance this one replaces: same name and major version, and the configured mark.
        std::map<std::string, std::string> query;
        query.emplace(key->data(), value->data());
        query.emplace("spf::servicemajor", std::to_string(majorVersion));
        for (const auto& instance : client.queryDirectoryForServicesMatchingMetadata(serviceName, query)) {
            client.getDeregistrationToken(instance).reset();
        }
    } catch (...) {
        logCurrentException(severity::error, "Failed to remove expired services");
    }
}

}  // namespace agent::spf::legacyservicepublisher
