#pragma once

#include <istream>
#include <memory>

namespace agent::spf::core {

// An input stream that a client passes as an argument of a call, so that the service can
// read data from it. Before the call is sent, the bridge replaces it by a marker naming a
// stream device it serves. A copyable handle: copies share the stream. The stream is not
// synchronised; whoever serves it reads from one thread at a time.
class ExportedDataSource {
public:
    // Null stream: std::invalid_argument.
    explicit ExportedDataSource(std::shared_ptr<std::istream> stream);

    const std::shared_ptr<std::istream>& getExportedInputStream() const noexcept { return stream_; }

private:
    std::shared_ptr<std::istream> stream_;
};

}  // namespace agent::spf::core
