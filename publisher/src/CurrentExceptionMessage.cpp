#include "CurrentExceptionMessage.h"

#include "agent/spf/legacyservicepublisher/Logger.h"

#include "foundation/log/Severity.h"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/exception.hpp>

#include <exception>

namespace agent::spf::legacyservicepublisher {

std::string currentExceptionMessage() {
    try {
        throw;
    } catch (const std::exception& e) {
        return e.what();
    } catch (const boost::exception& e) {
        return boost::diagnostic_information(e);
    } catch (...) {
        return "No diagnostic information available.";
    }
}

void logCurrentException(std::uint32_t severity, std::string_view explanation) noexcept {
    try {
        auto& logger = getLogger();
        FOUNDATION_LOG(logger, severity) << explanation;
        FOUNDATION_LOG(logger, foundation::log::severity::exception)
            << "Exception caught: " << currentExceptionMessage();
    } catch (...) {
        // Out of memory while describing a failure: the record is lost, the caller goes on.
    }
}

}  // namespace agent::spf::legacyservicepublisher
