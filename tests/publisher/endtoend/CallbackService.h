#pragma once

// A native legacy service that uses what its clients export: "report" takes a callback and a
// count n, calls the callback ("step", i) for i below n and answers n; "copy" reads a data
// source to its end, writes it to a data sink in two halves, closes the sink and answers the
// byte count; "keep" takes a data sink and leaves it open. It offers the removal method, so it
// hears when a client removes a callback.

#include "agent/core/service/NativeLegacyServiceBase.h"
#include "agent/spf/core/ExportedCallbackReference.h"
#include "agent/spf/core/ExportedStreamReference.h"
#include "agent/spf/legacyservicewrapper/MultipartFraming.h"
#include "agent/spf/legacyservicewrapper/ReceivedCallbacks.h"
#include "agent/spf/legacyservicewrapper/ReceivedStream.h"
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
            return replyWith(count);
        });
        addMethod("copy", [this](const Message& request) {
            const auto parts = MultipartFraming::splitParts(request, 2);
            auto source = receivedStream(request, parts[0]);
            auto sink = receivedStream(request, parts[1]);
            const auto text = source->readAll();
            sink->write(text.substr(0, text.size() / 2));
            sink->write(text.substr(text.size() / 2));
            sink->close();
            return replyWith(static_cast<std::int64_t>(text.size()));
        });
        addMethod("keep", [this](const Message& request) {
            receivedStream(request, MultipartFraming::splitParts(request, 1)[0]);
            return replyWith(true);
        });
        addMethod(agent::spf::core::kCallbackRemovalMethodUUID, callbacks_.removalMethod());
    }

    std::shared_ptr<agent::spf::legacyservicewrapper::ReceivedCallback> lastCallback() const {
        std::lock_guard<std::mutex> lock(lastMutex_);
        return last_;
    }

    std::shared_ptr<agent::spf::legacyservicewrapper::ReceivedStream> lastStream() const {
        std::lock_guard<std::mutex> lock(lastMutex_);
        return lastStream_;
    }

private:
    template <class T>
    static agent::core::transport::Message replyWith(const T& value) {
        agent::core::transport::Message reply;
        const auto part = agent::spf::legacyservicewrapper::MultipartFraming::beginPart(reply);
        const auto encoded = agent::spf::serialisation::avroEncode(value);
        reply.append(encoded.data(), encoded.size());
        agent::spf::legacyservicewrapper::MultipartFraming::endPart(reply, part);
        return reply;
    }

    template <class Part>
    std::shared_ptr<agent::spf::legacyservicewrapper::ReceivedStream> receivedStream(
        const agent::core::transport::Message& request, const Part& part) {
        const auto reference = agent::spf::serialisation::avroDecode<agent::spf::core::ExportedStreamReference>(
            request.data() + part.offset, part.size);
        auto stream = std::make_shared<agent::spf::legacyservicewrapper::ReceivedStream>(*getTransport(), reference);
        std::lock_guard<std::mutex> lock(lastMutex_);
        lastStream_ = stream;
        return stream;
    }

    agent::spf::legacyservicewrapper::ReceivedCallbacks callbacks_;
    mutable std::mutex lastMutex_;  // guards last_ and lastStream_
    std::shared_ptr<agent::spf::legacyservicewrapper::ReceivedCallback> last_;
    std::shared_ptr<agent::spf::legacyservicewrapper::ReceivedStream> lastStream_;
};

}  // namespace publishertest
