#include "concurrent/threadpool/GuardedCall.h"

#include <exception>
#include <string>

namespace foundation::concurrent::threadpool {
namespace {

void logTaskFailure(const char* message) noexcept {
    const auto& logger = threadPoolLogger();
    logger.log(log::severity::error, "A thread pool task threw an exception");
    if (logger.isEnabled(log::severity::exception)) {
        try {
            logger.log(log::severity::exception, std::string("Exception caught: ") + message);
        } catch (...) {
            // Out of memory while reporting; the worker carries on regardless.
        }
    }
}

}  // namespace

const log::diagnostic_logger& threadPoolLogger() {
    static const log::diagnostic_logger* const logger =
        new log::diagnostic_logger("foundation::concurrent::threadpool");
    return *logger;
}

void runGuarded(const std::function<void()>& task) noexcept {
    try {
        task();
    } catch (const std::exception& e) {
        logTaskFailure(e.what());
    } catch (...) {
        logTaskFailure("unknown exception");
    }
}

}  // namespace foundation::concurrent::threadpool
