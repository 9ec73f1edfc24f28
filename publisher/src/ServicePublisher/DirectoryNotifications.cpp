// Directory subscriptions, their notifications, and removal of expired duplicate services.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

namespace agent::spf::legacyservicepublisher {

// Subscribes to nothing yet: the nil uuid says no subscription was made.
boost::uuids::uuid ServicePublisher::registerForCallbacks(const std::string&, agent::directory::DirectoryServiceClient&) {
    return boost::uuids::uuid{};
}

// Publishes no factory yet.
void ServicePublisher::serviceStartedNotification(const std::string&,
                                                  const agent::directoryinterfaces::ServiceStartedNotification&) {}

// Withdraws no factory and queues no teardown yet.
void ServicePublisher::serviceStoppedNotification(const std::string&,
                                                  const agent::directoryinterfaces::ServiceStoppedNotification&) {}

// Removes nothing from the directory yet.
void ServicePublisher::removeExpiredDuplicateServicesIfRequired(agent::directory::DirectoryServiceClient&,
                                                                const std::string&, const boost::property_tree::ptree&,
                                                                unsigned int) {}

}  // namespace agent::spf::legacyservicepublisher
