#pragma once

#include "agent/spf/serialisation/ByteBuffer.h"
#include "agent/spf/serialisation/NonOwningByteBufferViewIStreambuf.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/serialisation/avro/AvroCodec.h"
#include "agent/spf/serialisation/avro/AvroTypeName.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent::spf::serialisation {

// The content type whose values are Avro binary, one value per serialiser, as AvroCodec
// writes them.
inline const std::string avroContentType = "application/octet-stream+spf/avro";

// Appends the Avro binary form of `value`. Throws only std::bad_alloc (and whatever a user
// codec throws).
template <class T>
void avroEncode(const T& value, ByteBuffer& out) {
    AvroEncoder encoder(out);
    AvroCodec<T>::encode(encoder, value);
}
template <class T>
ByteBuffer avroEncode(const T& value) {
    ByteBuffer out;
    avroEncode(value, out);
    return out;
}

namespace detail {

// Fails with "Avro value followed by " + count + " unexpected bytes" unless nothing is left.
void checkAvroInputConsumed(const AvroDecoder& decoder);
// Reads what is left of `in` (in place when its buffer is a NonOwningByteBufferViewIStreambuf)
// and passes the bytes to `decode`; then the stream counts as read to its end.
void withAvroInput(std::istream& in, const std::function<void(const std::uint8_t*, std::size_t)>& decode);

}  // namespace detail

// Decodes one T that fills the whole range: AvroDecoder's failures, and
// "Avro value followed by N unexpected bytes" when bytes are left over.
template <class T>
T avroDecode(const std::uint8_t* data, std::size_t size) {
    AvroDecoder decoder(data, size);
    T value = AvroCodec<T>::decode(decoder);
    detail::checkAvroInputConsumed(decoder);
    return value;
}
// Decodes one T from the rest of the stream, which must hold exactly that value.
template <class T>
T avroDecode(std::istream& in) {
    std::optional<T> value;
    detail::withAvroInput(in, [&value](const std::uint8_t* data, std::size_t size) {
        value.emplace(avroDecode<T>(data, size));
    });
    return std::move(*value);
}

// Registers T's AvroCodec in `catalogue` under avroContentType, both ways. Any type the
// codecs cover can be registered: say registerAvroType<std::vector<MyRecord>>(catalogue).
// From then on avroTypeName(typeid(T)) gives AvroTypeName<T>.
template <class T>
void registerAvroType(SerialisationCatalogue& catalogue) {
    detail::rememberAvroTypeName(typeid(T), AvroTypeName<T>::get());
    catalogue.registerSerialiser<T>(avroContentType, [](const T& value, ByteBuffer& out) { avroEncode(value, out); });
    catalogue.registerDeserialiser<T>(avroContentType, [](std::istream& in) { return avroDecode<T>(in); });
}

// Registers, under avroContentType, every scalar of AvroCodec's list (bool, std::int32_t,
// std::int64_t, float, double, std::string, std::vector<std::uint8_t>, boost::uuids::uuid)
// and, for each scalar S, std::vector<S>, std::map<std::string, S> and std::optional<S>;
// plus std::vector<std::map<std::string, std::string>>, core::ExportedCallbackReference and
// core::ExportedStreamReference.
// Other compositions: registerAvroType. Thread-safe like every registration.
void registerAvroTypes(SerialisationCatalogue& catalogue);

}  // namespace agent::spf::serialisation
