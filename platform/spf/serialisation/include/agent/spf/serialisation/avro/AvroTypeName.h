#pragma once

#include "agent/spf/core/ExportedCallbackReference.h"
#include "agent/spf/core/ExportedStreamReference.h"
#include "agent/spf/core/MethodImplementation.h"
#include "agent/spf/core/MethodSignature.h"
#include "agent/spf/core/TypeName.h"

#include <boost/uuid/uuid.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <typeindex>
#include <vector>

namespace agent::spf::serialisation {

// The name a core::MethodSignature gives T, after the Avro type AvroCodec<T> writes:
//   bool → boolean, std::int32_t → int, std::int64_t → long, float, double, std::string →
//   string, std::vector<std::uint8_t> → bytes, boost::uuids::uuid → uuid, std::vector<T> →
//   array<T>, std::map<std::string, T> → map<T>, std::optional<T> → optional<T>,
//   core::ExportedCallbackReference → callback, core::ExportedStreamReference → stream,
// and any other type "record:" + core::typeName, so that std::optional<std::vector<Point>>
// is "optional<array<record:Point>>". get() throws only std::bad_alloc.
template <class T, class Enable = void>
struct AvroTypeName {
    static std::string get() { return "record:" + core::typeName(typeid(T)); }
};

// clang-format off
template <> struct AvroTypeName<bool> { static std::string get() { return "boolean"; } };
template <> struct AvroTypeName<std::int32_t> { static std::string get() { return "int"; } };
template <> struct AvroTypeName<std::int64_t> { static std::string get() { return "long"; } };
template <> struct AvroTypeName<float> { static std::string get() { return "float"; } };
template <> struct AvroTypeName<double> { static std::string get() { return "double"; } };
template <> struct AvroTypeName<std::string> { static std::string get() { return "string"; } };
template <> struct AvroTypeName<std::vector<std::uint8_t>> { static std::string get() { return "bytes"; } };
template <> struct AvroTypeName<boost::uuids::uuid> { static std::string get() { return "uuid"; } };
template <> struct AvroTypeName<core::ExportedCallbackReference> { static std::string get() { return "callback"; } };
template <> struct AvroTypeName<core::ExportedStreamReference> { static std::string get() { return "stream"; } };
// clang-format on

template <class T>
struct AvroTypeName<std::vector<T>, std::enable_if_t<!std::is_same_v<T, std::uint8_t>>> {
    static std::string get() { return "array<" + AvroTypeName<T>::get() + ">"; }
};
template <class T>
struct AvroTypeName<std::map<std::string, T>> {
    static std::string get() { return "map<" + AvroTypeName<T>::get() + ">"; }
};
template <class T>
struct AvroTypeName<std::optional<T>> {
    static std::string get() { return "optional<" + AvroTypeName<T>::get() + ">"; }
};

// The AvroTypeName of the type behind `type`, for every type registerAvroTypes registers,
// every type registerAvroType has registered in any catalogue of the process, and what a
// client passes in place of a wire type: void → void, core::ExportedCallback → callback,
// core::ExportedDataSink and core::ExportedDataSource → stream. Any other type:
// "record:" + core::typeName(type). Any thread; throws only std::bad_alloc.
std::string avroTypeName(std::type_index type);

// The signature of `method`, its types named by avroTypeName. Throws only std::bad_alloc.
core::MethodSignature avroMethodSignature(const core::MethodImplementation& method);

namespace detail {
// Lets avroTypeName(type) answer `name` from now on; registerAvroType calls it. Any thread.
void rememberAvroTypeName(std::type_index type, std::string name);
}  // namespace detail

}  // namespace agent::spf::serialisation
