#include "agent/spf/core/ExportedDataSource.h"

#include <stdexcept>

namespace agent::spf::core {

ExportedDataSource::ExportedDataSource(std::shared_ptr<std::istream> stream) : stream_(std::move(stream)) {
    if (!stream_) {
        throw std::invalid_argument("ExportedDataSource needs a stream");
    }
}

}  // namespace agent::spf::core
