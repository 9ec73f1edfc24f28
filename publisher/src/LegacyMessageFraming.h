#pragma once

#include "agent/core/transport/Message.h"
#include "agent/core/transport/MessageView.h"
#include "agent/spf/core/GenericPayload.h"
#include "agent/spf/serialisation/Deserialiser.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"

#include <string>
#include <typeindex>
#include <vector>

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

    // The arguments of a multipart request that a service sends to an exported callback, one part
    // per entry of `argumentTypes`, each read with the catalogue's deserialiser for `contentType`.
    // Throws std::runtime_error "Invalid message - cannot determine buffer size: <detail>",
    // "Invalid message - reported data size larger than buffer", "Number of parts in Message does
    // not match number of expected arguments", and what the deserialisers throw.
    static agent::spf::core::GenericPayload readRequest(const agent::core::transport::Message& request,
                                                        const std::vector<std::type_index>& argumentTypes,
                                                        const agent::spf::serialisation::SerialisationCatalogue& catalogue,
                                                        const std::string& contentType);

    // The multipart reply carrying `result`: its one value as a part, or one empty part when the
    // result holds no value. Throws what frameRequest throws.
    static agent::core::transport::Message frameReply(agent::spf::core::GenericPayload&& result,
                                                      const agent::spf::serialisation::SerialisationCatalogue& catalogue,
                                                      const std::string& contentType);
};

}  // namespace agent::spf::legacyservicepublisher
