#pragma once

#include "agent/core/transport/Message.h"

#include <istream>
#include <memory>
#include <ostream>

namespace agent::spf::streambuf {

// One client stream as the transport serves it: each request of StreamRequest.h from the
// legacy service is answered by serve(). Thread-safe: requests arriving at once are served one
// after the other. Releasing a sink's device flushes its stream.
class StreamBuffer {
public:
    virtual ~StreamBuffer() = default;

    // Answers one request. Throws std::runtime_error:
    //   "Invalid stream request" for an empty request, an unknown kind or a read without its
    //     count;
    //   "Data sink cannot be read" / "Data source cannot be written";
    //   "Exported stream is closed" after a close;
    //   "Data sink failed" when the client's stream no longer takes bytes.
    virtual agent::core::transport::Message serve(const agent::core::transport::Message& request) = 0;
    // True once a close was served.
    virtual bool isClosed() const = 0;
};

// A device that writes what the service sends into `sink`.
std::unique_ptr<StreamBuffer> makeDevice(std::shared_ptr<std::ostream> sink);
// A device that reads from `source` what the service asks for.
std::unique_ptr<StreamBuffer> makeDevice(std::shared_ptr<std::istream> source);

}  // namespace agent::spf::streambuf
