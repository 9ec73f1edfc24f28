#include "agent/spf/legacyservicewrapper/ReceivedCallback.h"

#include "LegacyServiceWrapperLogger.h"

#include "agent/spf/core/TypeName.h"
#include "agent/spf/legacyservicewrapper/MultipartFraming.h"
#include "agent/spf/serialisation/NonOwningByteBufferViewIStreambuf.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <boost/uuid/uuid_io.hpp>

#include <istream>
#include <stdexcept>
#include <string>

namespace agent::spf::legacyservicewrapper {

using agent::core::transport::Address;
using agent::core::transport::Message;
using foundation::log::severity::warning;

namespace {

boost::optional<std::chrono::milliseconds> requestTimeout(const std::optional<std::chrono::milliseconds>& timeout) {
    return timeout ? boost::optional<std::chrono::milliseconds>(*timeout) : boost::none;
}

}  // namespace

ReceivedCallback::ReceivedCallback(agent::core::transport::Transport& transport,
                                   const core::ExportedCallbackReference& reference,
                                   std::shared_ptr<const serialisation::SerialisationCatalogue> catalogue,
                                   std::optional<std::chrono::milliseconds> timeout)
    : transport_(transport), reference_(reference), catalogue_(std::move(catalogue)), timeout_(timeout) {
    if (reference_.callbackUUID.is_nil() || reference_.removalMethodAddress.is_nil()) {
        throw std::invalid_argument(
            "Exported callback reference needs a callback uuid and a removal method address");
    }
    if (!catalogue_) {
        throw std::invalid_argument("Received callback needs a serialisation catalogue");
    }
}

core::GenericPayload ReceivedCallback::invoke(core::GenericPayload args, std::type_index resultType) {
    if (!isActive()) {
        throw std::runtime_error("Exported callback is no longer active");
    }
    const std::string& contentType = serialisation::avroContentType;
    // Everything that can fail here fails before the client's callback runs.
    const bool expectsResult = resultType != std::type_index(typeid(void));
    serialisation::Deserialiser readResult;
    if (expectsResult) {
        readResult = catalogue_->getDeserialiser(contentType, resultType);
        if (!readResult) {
            throw std::runtime_error("No deserialiser registered for content type " + contentType + " and type " +
                                     core::typeName(resultType));
        }
    }
    Message request;
    for (auto& serialiser : serialisation::createSerialisersFor(std::move(args), *catalogue_, contentType)) {
        const std::size_t sizeField = MultipartFraming::beginPart(request);
        serialiser.drainInto([&request](const std::uint8_t* data, std::size_t size) { request.append(data, size); });
        MultipartFraming::endPart(request, sizeField);
    }

    Message reply =
        transport_.sendRequest(Address(reference_.callbackUUID), std::move(request), requestTimeout(timeout_)).get();
    if (!expectsResult) {
        return {};
    }
    try {
        const auto parts = MultipartFraming::splitParts(reply, 1);
        serialisation::NonOwningByteBufferViewIStreambuf buffer(reply.data() + parts[0].offset, parts[0].size);
        std::istream in(&buffer);
        core::GenericPayload result = readResult(in);
        if (result.size() != 1) {
            throw std::runtime_error("the deserialiser gave " + std::to_string(result.size()) + " values");
        }
        return result;
    } catch (const std::exception& e) {
        FOUNDATION_LOG(legacyServiceWrapperLogger(), warning)
            << "Exported callback " << reference_.callbackUUID << " answered a reply of " << reply.size()
            << " bytes that cannot be read: " << e.what();
        throw std::runtime_error(std::string("Invalid reply of exported callback: ") + e.what());
    }
}

void ReceivedCallback::remove() {
    {
        std::lock_guard<std::mutex> lock(removalMutex_);
        if (removedByService_ || removedByClient_) {
            return;
        }
        removedByService_ = true;
    }
    Message request;
    const std::size_t sizeField = MultipartFraming::beginPart(request);
    const auto id = serialisation::avroEncode(reference_.callbackUUID);
    request.append(id.data(), id.size());
    MultipartFraming::endPart(request, sizeField);
    // The answer carries nothing; only its failure counts.
    transport_.sendRequest(Address(reference_.removalMethodAddress), std::move(request), requestTimeout(timeout_))
        .get();
}

bool ReceivedCallback::isActive() const {
    std::lock_guard<std::mutex> lock(removalMutex_);
    return !removedByService_ && !removedByClient_;
}

bool ReceivedCallback::wasRemovedByClient() const {
    std::lock_guard<std::mutex> lock(removalMutex_);
    return removedByClient_;
}

void ReceivedCallback::markRemovedByClient() {
    std::lock_guard<std::mutex> lock(removalMutex_);
    removedByClient_ = true;
}

}  // namespace agent::spf::legacyservicewrapper
