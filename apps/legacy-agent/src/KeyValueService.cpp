#include "KeyValueService.h"

#include "LegacyAgentLogger.h"
#include "SampleServiceTraits.h"

#include <stdexcept>

namespace apps::legacyagent {

using foundation::log::severity::warning;

namespace {

std::string valueOrRefuse(boost::optional<std::string> value) {
    if (!value) {
        throw std::invalid_argument("No such key");
    }
    return std::move(*value);
}

SampleService::Methods keyValueMethods(std::string service, const std::shared_ptr<KeyValueStore>& store) {
    SampleService::Methods methods(std::move(service));
    methods.avro<void(std::string, std::string)>("put", [store](std::string key, std::string value) {
        try {
            store->put(key, std::move(value));
        } catch (const std::exception& e) {
            // The caller gets the text as its failure; the log shows a client misbehaving.
            FOUNDATION_LOG(legacyAgentLogger(), warning)
                << "Refused a put of a " << key.size() << "-byte key: " << e.what();
            throw;
        }
    });
    methods.avro<std::string(std::string)>("get", [store](std::string key) { return valueOrRefuse(store->get(key)); });
    methods.avro<std::string(std::string)>("remove",
                                           [store](std::string key) { return valueOrRefuse(store->remove(key)); });
    methods.avro<std::vector<std::string>()>("keys", [store] { return store->keys(); });
    return methods;
}

}  // namespace

KeyValueService::KeyValueService(const std::string& namePrefix, std::shared_ptr<KeyValueStore> store)
    : SampleService(keyValueMethods(namePrefix + kName, store), kAvroMultipartWireFormat) {}

}  // namespace apps::legacyagent
