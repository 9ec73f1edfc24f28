#include "AvroMethod.h"

#include "LegacyAgentLogger.h"

#include <stdexcept>

namespace apps::legacyagent {

using agent::spf::legacyservicewrapper::MultipartFraming;
using foundation::log::severity::warning;

AvroMethodBase::AvroMethodBase(std::string service, std::string method)
    : service_(std::move(service)), method_(std::move(method)) {}

std::vector<AvroMethodBase::Part> AvroMethodBase::splitRequest(const Message& request, std::size_t count) const {
    try {
        return MultipartFraming::splitParts(request, count);
    } catch (const std::exception& e) {
        refuse(request, e.what());
    }
}

void AvroMethodBase::refuse(const Message& request, const std::string& text) const {
    // The caller gets the text as its failure; the log shows a client misbehaving.
    FOUNDATION_LOG(legacyAgentLogger(), warning) << "Service " << service_ << " refused a request to method "
                                                 << method_ << " (" << request.size() << " bytes): " << text;
    throw std::runtime_error(text);
}

void AvroMethodBase::refuseArgument(const Message& request, std::size_t index, const std::string& cause) const {
    refuse(request, "Invalid argument " + std::to_string(index) + " of method " + method_ + ": " + cause);
}

agent::core::transport::Message AvroMethodBase::reply(const agent::spf::serialisation::ByteBuffer& result) {
    Message message;
    const std::size_t sizeField = MultipartFraming::beginPart(message);
    message.append(result.data(), result.size());
    MultipartFraming::endPart(message, sizeField);
    return message;
}

}  // namespace apps::legacyagent
