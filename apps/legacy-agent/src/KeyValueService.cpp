#include "KeyValueService.h"

#include "LegacyAgentLogger.h"
#include "SampleServiceTraits.h"

#include <stdexcept>

namespace apps::legacyagent {

using agent::core::transport::Message;
using foundation::log::severity::warning;

namespace {

std::string text(const Message& message) {
    return std::string(message.asStringView());
}

}  // namespace

KeyValueService::KeyValueService(const std::string& namePrefix, std::shared_ptr<KeyValueStore> store)
    : NativeLegacyServiceBase(namePrefix + kName, kSampleServiceVersion, sampleServiceMetadata(),
                              kDirectoryCallTimeout) {
    addMethod("put", [store](const Message& request) {
        try {
            const std::string payload = text(request);
            const auto nul = payload.find('\0');
            if (nul == std::string::npos) {
                throw std::invalid_argument("put needs a key, a NUL byte and the value");
            }
            store->put(payload.substr(0, nul), payload.substr(nul + 1));
        } catch (const std::exception& e) {
            // The caller gets the text as its failure; the log shows a client misbehaving.
            FOUNDATION_LOG(legacyAgentLogger(), warning)
                << "Refused a put of " << request.size() << " bytes: " << e.what();
            throw;
        }
        return Message();
    });
    addMethod("get", [store](const Message& request) {
        auto value = store->get(text(request));
        if (!value) {
            throw std::invalid_argument("No such key");
        }
        return Message(*value);
    });
    addMethod("remove", [store](const Message& request) {
        auto value = store->remove(text(request));
        if (!value) {
            throw std::invalid_argument("No such key");
        }
        return Message(*value);
    });
    addMethod("keys", [store](const Message&) {
        Message reply;
        for (const auto& key : store->keys()) {
            reply.append(key.data(), key.size() + 1);  // with its terminating NUL
        }
        return reply;
    });
}

}  // namespace apps::legacyagent
