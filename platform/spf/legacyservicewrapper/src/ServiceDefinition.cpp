#include "ServiceDefinition.h"

#include "agent/spf/core/MethodSignature.h"
#include "agent/spf/serialisation/avro/AvroTypeName.h"

#include <stdexcept>

namespace agent::spf::legacyservicewrapper {

ServiceDefinition::ServiceDefinition(core::ServiceInterface serviceInterface,
                                     std::shared_ptr<serialisation::SerialisationCatalogue> catalogue)
    : serviceInterface_(std::move(serviceInterface)), catalogue_(std::move(catalogue)) {
    if (!catalogue_) {
        throw std::invalid_argument("LegacyServiceBuilder needs a serialisation catalogue");
    }
    if (serviceInterface_.getInterfaceName().empty()) {
        throw std::invalid_argument("A legacy service needs an interface name");
    }
    metadata_ = serviceInterface_.getMetadata();
    // An interface that names its own wire format keeps it: callers read the entry.
    const auto format = metadata_.emplace(WireFormat::kMetadataKey, WireFormat::kDefault).first->second;
    wireFormat_ = WireFormat::parse(format);
    const auto& v = serviceInterface_.getVersion();
    version_ = agent::core::serviceutils::APIVersion(v.major, v.minor, v.patch, v.extension);
    metadata_["spf::servicemajor"] = std::to_string(v.major);
    // What a client needs to call by name: each method's types. An interface's own entry stays.
    for (const auto& method : serviceInterface_.methodNames()) {
        metadata_.emplace(core::methodSignatureKey(method),
                          serialisation::avroMethodSignature(serviceInterface_.method(method)).toString());
    }

    if (!wireFormat_.multipart) {
        for (const auto& method : serviceInterface_.methodNames()) {
            if (serviceInterface_.method(method).argumentTypes().size() > 1) {
                throw std::invalid_argument("Wire format " + format + " has no parts for the arguments of method " +
                                            method);
            }
        }
    }
}

}  // namespace agent::spf::legacyservicewrapper
