#include "agent/spf/core/MethodImplementation.h"

#include <stdexcept>

namespace agent::spf::core {

MethodImplementation::MethodImplementation(std::vector<std::type_index> argumentTypes, std::type_index returnType,
                                           Invoker invoker)
    : argumentTypes_(std::move(argumentTypes)), returnType_(returnType), invoker_(std::move(invoker)) {
    if (!invoker_) {
        throw std::invalid_argument("MethodImplementation needs an invoker");
    }
}

GenericPayload MethodImplementation::invoke(GenericPayload&& args) const {
    if (args.size() != argumentTypes_.size()) {
        throw std::runtime_error("Wrong number of arguments, expected " + std::to_string(argumentTypes_.size()));
    }
    return invoker_(std::move(args));
}

}  // namespace agent::spf::core
