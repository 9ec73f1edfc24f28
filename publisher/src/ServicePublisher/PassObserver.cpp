#include "ServicePublisher/PassObserver.h"

#include <memory>
#include <mutex>

namespace agent::spf::legacyservicepublisher {

namespace {

std::mutex observerMutex;  // guards observer
std::shared_ptr<const PassObserver::Function> observer;

}  // namespace

void PassObserver::set(Function function) {
    auto replacement = function ? std::make_shared<const Function>(std::move(function)) : nullptr;
    std::lock_guard<std::mutex> lock(observerMutex);
    observer = std::move(replacement);
}

void PassObserver::report(const PassReport& pass) noexcept {
    std::shared_ptr<const Function> current;
    {
        std::lock_guard<std::mutex> lock(observerMutex);
        current = observer;
    }
    if (!current) {
        return;
    }
    try {
        (*current)(pass);
    } catch (...) {
    }
}

}  // namespace agent::spf::legacyservicepublisher
