#pragma once

#include "agent/core/transport/Transport.h"
#include "agent/spf/core/ExportedCallbackReference.h"
#include "agent/spf/core/GenericPayload.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <typeindex>
#include <utility>

namespace agent::spf::legacyservicewrapper {

class ReceivedCallbacks;

// A callback that a client passed to a legacy service, as the service holds it: calls go to
// the bridge that serves it (a request to the callback uuid, one Avro part per argument, a
// reply of one part, the result), and so does the service's removal of it.
//
// Thread-safe: any thread may invoke, remove and ask at once. Invokes block until the bridge
// answers; nothing is held locked meanwhile, so concurrent invokes overlap. The transport is
// borrowed and must outlive the object (its container outlives the services it runs).
class ReceivedCallback {
public:
    // `timeout` bounds each request (nullopt: the transport's default). Throws
    // std::invalid_argument("Exported callback reference needs a callback uuid and a removal
    // method address") when either is nil, and for a null catalogue
    // std::invalid_argument("Received callback needs a serialisation catalogue").
    ReceivedCallback(agent::core::transport::Transport& transport, const core::ExportedCallbackReference& reference,
                     std::shared_ptr<const serialisation::SerialisationCatalogue> catalogue,
                     std::optional<std::chrono::milliseconds> timeout = std::nullopt);
    ReceivedCallback(const ReceivedCallback&) = delete;
    ReceivedCallback& operator=(const ReceivedCallback&) = delete;

    const core::ExportedCallbackReference& reference() const noexcept { return reference_; }

    // Calls the client's callback with `args` (each serialised as its decayed type; a string
    // literal as std::string) and returns its result; R = void reads nothing of the reply.
    // Blocks until the bridge answers or the timeout passes. Throws what the untyped invoke
    // throws.
    template <class R, class... Args>
    R invoke(Args&&... args) {
        core::GenericPayload result = invoke(core::GenericPayload::make(std::forward<Args>(args)...), typeid(R));
        if constexpr (std::is_void_v<R>) {
            return;
        } else {
            return result.take<R>(0);
        }
    }

    // The untyped call under the typed one: `args` are serialised in order; the result is a
    // payload of one value of `resultType`, or empty for typeid(void). Blocks like the typed
    // one. Throws std::runtime_error:
    //   "Exported callback is no longer active" once removed by either side (the bridge
    //     answers the same when the client's callback is used up or gone);
    //   the catalogue's text when an argument cannot be written or the result has no
    //     deserialiser (both found before anything is sent);
    //   the bridge's failure text as it arrives: the callback's own exception, a refused
    //     argument count, the transport's timeout or disconnection;
    //   "Invalid reply of exported callback: <cause>" for a reply that is not one readable
    //     part (also logged as a warning).
    core::GenericPayload invoke(core::GenericPayload args, std::type_index resultType);

    // Tells the bridge that the service drops the callback, and blocks for its answer. The
    // callback is inactive from the start of the call, whatever the answer; a second call, or
    // one after the client removed it, sends nothing. Throws std::runtime_error with the
    // transport's failure text when the bridge cannot be told.
    void remove();

    // False once either side removed the callback. Never blocks.
    bool isActive() const;
    // True once the service's removal method was told that the client removed it (see
    // ReceivedCallbacks). Never blocks.
    bool wasRemovedByClient() const;

private:
    friend class ReceivedCallbacks;
    // What the service's removal method calls. Never blocks.
    void markRemovedByClient();

    agent::core::transport::Transport& transport_;
    const core::ExportedCallbackReference reference_;
    const std::shared_ptr<const serialisation::SerialisationCatalogue> catalogue_;
    const std::optional<std::chrono::milliseconds> timeout_;

    mutable std::mutex removalMutex_;  // guards the two flags below
    bool removedByService_ = false;
    bool removedByClient_ = false;
};

}  // namespace agent::spf::legacyservicewrapper
