#pragma once

#include <memory>
#include <ostream>

namespace agent::spf::core {

// An output stream that a client passes as an argument of a call, so that the service can
// write data into it. Before the call is sent, the bridge replaces it by a marker naming a
// stream device it serves. A copyable handle: copies share the stream. The stream is not
// synchronised; whoever serves it writes from one thread at a time.
class ExportedDataSink {
public:
    // Null stream: std::invalid_argument.
    explicit ExportedDataSink(std::shared_ptr<std::ostream> stream);

    const std::shared_ptr<std::ostream>& getExportedOutputStream() const noexcept { return stream_; }

private:
    std::shared_ptr<std::ostream> stream_;
};

}  // namespace agent::spf::core
