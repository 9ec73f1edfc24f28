#pragma once

#include "agent/spf/core/ExportedCallbackReference.h"
#include "agent/spf/core/ExportedStreamReference.h"
#include "agent/spf/serialisation/avro/AvroDecoder.h"
#include "agent/spf/serialisation/avro/AvroEncoder.h"

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace agent::spf::serialisation {

// How a C++ type is written as Avro binary. Specialised for:
//   bool → boolean, std::int32_t → int, std::int64_t → long, float, double,
//   std::string → string (its bytes as they are; not checked for UTF-8),
//   std::vector<std::uint8_t> → bytes, std::vector<T> → array<T>,
//   std::map<std::string, T> → map<T>, std::optional<T> → union {null, T},
//   boost::uuids::uuid → fixed(16) (the uuid's bytes in order),
//   core::ExportedCallbackReference → record {fixed(16) callbackUUID, fixed(16) removalMethodAddress},
//   core::ExportedStreamReference → record {fixed(16) streamUUID}.
//
// Users add their own types by specialising AvroCodec<T> with
//   static void encode(AvroEncoder&, const T&);
//   static T decode(AvroDecoder&);
//   static constexpr std::size_t minimumSize = ...;  // optional: the least bytes a T takes
// or, for a record (fields written in order, each by its own codec), by deriving from
// AvroRecordCodec:
//   template <> struct AvroCodec<Point> : AvroRecordCodec<Point, &Point::x, &Point::y> {};
template <class T, class Enable = void>
struct AvroCodec;

namespace detail {

template <class T, class = void>
struct AvroMinimumSize : std::integral_constant<std::size_t, 0> {};
template <class T>
struct AvroMinimumSize<T, std::void_t<decltype(AvroCodec<T>::minimumSize)>>
    : std::integral_constant<std::size_t, AvroCodec<T>::minimumSize> {};

template <class Member>
struct MemberType;
template <class C, class M>
struct MemberType<M C::*> {
    using type = M;
};

}  // namespace detail

// The least number of bytes a T takes in Avro binary (0 when its codec does not say).
template <class T>
constexpr std::size_t avroMinimumSize() {
    return detail::AvroMinimumSize<T>::value;
}

template <>
struct AvroCodec<bool> {
    static constexpr std::size_t minimumSize = 1;
    static void encode(AvroEncoder& out, bool value) { out.writeBoolean(value); }
    static bool decode(AvroDecoder& in) { return in.readBoolean(); }
};

template <>
struct AvroCodec<std::int32_t> {
    static constexpr std::size_t minimumSize = 1;
    static void encode(AvroEncoder& out, std::int32_t value) { out.writeInt(value); }
    static std::int32_t decode(AvroDecoder& in) { return in.readInt(); }
};

template <>
struct AvroCodec<std::int64_t> {
    static constexpr std::size_t minimumSize = 1;
    static void encode(AvroEncoder& out, std::int64_t value) { out.writeLong(value); }
    static std::int64_t decode(AvroDecoder& in) { return in.readLong(); }
};

template <>
struct AvroCodec<float> {
    static constexpr std::size_t minimumSize = 4;
    static void encode(AvroEncoder& out, float value) { out.writeFloat(value); }
    static float decode(AvroDecoder& in) { return in.readFloat(); }
};

template <>
struct AvroCodec<double> {
    static constexpr std::size_t minimumSize = 8;
    static void encode(AvroEncoder& out, double value) { out.writeDouble(value); }
    static double decode(AvroDecoder& in) { return in.readDouble(); }
};

template <>
struct AvroCodec<std::string> {
    static constexpr std::size_t minimumSize = 1;
    static void encode(AvroEncoder& out, const std::string& value) { out.writeString(value); }
    static std::string decode(AvroDecoder& in) { return in.readString(); }
};

template <>
struct AvroCodec<std::vector<std::uint8_t>> {
    static constexpr std::size_t minimumSize = 1;
    static void encode(AvroEncoder& out, const std::vector<std::uint8_t>& value) {
        out.writeBytes(value.data(), value.size());
    }
    static std::vector<std::uint8_t> decode(AvroDecoder& in) { return in.readBytes(); }
};

template <>
struct AvroCodec<boost::uuids::uuid> {
    static constexpr std::size_t minimumSize = 16;
    static void encode(AvroEncoder& out, const boost::uuids::uuid& value) { out.writeFixed(value.data, 16); }
    static boost::uuids::uuid decode(AvroDecoder& in) {
        boost::uuids::uuid value{};
        in.readFixed(value.data, 16);
        return value;
    }
};

template <class T>
struct AvroCodec<std::vector<T>, std::enable_if_t<!std::is_same_v<T, std::uint8_t>>> {
    static constexpr std::size_t minimumSize = 1;
    static void encode(AvroEncoder& out, const std::vector<T>& value) {
        if (!value.empty()) {
            out.writeBlockCount(value.size());
            for (const auto& item : value) {
                AvroCodec<T>::encode(out, item);
            }
        }
        out.writeBlockCount(0);
    }
    static std::vector<T> decode(AvroDecoder& in) {
        std::vector<T> value;
        for (std::size_t count = in.readBlockCount(avroMinimumSize<T>()); count != 0;
             count = in.readBlockCount(avroMinimumSize<T>())) {
            for (std::size_t i = 0; i < count; ++i) {
                value.push_back(AvroCodec<T>::decode(in));
            }
        }
        return value;
    }
};

template <class T>
struct AvroCodec<std::map<std::string, T>> {
    static constexpr std::size_t minimumSize = 1;
    static void encode(AvroEncoder& out, const std::map<std::string, T>& value) {
        if (!value.empty()) {
            out.writeBlockCount(value.size());
            for (const auto& [key, item] : value) {
                out.writeString(key);
                AvroCodec<T>::encode(out, item);
            }
        }
        out.writeBlockCount(0);
    }
    // A key that comes again replaces the earlier value, as in other Avro readers.
    static std::map<std::string, T> decode(AvroDecoder& in) {
        std::map<std::string, T> value;
        for (std::size_t count = in.readBlockCount(1 + avroMinimumSize<T>()); count != 0;
             count = in.readBlockCount(1 + avroMinimumSize<T>())) {
            for (std::size_t i = 0; i < count; ++i) {
                std::string key = in.readString();
                value.insert_or_assign(std::move(key), AvroCodec<T>::decode(in));
            }
        }
        return value;
    }
};

template <class T>
struct AvroCodec<std::optional<T>> {
    static constexpr std::size_t minimumSize = 1;
    static void encode(AvroEncoder& out, const std::optional<T>& value) {
        out.writeUnionIndex(value ? 1 : 0);
        if (value) {
            AvroCodec<T>::encode(out, *value);
        }
    }
    static std::optional<T> decode(AvroDecoder& in) {
        if (in.readUnionIndex(2) == 0) {
            return std::nullopt;
        }
        return AvroCodec<T>::decode(in);
    }
};

// A record: its fields in the order given, each written by its own codec. T must be
// default-constructible; each field is assigned as it is read.
template <class T, auto... Members>
struct AvroRecordCodec {
    static constexpr std::size_t minimumSize =
        (std::size_t{0} + ... + avroMinimumSize<typename detail::MemberType<decltype(Members)>::type>());
    static void encode(AvroEncoder& out, const T& value) {
        (AvroCodec<typename detail::MemberType<decltype(Members)>::type>::encode(out, value.*Members), ...);
    }
    static T decode(AvroDecoder& in) {
        T value{};
        // A comma fold runs left to right, so fields are read in order.
        ((value.*Members = AvroCodec<typename detail::MemberType<decltype(Members)>::type>::decode(in)), ...);
        return value;
    }
};

// What a legacy service receives for an exported callback argument.
template <>
struct AvroCodec<core::ExportedCallbackReference>
    : AvroRecordCodec<core::ExportedCallbackReference, &core::ExportedCallbackReference::callbackUUID,
                      &core::ExportedCallbackReference::removalMethodAddress> {};

// What a legacy service receives for an exported data sink or source argument.
template <>
struct AvroCodec<core::ExportedStreamReference>
    : AvroRecordCodec<core::ExportedStreamReference, &core::ExportedStreamReference::streamUUID> {};

}  // namespace agent::spf::serialisation
