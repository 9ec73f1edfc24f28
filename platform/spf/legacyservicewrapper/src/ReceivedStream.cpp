#include "agent/spf/legacyservicewrapper/ReceivedStream.h"

#include "agent/spf/streambuf/StreamRequest.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace agent::spf::legacyservicewrapper {

using agent::core::transport::Address;
using agent::core::transport::Message;

ReceivedStream::ReceivedStream(agent::core::transport::Transport& transport,
                               const core::ExportedStreamReference& reference,
                               std::optional<std::chrono::milliseconds> timeout)
    : transport_(transport), reference_(reference), timeout_(timeout) {
    if (reference_.streamUUID.is_nil()) {
        throw std::invalid_argument("Exported stream reference needs a stream uuid");
    }
}

void ReceivedStream::write(const void* data, std::size_t size) {
    request(streambuf::makeWriteRequest(data, size));
}

std::size_t ReceivedStream::read(void* buffer, std::size_t size) {
    const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(size, streambuf::kLargestRead));
    const Message reply = request(streambuf::makeReadRequest(count));
    if (reply.size() > count) {
        throw std::runtime_error("Exported stream answered more bytes than asked for");
    }
    std::memcpy(buffer, reply.data(), reply.size());
    return reply.size();
}

std::string ReceivedStream::readAll() {
    std::string all;
    for (;;) {
        const Message reply = request(streambuf::makeReadRequest(streambuf::kLargestRead));
        if (reply.empty()) {
            return all;
        }
        all.append(reply.asStringView());
    }
}

void ReceivedStream::close() {
    request(streambuf::makeCloseRequest());
}

Message ReceivedStream::request(Message message) {
    const auto timeout = timeout_ ? boost::optional<std::chrono::milliseconds>(*timeout_) : boost::none;
    return transport_.sendRequest(Address(reference_.streamUUID), std::move(message), timeout).get();
}

}  // namespace agent::spf::legacyservicewrapper
