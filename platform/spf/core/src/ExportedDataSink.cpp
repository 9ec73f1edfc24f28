#include "agent/spf/core/ExportedDataSink.h"

#include <stdexcept>

namespace agent::spf::core {

ExportedDataSink::ExportedDataSink(std::shared_ptr<std::ostream> stream) : stream_(std::move(stream)) {
    if (!stream_) {
        throw std::invalid_argument("ExportedDataSink needs a stream");
    }
}

}  // namespace agent::spf::core
