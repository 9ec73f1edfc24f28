#pragma once

// A native legacy service that calls back the callbacks its clients pass: "report" takes a
// callback and a count n, calls the callback ("step", i) for i below n and answers n. It offers
// the removal method, so it hears when a client removes a callback.

#include "agent/core/service/NativeLegacyServiceBase.h"
#include "agent/spf/core/ExportedCallbackReference.h"
#include "agent/spf/legacyservicewrapper/MultipartFraming.h"
#include "agent/spf/legacyservicewrapper/ReceivedCallbacks.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <cstdint>
#include <memory>
#include <mutex>

namespace publishertest {

class CallbackService final : public agent::core::service::NativeLegacyServiceBase {
public:
    explicit CallbackService(std::shared_ptr<const agent::spf::serialisation::SerialisationCatalogue> catalogue)
        : NativeLegacyServiceBase("e2e.Callbacks", agent::core::serviceutils::APIVersion(1, 0), {}),
          callbacks_(std::move(catalogue)) {
        using agent::core::transport::Message;
        using agent::spf::legacyservicewrapper::MultipartFraming;
        namespace serialisation = agent::spf::serialisation;
        addMethod("report", [this](const Message& request) {
            const auto parts = MultipartFraming::splitParts(request, 2);
            const auto reference = serialisation::avroDecode<agent::spf::core::ExportedCallbackReference>(
                request.data() + parts[0].offset, parts[0].size);
            const auto count =
                serialisation::avroDecode<std::int32_t>(request.data() + parts[1].offset, parts[1].size);
            auto callback = callbacks_.adopt(*getTransport(), reference);
            {
                std::lock_guard<std::mutex> lock(lastMutex_);
                last_ = callback;
            }
            for (std::int32_t i = 0; i < count; ++i) {
                callback->invoke<std::int32_t>(std::string("step"), i);
            }
            Message reply;
            const auto part = MultipartFraming::beginPart(reply);
            const auto encoded = serialisation::avroEncode(count);
            reply.append(encoded.data(), encoded.size());
            MultipartFraming::endPart(reply, part);
            return reply;
        });
        addMethod(agent::spf::core::kCallbackRemovalMethodUUID, callbacks_.removalMethod());
    }

    std::shared_ptr<agent::spf::legacyservicewrapper::ReceivedCallback> lastCallback() const {
        std::lock_guard<std::mutex> lock(lastMutex_);
        return last_;
    }

private:
    agent::spf::legacyservicewrapper::ReceivedCallbacks callbacks_;
    mutable std::mutex lastMutex_;  // guards last_
    std::shared_ptr<agent::spf::legacyservicewrapper::ReceivedCallback> last_;
};

}  // namespace publishertest
