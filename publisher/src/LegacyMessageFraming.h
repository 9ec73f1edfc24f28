#pragma once

#include "agent/core/transport/Message.h"
#include "agent/core/transport/MessageView.h"
#include "agent/spf/core/GenericPayload.h"
#include "agent/spf/serialisation/Deserialiser.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"

#include <string>

namespace agent::spf::legacyservicepublisher {

// The bytes of a call to a legacy service and of its reply. Multipart framing: one part per
// value, each an 8-byte big-endian count of the bytes that follow, then the value as its
// serialiser wrote it; no padding, no part count. Single framing: the value's bytes alone.
// Stateless, so any thread.
class LegacyMessageFraming {
public:
    static constexpr std::size_t kSizeFieldBytes = 8;

    // The request for `arguments`, each serialised for `contentType`. Throws what
    // createSerialisersFor and the serialisers throw (std::runtime_error).
    static agent::core::transport::Message frameRequest(agent::spf::core::GenericPayload&& arguments,
                                                        const agent::spf::serialisation::SerialisationCatalogue& catalogue,
                                                        const std::string& contentType, bool multipart);

    // The result in `reply` (its first part when multipart; later bytes are ignored), read by
    // `deserialiser`. Throws std::runtime_error "Invalid message - buffer too small <size> < 8",
    // "Invalid message - reported data size larger than buffer (2) <size> < <needed>", and what
    // the deserialiser throws ("Attempt to invoke an invalid deserialiser - no deserialising
    // function set" for an invalid one).
    static agent::spf::core::GenericPayload readReply(const agent::core::transport::MessageView& reply,
                                                      const agent::spf::serialisation::Deserialiser& deserialiser,
                                                      bool multipart);
};

}  // namespace agent::spf::legacyservicepublisher
