#include "agent/spf/core/CompletionHandler.h"

#include <stdexcept>

namespace agent::spf::core {

CompletionHandler::CompletionHandler(ResultFunction onResult, FailureFunction onFailure, std::type_index returnType)
    : state_(std::make_shared<State>()), returnType_(returnType) {
    state_->onResult = std::move(onResult);
    state_->onFailure = std::move(onFailure);
}

void CompletionHandler::operator()(GenericPayload result) const {
    if (!state_ || state_->completed.exchange(true, std::memory_order_acq_rel)) {
        return;
    }
    // Released before the call so whatever the functions captured goes with this completion.
    ResultFunction onResult = std::move(state_->onResult);
    state_->onFailure = nullptr;
    if (onResult) {
        onResult(std::move(result));
    }
}

void CompletionHandler::operator()(std::exception_ptr failure) const {
    if (!state_ || state_->completed.exchange(true, std::memory_order_acq_rel)) {
        return;
    }
    FailureFunction onFailure = std::move(state_->onFailure);
    state_->onResult = nullptr;
    if (!failure) {
        failure = std::make_exception_ptr(std::runtime_error("Completed with an empty failure"));
    }
    if (onFailure) {
        onFailure(std::move(failure));
    }
}

bool CompletionHandler::isCompleted() const noexcept {
    return !state_ || state_->completed.load(std::memory_order_acquire);
}

}  // namespace agent::spf::core
