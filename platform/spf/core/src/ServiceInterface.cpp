#include "agent/spf/core/ServiceInterface.h"

#include <stdexcept>

namespace agent::spf::core {

ServiceInterface::ServiceInterface(std::string interfaceName, APIVersion version, Metadata metadata)
    : interfaceName_(std::move(interfaceName)), version_(version), metadata_(std::move(metadata)) {}

void ServiceInterface::setMetadata(std::string key, std::string value) {
    metadata_.insert_or_assign(std::move(key), std::move(value));
}

ServiceInterface& ServiceInterface::addMethod(std::string name, MethodImplementation method) {
    if (methods_.count(name) != 0) {
        throw std::invalid_argument("Method already defined " + name);
    }
    methods_.emplace(std::move(name), std::make_shared<const MethodImplementation>(std::move(method)));
    return *this;
}

std::vector<std::string> ServiceInterface::methodNames() const {
    std::vector<std::string> names;
    names.reserve(methods_.size());
    for (const auto& entry : methods_) {
        names.push_back(entry.first);
    }
    return names;
}

bool ServiceInterface::hasMethod(const std::string& name) const { return methods_.count(name) != 0; }

const MethodImplementation& ServiceInterface::method(const std::string& name) const {
    auto it = methods_.find(name);
    if (it == methods_.end()) {
        throw std::runtime_error("Unknown method " + name);
    }
    return *it->second;
}

ServiceInterface ServiceInterface::clone() const { return *this; }

}  // namespace agent::spf::core
