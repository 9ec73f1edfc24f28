#include "agent/spf/core/ExportedCallback.h"

#include <boost/uuid/random_generator.hpp>

#include <stdexcept>

namespace agent::spf::core {

ExportedCallback::ExportedCallback(std::shared_ptr<ExportedCallbackSharedState> state) : state_(std::move(state)) {
    if (!state_) {
        throw std::invalid_argument("ExportedCallback needs a shared state");
    }
}

ExportedCallback::ExportedCallback(MethodImplementation implementation, std::optional<std::uint64_t> maximumInvokeCount)
    : state_(std::make_shared<ExportedCallbackSharedState>(boost::uuids::random_generator()(), std::move(implementation),
                                                           maximumInvokeCount)) {}

}  // namespace agent::spf::core
