#include "agent/spf/core/ExportedCallbackSharedState.h"

#include <stdexcept>

namespace agent::spf::core {

ExportedCallbackSharedState::ExportedCallbackSharedState(boost::uuids::uuid callbackUUID,
                                                         MethodImplementation implementation,
                                                         std::optional<std::uint64_t> maximumInvokeCount)
    : callbackUUID_(callbackUUID), implementation_(std::move(implementation)), maximumInvokeCount_(maximumInvokeCount) {}

std::uint64_t ExportedCallbackSharedState::getInvokeCount() const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return invokeCount_;
}

bool ExportedCallbackSharedState::isActive() const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return !removed_ && (!maximumInvokeCount_ || invokeCount_ < *maximumInvokeCount_);
}

void ExportedCallbackSharedState::setLastInvokeHandler(std::function<void()> handler) {
    std::lock_guard<std::mutex> lock(stateMutex_);
    lastInvokeHandler_ = std::move(handler);
}

void ExportedCallbackSharedState::setClientSideRemovedHandler(std::function<void()> handler) {
    std::lock_guard<std::mutex> lock(stateMutex_);
    clientSideRemovedHandler_ = std::move(handler);
}

GenericPayload ExportedCallbackSharedState::invoke(GenericPayload&& args) {
    bool isLast = false;
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        if (removed_ || (maximumInvokeCount_ && invokeCount_ >= *maximumInvokeCount_)) {
            throw std::runtime_error("Exported callback is no longer active");
        }
        ++invokeCount_;
        isLast = maximumInvokeCount_ && invokeCount_ == *maximumInvokeCount_;
    }
    if (!isLast) {
        return implementation_.invoke(std::move(args));
    }
    GenericPayload result;
    try {
        result = implementation_.invoke(std::move(args));
    } catch (...) {
        runLastInvokeHandler();
        throw;
    }
    runLastInvokeHandler();
    return result;
}

void ExportedCallbackSharedState::runLastInvokeHandler() {
    std::function<void()> handler;
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        handler = std::move(lastInvokeHandler_);
        lastInvokeHandler_ = nullptr;
    }
    if (handler) {
        handler();
    }
}

void ExportedCallbackSharedState::serviceSideHasRemovedCallback() {
    std::lock_guard<std::mutex> lock(stateMutex_);
    removed_ = true;
}

void ExportedCallbackSharedState::clientSideHasRemovedCallback() {
    std::function<void()> handler;
    {
        std::lock_guard<std::mutex> lock(stateMutex_);
        if (removed_) {
            return;
        }
        removed_ = true;
        handler = std::move(clientSideRemovedHandler_);
        clientSideRemovedHandler_ = nullptr;
    }
    if (handler) {
        handler();
    }
}

}  // namespace agent::spf::core
