#pragma once

#include "agent/core/transport/RequestHandler.h"
#include "agent/core/transport/Transport.h"
#include "agent/spf/core/ExportedCallbackReference.h"
#include "agent/spf/legacyservicewrapper/ReceivedCallback.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"

#include <chrono>
#include <memory>
#include <optional>

namespace agent::spf::legacyservicewrapper {

// The callbacks a legacy service received, so that it hears when a client removes one: the
// service registers removalMethod() under the method name core::kCallbackRemovalMethodUUID
// and adopts every callback reference it receives.
//
// Thread-safe; nothing here blocks beyond a short lock. Callbacks are held weakly: one the
// service has let go of is forgotten.
class ReceivedCallbacks {
public:
    // `catalogue` and `timeout` are handed to every adopted callback (see ReceivedCallback).
    // Null catalogue: std::invalid_argument("Received callback needs a serialisation catalogue").
    explicit ReceivedCallbacks(std::shared_ptr<const serialisation::SerialisationCatalogue> catalogue,
                               std::optional<std::chrono::milliseconds> timeout = std::nullopt);

    // The callback for `reference`, calling out through `transport` (borrowed; the transport
    // the service runs on, which a service may change between a stop and a start). The same
    // reference adopted again while its callback is held gives that callback. Throws
    // ReceivedCallback's refusal of a reference with a nil uuid.
    std::shared_ptr<ReceivedCallback> adopt(agent::core::transport::Transport& transport,
                                            const core::ExportedCallbackReference& reference);

    // The handler of the removal method. Its request is one part, the callback uuid (Avro
    // fixed(16)); the callback it names becomes inactive and removed by the client, an unknown
    // one is ignored; the reply is one empty part. A malformed request is refused with
    // "Invalid callback removal request: <cause>" and logged as a warning. The handler shares
    // the registry, so it may outlive this object; it may run on many threads at once.
    agent::core::transport::RequestHandler removalMethod() const;

private:
    struct Registry;

    std::shared_ptr<const serialisation::SerialisationCatalogue> catalogue_;
    std::optional<std::chrono::milliseconds> timeout_;
    std::shared_ptr<Registry> registry_;
};

}  // namespace agent::spf::legacyservicewrapper
