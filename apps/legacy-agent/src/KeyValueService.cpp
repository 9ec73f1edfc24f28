#include "KeyValueService.h"

#include "AvroMethod.h"
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

}  // namespace

KeyValueService::KeyValueService(const std::string& namePrefix, std::shared_ptr<KeyValueStore> store)
    : NativeLegacyServiceBase(namePrefix + kName, kSampleServiceVersion,
                              sampleServiceMetadata(kAvroMultipartWireFormat), kDirectoryCallTimeout) {
    addMethod("put", AvroMethod<void(std::string, std::string)>(
                         name(), "put", [store](std::string key, std::string value) {
                             try {
                                 store->put(key, std::move(value));
                             } catch (const std::exception& e) {
                                 // The caller gets the text as its failure; the log shows a client misbehaving.
                                 FOUNDATION_LOG(legacyAgentLogger(), warning)
                                     << "Refused a put of a " << key.size() << "-byte key: " << e.what();
                                 throw;
                             }
                         }));
    addMethod("get", AvroMethod<std::string(std::string)>(
                         name(), "get", [store](std::string key) { return valueOrRefuse(store->get(key)); }));
    addMethod("remove", AvroMethod<std::string(std::string)>(
                            name(), "remove", [store](std::string key) { return valueOrRefuse(store->remove(key)); }));
    addMethod("keys", AvroMethod<std::vector<std::string>()>(name(), "keys", [store] { return store->keys(); }));
}

}  // namespace apps::legacyagent
