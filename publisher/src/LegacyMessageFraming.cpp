#include "LegacyMessageFraming.h"

#include "agent/spf/legacyservicepublisher/Logger.h"
#include "agent/spf/legacyservicewrapper/MultipartFraming.h"
#include "agent/spf/serialisation/NonOwningByteBufferViewIStreambuf.h"

#include "foundation/log/Severity.h"

#include <cstdint>
#include <istream>
#include <stdexcept>

namespace agent::spf::legacyservicepublisher {

using agent::core::transport::Message;
using agent::spf::legacyservicewrapper::MultipartFraming;
using agent::core::transport::MessageView;

namespace {

std::uint64_t readSize(const std::uint8_t* field) noexcept {
    std::uint64_t size = 0;
    for (std::size_t i = 0; i < LegacyMessageFraming::kSizeFieldBytes; ++i) {
        size = (size << 8) | field[i];
    }
    return size;
}

}  // namespace

Message LegacyMessageFraming::frameRequest(agent::spf::core::GenericPayload&& arguments,
                                           const agent::spf::serialisation::SerialisationCatalogue& catalogue,
                                           const std::string& contentType, bool multipart) {
    auto serialisers = agent::spf::serialisation::createSerialisersFor(std::move(arguments), catalogue, contentType);
    if (serialisers.empty()) {
        FOUNDATION_LOG(getLogger(), foundation::log::severity::debug) << "No serialisers found for " << contentType;
    }
    Message request;
    for (auto& serialiser : serialisers) {
        if (!multipart) {
            serialiser.drainInto([&request](const std::uint8_t* data, std::size_t size) { request.append(data, size); });
            continue;
        }
        // Streamed straight into the request behind its size field, which is filled in after.
        const auto sizeField = MultipartFraming::beginPart(request);
        serialiser.drainInto([&request](const std::uint8_t* data, std::size_t chunk) { request.append(data, chunk); });
        MultipartFraming::endPart(request, sizeField);
    }
    return request;
}

agent::spf::core::GenericPayload LegacyMessageFraming::readReply(
    const MessageView& reply, const agent::spf::serialisation::Deserialiser& deserialiser, bool multipart) {
    MessageView value = reply;
    if (multipart) {
        if (reply.size() < kSizeFieldBytes) {
            throw std::runtime_error("Invalid message - buffer too small " + std::to_string(reply.size()) + " < " +
                                     std::to_string(kSizeFieldBytes));
        }
        const auto size = readSize(reply.data());
        // Compared without adding to `size`, which a peer may set near the top of its range.
        if (size > reply.size() - kSizeFieldBytes) {
            throw std::runtime_error("Invalid message - reported data size larger than buffer (2) " +
                                     std::to_string(reply.size()) + " < " +
                                     (size > UINT64_MAX - kSizeFieldBytes ? std::string("more than 2^64")
                                                                           : std::to_string(size + kSizeFieldBytes)));
        }
        value = reply.makeView(kSizeFieldBytes, static_cast<std::size_t>(size));
    }
    agent::spf::serialisation::NonOwningByteBufferViewIStreambuf buffer(value.data(), value.size());
    std::istream in(&buffer);
    return deserialiser(in);
}

agent::spf::core::GenericPayload LegacyMessageFraming::readRequest(
    const Message& request, const std::vector<std::type_index>& argumentTypes,
    const agent::spf::serialisation::SerialisationCatalogue& catalogue, const std::string& contentType) {
    const auto parts = MultipartFraming::splitParts(request, argumentTypes.size());
    agent::spf::core::GenericPayload arguments;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const auto deserialiser = catalogue.getDeserialiser(contentType, argumentTypes[i]);
        agent::spf::serialisation::NonOwningByteBufferViewIStreambuf buffer(request.data() + parts[i].offset,
                                                                            parts[i].size);
        std::istream in(&buffer);
        arguments.append(deserialiser(in));
    }
    return arguments;
}

Message LegacyMessageFraming::frameReply(agent::spf::core::GenericPayload&& result,
                                         const agent::spf::serialisation::SerialisationCatalogue& catalogue,
                                         const std::string& contentType) {
    if (result.empty() || result.isEmptyAt(0)) {
        Message reply;
        MultipartFraming::endPart(reply, MultipartFraming::beginPart(reply));
        return reply;
    }
    return frameRequest(std::move(result), catalogue, contentType, true);
}

}  // namespace agent::spf::legacyservicepublisher
