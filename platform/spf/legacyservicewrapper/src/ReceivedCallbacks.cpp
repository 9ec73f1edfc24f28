#include "agent/spf/legacyservicewrapper/ReceivedCallbacks.h"

#include "LegacyServiceWrapperLogger.h"

#include "agent/spf/legacyservicewrapper/MultipartFraming.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <boost/uuid/uuid.hpp>

#include <map>
#include <mutex>
#include <stdexcept>
#include <string>

namespace agent::spf::legacyservicewrapper {

using agent::core::transport::Message;
using foundation::log::severity::warning;

struct ReceivedCallbacks::Registry {
    std::mutex callbacksMutex;  // guards callbacks
    std::map<boost::uuids::uuid, std::weak_ptr<ReceivedCallback>> callbacks;
};

ReceivedCallbacks::ReceivedCallbacks(std::shared_ptr<const serialisation::SerialisationCatalogue> catalogue,
                                     std::optional<std::chrono::milliseconds> timeout)
    : catalogue_(std::move(catalogue)), timeout_(timeout), registry_(std::make_shared<Registry>()) {
    if (!catalogue_) {
        throw std::invalid_argument("Received callback needs a serialisation catalogue");
    }
}

std::shared_ptr<ReceivedCallback> ReceivedCallbacks::adopt(agent::core::transport::Transport& transport,
                                                           const core::ExportedCallbackReference& reference) {
    auto callback = std::make_shared<ReceivedCallback>(transport, reference, catalogue_, timeout_);
    std::lock_guard<std::mutex> lock(registry_->callbacksMutex);
    // Forgotten callbacks go here rather than in a deleter, so the registry needs no lifetime
    // bond with the callbacks it hands out; a service holds few at a time.
    for (auto it = registry_->callbacks.begin(); it != registry_->callbacks.end();) {
        it = it->second.expired() ? registry_->callbacks.erase(it) : std::next(it);
    }
    auto& held = registry_->callbacks[reference.callbackUUID];
    if (auto existing = held.lock(); existing && existing->reference() == reference) {
        return existing;
    }
    held = callback;
    return callback;
}

agent::core::transport::RequestHandler ReceivedCallbacks::removalMethod() const {
    return [registry = registry_](const Message& request) {
        boost::uuids::uuid id{};
        try {
            const auto parts = MultipartFraming::splitParts(request, 1);
            id = serialisation::avroDecode<boost::uuids::uuid>(request.data() + parts[0].offset, parts[0].size);
        } catch (const std::exception& e) {
            const std::string failure = std::string("Invalid callback removal request: ") + e.what();
            FOUNDATION_LOG(legacyServiceWrapperLogger(), warning)
                << failure << " (" << request.size() << " bytes)";
            throw std::runtime_error(failure);
        }
        std::shared_ptr<ReceivedCallback> callback;
        {
            std::lock_guard<std::mutex> lock(registry->callbacksMutex);
            if (auto it = registry->callbacks.find(id); it != registry->callbacks.end()) {
                callback = it->second.lock();
                registry->callbacks.erase(it);
            }
        }
        if (callback) {
            callback->markRemovedByClient();
        }
        Message reply;
        MultipartFraming::endPart(reply, MultipartFraming::beginPart(reply));
        return reply;
    };
}

}  // namespace agent::spf::legacyservicewrapper
