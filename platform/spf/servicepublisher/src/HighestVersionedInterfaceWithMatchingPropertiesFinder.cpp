#include "agent/spf/servicepublisher/HighestVersionedInterfaceWithMatchingPropertiesFinder.h"

#include "Logger.h"
#include "PropertyTreeText.h"

#include "foundation/log/Severity.h"

namespace agent::spf::servicepublisher {

namespace {

void collectLeaves(const boost::property_tree::ptree& node, const std::string& path,
                   std::vector<std::pair<std::string, std::string>>& leaves) {
    for (const auto& [key, child] : node) {
        const std::string childPath = path.empty() ? key : key.empty() ? path : path + '.' + key;
        if (child.empty()) {
            leaves.emplace_back(childPath, child.data());
        } else {
            collectLeaves(child, childPath, leaves);
        }
    }
}

}  // namespace

HighestVersionedInterfaceWithMatchingPropertiesFinder::HighestVersionedInterfaceWithMatchingPropertiesFinder(
    std::string name, const core::APIVersion& requestedVersion, boost::property_tree::ptree requestedProperties,
    LogFunction log)
    : name_(std::move(name)),
      version_(requestedVersion.major),
      requestedProperties_(std::move(requestedProperties)),
      log_(std::move(log)) {
    collectLeaves(requestedProperties_, std::string(), requiredLeaves_);
}

bool HighestVersionedInterfaceWithMatchingPropertiesFinder::hasRequiredServiceProperties(
    const ServiceProperties& serviceProperties) const {
    for (const auto& [key, value] : requiredLeaves_) {
        const auto found = serviceProperties.find(key);
        if (found == serviceProperties.end() || found->second != value) {
            return false;
        }
    }
    return true;
}

void HighestVersionedInterfaceWithMatchingPropertiesFinder::log(const std::string& message) const noexcept {
    if (!log_) {
        getLogger().log(foundation::log::severity::warning, message);
        return;
    }
    try {
        log_(message);
    } catch (...) {
        // The explanation is lost; the search result is not.
    }
}

std::string HighestVersionedInterfaceWithMatchingPropertiesFinder::noCompatibleVersionMessage() const {
    return "Unable to find a ServiceInterface for " + name_ + " with version compatible to requested version " +
           version_.toString();
}

std::string HighestVersionedInterfaceWithMatchingPropertiesFinder::noMatchingPropertiesMessage() const {
    return noCompatibleVersionMessage() + " and all required service properties " +
           toCompactJson(requestedProperties_);
}

}  // namespace agent::spf::servicepublisher
