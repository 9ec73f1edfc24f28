#pragma once

#include "agent/core/transport/Message.h"
#include "agent/spf/core/MethodSignature.h"
#include "agent/spf/legacyservicewrapper/MultipartFraming.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <cstddef>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace apps::legacyagent {

// What every AvroMethod shares: the names it reports with, reading a request's parts and
// writing the reply's one part.
class AvroMethodBase {
protected:
    using Message = agent::core::transport::Message;
    using Part = agent::spf::legacyservicewrapper::MultipartFraming::Part;

    AvroMethodBase(std::string service, std::string method);

    // The request's parts, exactly `count` of them; else refuse() with the framing's text.
    std::vector<Part> splitRequest(const Message& request, std::size_t count) const;
    // Logs a warning naming the service, the method and the request's size, then throws
    // std::runtime_error(text), which the transport returns to the caller.
    [[noreturn]] void refuse(const Message& request, const std::string& text) const;
    // "Invalid argument <index> of method <name>: <cause>", as the wrapper says it.
    [[noreturn]] void refuseArgument(const Message& request, std::size_t index, const std::string& cause) const;
    // One part holding `result` (empty for a method without one).
    static Message reply(const agent::spf::serialisation::ByteBuffer& result);

    const std::string service_;
    const std::string method_;
};

template <class Signature>
class AvroMethod;

// The request handler of a method of a service whose wire format is
// "application/octet-stream+spf/avro+spf/multipart", made from a typed function: the request
// holds one part per argument, in order, each the argument's Avro binary; the reply holds one
// part, the result's Avro binary, or nothing for R = void. Any type AvroCodec covers will do.
//
// A malformed request (a part count other than sizeof...(Args), a size field past the end, an
// argument that is not one Avro value of its type) is refused with the texts MultipartFraming
// and AvroDecoder give (an argument's prefixed "Invalid argument <i> of method <name>: ") and
// logged as a warning; the function is not called. What the function throws reaches the
// caller unchanged.
//
// Copyable, as a transport::RequestHandler must be; the call operator runs on any number of
// pool threads at once, so the function must allow that.
template <class R, class... Args>
class AvroMethod<R(Args...)> : private AvroMethodBase {
public:
    AvroMethod(std::string service, std::string method, std::function<R(Args...)> function)
        : AvroMethodBase(std::move(service), std::move(method)), function_(std::move(function)) {}

    // What the directory entry says of the method: its types as AvroTypeName names them.
    static agent::spf::core::MethodSignature signature() {
        return {{agent::spf::serialisation::AvroTypeName<std::decay_t<Args>>::get()...}, resultTypeName()};
    }

    Message operator()(const Message& request) const {
        const auto parts = splitRequest(request, sizeof...(Args));
        auto arguments = readArguments(request, parts, std::index_sequence_for<Args...>{});
        if constexpr (std::is_void_v<R>) {
            std::apply(function_, std::move(arguments));
            return reply({});
        } else {
            return reply(agent::spf::serialisation::avroEncode<R>(std::apply(function_, std::move(arguments))));
        }
    }

private:
    static std::string resultTypeName() {
        if constexpr (std::is_void_v<R>) {
            return "void";
        } else {
            return agent::spf::serialisation::AvroTypeName<R>::get();
        }
    }

    template <std::size_t... I>
    std::tuple<std::decay_t<Args>...> readArguments(const Message& request, const std::vector<Part>& parts,
                                                    std::index_sequence<I...>) const {
        // Braces: the arguments are read, and a bad one refused, in order.
        return std::tuple<std::decay_t<Args>...>{readArgument<std::decay_t<Args>>(request, parts[I], I)...};
    }

    template <class T>
    T readArgument(const Message& request, const Part& part, std::size_t index) const {
        try {
            return agent::spf::serialisation::avroDecode<T>(request.data() + part.offset, part.size);
        } catch (const std::exception& e) {
            refuseArgument(request, index, e.what());
        }
    }

    std::function<R(Args...)> function_;
};

}  // namespace apps::legacyagent
