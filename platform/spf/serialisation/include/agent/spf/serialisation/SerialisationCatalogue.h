#pragma once

#include "agent/spf/serialisation/ByteBuffer.h"
#include "agent/spf/serialisation/Deserialiser.h"
#include "agent/spf/serialisation/Serialiser.h"

#include <functional>
#include <istream>
#include <map>
#include <shared_mutex>
#include <string>
#include <typeindex>
#include <typeinfo>
#include <utility>
#include <vector>

namespace agent::spf::serialisation {

// The serialisers and deserialisers a host knows, by (content type, value type). Shared
// between every component of a host (a service under the interface id
// "agent::spf::serialisation::SerialisationCatalogue").
//
// Thread-safe: lookups may run concurrently with each other and with registrations; a
// registration replaces an earlier one for the same key. Functions handed out are copies,
// called without any lock held. Nothing here blocks except briefly on the registry lock.
//
// Every content type deserialises a void result (typeid(void)) to an empty payload, without
// reading, so a caller that expects no value needs no registration.
class SerialisationCatalogue {
public:
    SerialisationCatalogue() = default;
    SerialisationCatalogue(const SerialisationCatalogue&) = delete;
    SerialisationCatalogue& operator=(const SerialisationCatalogue&) = delete;

    // Typed registration: `serialise` writes a T, `deserialise` reads one (throwing
    // std::runtime_error on bad input).
    template <class T>
    void registerSerialiser(const std::string& contentType, std::function<void(const T&, ByteBuffer&)> serialise) {
        registerSerialiser(contentType, typeid(T),
                           [fn = std::move(serialise)](const core::GenericPayload& payload, std::size_t index,
                                                       ByteBuffer& out) { fn(payload.get<T>(index), out); });
    }
    template <class T>
    void registerDeserialiser(const std::string& contentType, std::function<T(std::istream&)> deserialise) {
        registerDeserialiser(contentType, typeid(T), [fn = std::move(deserialise)](std::istream& in) {
            return core::GenericPayload::make(fn(in));
        });
    }

    // Type-erased registration. Null functions: std::invalid_argument.
    void registerSerialiser(const std::string& contentType, std::type_index type, SerialiseFunction serialise);
    void registerDeserialiser(const std::string& contentType, std::type_index type, Deserialiser::Function deserialise);

    // An empty function when none is registered.
    SerialiseFunction findSerialiser(const std::string& contentType, std::type_index type) const;
    // An invalid Deserialiser when none is registered (calling it fails with its message).
    Deserialiser getDeserialiser(const std::string& contentType, std::type_index type) const;

    bool hasSerialiser(const std::string& contentType, std::type_index type) const;
    bool hasDeserialiser(const std::string& contentType, std::type_index type) const;
    // The content types with at least one serialiser or deserialiser, ascending.
    std::vector<std::string> contentTypes() const;

private:
    using Key = std::pair<std::string, std::type_index>;

    mutable std::shared_mutex registryMutex_;  // guards the two maps
    std::map<Key, SerialiseFunction> serialisers_;
    std::map<Key, Deserialiser::Function> deserialisers_;
};

// One serialiser per value of `payload`, in order, each owning its value (moved out of the
// payload). An empty payload gives none. Fails with std::runtime_error
// "No serialiser registered for content type " + contentType + " and type " + type name when
// a value has none, and with "GenericPayload empty at index " + index for an empty slot.
// Encoding itself happens when each serialiser is first asked for a chunk.
std::vector<Serialiser> createSerialisersFor(core::GenericPayload&& payload, const SerialisationCatalogue& catalogue,
                                             const std::string& contentType,
                                             std::size_t chunkSize = Serialiser::defaultChunkSize);

}  // namespace agent::spf::serialisation
