#pragma once

#include "agent/core/transport/Transport.h"
#include "agent/spf/core/ExportedStreamReference.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace agent::spf::legacyservicewrapper {

// A data sink or source that a client passed to a legacy service, as the service uses it: each
// write, read and close is one request to the bridge that serves the client's stream.
//
// Any thread may use it; calls block until the bridge answers and are answered in the order the
// bridge receives them. The transport is borrowed and must outlive the object.
class ReceivedStream {
public:
    // `timeout` bounds each request (nullopt: the transport's default). Throws
    // std::invalid_argument("Exported stream reference needs a stream uuid") for a nil uuid.
    ReceivedStream(agent::core::transport::Transport& transport, const core::ExportedStreamReference& reference,
                   std::optional<std::chrono::milliseconds> timeout = std::nullopt);

    const core::ExportedStreamReference& reference() const noexcept { return reference_; }

    // Writes `size` bytes to the client's sink.
    void write(const void* data, std::size_t size);
    void write(const std::string& text) { write(text.data(), text.size()); }
    // Reads up to `size` bytes of the client's source into `buffer`; 0 once the source has ended.
    std::size_t read(void* buffer, std::size_t size);
    // Reads the source to its end.
    std::string readAll();
    // Flushes a sink; the bridge withdraws the stream, and later requests fail.
    void close();

    // Each throws std::runtime_error with the bridge's failure text as it arrives ("Exported
    // stream is closed", "Data sink failed", ...), or with the transport's timeout or
    // disconnection.

private:
    agent::core::transport::Message request(agent::core::transport::Message message);

    agent::core::transport::Transport& transport_;
    const core::ExportedStreamReference reference_;
    const std::optional<std::chrono::milliseconds> timeout_;
};

}  // namespace agent::spf::legacyservicewrapper
