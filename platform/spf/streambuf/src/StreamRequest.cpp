#include "agent/spf/streambuf/StreamRequest.h"

namespace agent::spf::streambuf {

using agent::core::transport::Message;

namespace {

Message startRequest(StreamRequest kind) {
    const auto byte = static_cast<std::uint8_t>(kind);
    return Message(&byte, 1);
}

}  // namespace

Message makeWriteRequest(const void* data, std::size_t size) {
    Message request = startRequest(StreamRequest::write);
    request.append(data, size);
    return request;
}

Message makeReadRequest(std::uint32_t count) {
    Message request = startRequest(StreamRequest::read);
    const std::uint8_t bigEndian[4] = {static_cast<std::uint8_t>(count >> 24), static_cast<std::uint8_t>(count >> 16),
                                       static_cast<std::uint8_t>(count >> 8), static_cast<std::uint8_t>(count)};
    request.append(bigEndian, sizeof bigEndian);
    return request;
}

Message makeCloseRequest() {
    return startRequest(StreamRequest::close);
}

}  // namespace agent::spf::streambuf
