#include "MethodRequestHandler.h"

#include "LegacyServiceWrapperLogger.h"
#include "ServiceDefinition.h"

#include "agent/spf/core/TypeName.h"
#include "agent/spf/legacyservicewrapper/MultipartFraming.h"
#include "agent/spf/serialisation/NonOwningByteBufferViewIStreambuf.h"

#include <istream>
#include <stdexcept>

namespace agent::spf::legacyservicewrapper {

using agent::core::transport::Message;
using foundation::log::severity::error;
using foundation::log::severity::warning;

MethodRequestHandler::MethodRequestHandler(std::shared_ptr<const ServiceDefinition> definition, std::string method)
    : definition_(std::move(definition)),
      method_(std::move(method)),
      implementation_(&definition_->serviceInterface().method(method_)) {}

Message MethodRequestHandler::operator()(const Message& request) const {
    core::GenericPayload arguments;
    try {
        arguments = readArguments(request);
    } catch (const std::exception& e) {
        FOUNDATION_LOG(legacyServiceWrapperLogger(), warning)
            << "Service " << definition_->name() << " refused a request to method " << method_ << " ("
            << request.size() << " bytes): " << e.what();
        throw;
    }

    core::GenericPayload result;
    try {
        result = implementation_->invoke(std::move(arguments));
    } catch (const std::exception&) {
        throw;  // the method's own failure is the caller's answer, word for word
    } catch (...) {
        throw std::runtime_error("Method " + method_ + " failed with an exception of unknown type");
    }

    try {
        return writeReply(std::move(result));
    } catch (const std::exception& e) {
        const std::string failure = "Result of method " + method_ + " cannot be written: " + e.what();
        FOUNDATION_LOG(legacyServiceWrapperLogger(), error) << "Service " << definition_->name() << ": " << failure;
        throw std::runtime_error(failure);
    }
}

core::GenericPayload MethodRequestHandler::readArguments(const Message& request) const {
    const auto& types = implementation_->argumentTypes();
    const auto& format = definition_->wireFormat();

    std::vector<MultipartFraming::Part> parts;
    if (format.multipart) {
        parts = MultipartFraming::splitParts(request, types.size());
    } else if (!types.empty()) {
        parts.push_back({0, request.size()});  // single framing: the whole message is the one value
    }

    core::GenericPayload arguments;
    for (std::size_t i = 0; i < types.size(); ++i) {
        try {
            const auto deserialise = definition_->catalogue().getDeserialiser(format.contentType, types[i]);
            if (!deserialise) {
                throw std::runtime_error("No deserialiser registered for content type " + format.contentType +
                                         " and type " + core::typeName(types[i]));
            }
            serialisation::NonOwningByteBufferViewIStreambuf buffer(request.data() + parts[i].offset, parts[i].size);
            std::istream in(&buffer);
            auto value = deserialise(in);
            if (value.size() != 1) {
                throw std::runtime_error("the deserialiser gave " + std::to_string(value.size()) + " values");
            }
            arguments.append(std::move(value));
        } catch (const std::exception& e) {
            throw std::runtime_error("Invalid argument " + std::to_string(i) + " of method " + method_ + ": " +
                                     e.what());
        }
    }
    return arguments;
}

Message MethodRequestHandler::writeReply(core::GenericPayload&& result) const {
    const auto& format = definition_->wireFormat();
    Message reply;
    const std::size_t sizeField = format.multipart ? MultipartFraming::beginPart(reply) : 0;
    // A method without a result answers an empty value, so callers always find one part.
    if (!result.empty()) {
        auto serialisers = serialisation::createSerialisersFor(std::move(result), definition_->catalogue(),
                                                               format.contentType);
        for (auto& serialiser : serialisers) {
            serialiser.drainInto([&reply](const std::uint8_t* data, std::size_t size) { reply.append(data, size); });
        }
    }
    if (format.multipart) {
        MultipartFraming::endPart(reply, sizeField);
    }
    return reply;
}

}  // namespace agent::spf::legacyservicewrapper
