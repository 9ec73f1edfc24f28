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

namespace publishertest {

namespace wrapper = agent::spf::legacyservicewrapper;

class CallbackService final : public agent::core::service::NativeLegacyServiceBase {
public:
    explicit CallbackService(std::shared_ptr<const agent::spf::serialisation::SerialisationCatalogue> catalogue)
        : NativeLegacyServiceBase("e2e.Callbacks", agent::core::serviceutils::APIVersion(1, 0), {}),
          callbacks_(std::move(catalogue)) {
        using agent::core::transport::Message;
        addMethod("report", [this](const Message& request) {
            const auto parts = wrapper::MultipartFraming::splitParts(request, 2);
            auto callback = callbacks_.adopt(*getTransport(), value<agent::spf::core::ExportedCallbackReference>(request, parts[0]));
            std::atomic_store(&last_, callback);
            const auto count = value<std::int32_t>(request, parts[1]);
            for (std::int32_t i = 0; i < count; ++i) callback->invoke<std::int32_t>(std::string("step"), i);
            return replyWith(count);
        });
        addMethod("copy", [this](const Message& request) {
            const auto parts = wrapper::MultipartFraming::splitParts(request, 2);
            auto source = receivedStream(request, parts[0]);
            auto sink = receivedStream(request, parts[1]);
            const auto text = source->readAll();
            sink->write(text.substr(0, text.size() / 2));
            sink->write(text.substr(text.size() / 2));
            sink->close();
            return replyWith(static_cast<std::int64_t>(text.size()));
        });
        addMethod("keep", [this](const Message& request) {
            receivedStream(request, wrapper::MultipartFraming::splitParts(request, 1)[0]);
            return replyWith(true);
        });
        addMethod(agent::spf::core::kCallbackRemovalMethodUUID, callbacks_.removalMethod());
    }

    std::shared_ptr<wrapper::ReceivedCallback> lastCallback() const { return std::atomic_load(&last_); }
    std::shared_ptr<wrapper::ReceivedStream> lastStream() const { return std::atomic_load(&lastStream_); }

private:
    template <class T>
    static agent::core::transport::Message replyWith(const T& value) {
        agent::core::transport::Message reply;
        const auto part = wrapper::MultipartFraming::beginPart(reply);
        const auto encoded = agent::spf::serialisation::avroEncode(value);
        reply.append(encoded.data(), encoded.size());
        wrapper::MultipartFraming::endPart(reply, part);
        return reply;
    }
    template <class T, class Part>
    static T value(const agent::core::transport::Message& request, const Part& part) {
        return agent::spf::serialisation::avroDecode<T>(request.data() + part.offset, part.size);
    }
    template <class Part>
    std::shared_ptr<wrapper::ReceivedStream> receivedStream(const agent::core::transport::Message& request,
                                                            const Part& part) {
        auto stream = std::make_shared<wrapper::ReceivedStream>(
            *getTransport(), value<agent::spf::core::ExportedStreamReference>(request, part));
        std::atomic_store(&lastStream_, stream);
        return stream;
    }
    wrapper::ReceivedCallbacks callbacks_;
    // Written by the service's handlers, read by the test: only through std::atomic_load and std::atomic_store.
    std::shared_ptr<wrapper::ReceivedCallback> last_;
    std::shared_ptr<wrapper::ReceivedStream> lastStream_;
};

}  // namespace publishertest
