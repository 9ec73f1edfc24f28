#include "Logger.h"

#include "foundation/log/Severity.h"

#include <exception>

namespace agent::spf::servicepublisher {

const foundation::log::diagnostic_logger& getLogger() {
    static const foundation::log::diagnostic_logger logger("agent::spf::servicepublisher");
    return logger;
}

void logCaughtException(const std::string& explanation) noexcept {
    const auto& logger = getLogger();
    logger.log(foundation::log::severity::error, explanation);
    if (!logger.isEnabled(foundation::log::severity::exception)) {
        return;
    }
    try {
        try {
            throw;
        } catch (const std::exception& e) {
            logger.log(foundation::log::severity::exception, std::string("Exception caught: ") + e.what());
        } catch (...) {
            logger.log(foundation::log::severity::exception, "Exception caught: unknown exception");
        }
    } catch (...) {
        // Out of memory while composing the record: it is lost, the caller is not.
    }
}

}  // namespace agent::spf::servicepublisher
