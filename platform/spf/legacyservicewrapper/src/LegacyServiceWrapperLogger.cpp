#include "LegacyServiceWrapperLogger.h"

namespace agent::spf::legacyservicewrapper {

const foundation::log::diagnostic_logger& legacyServiceWrapperLogger() {
    static const auto* logger = new foundation::log::diagnostic_logger("agent::spf::legacyservicewrapper");
    return *logger;
}

}  // namespace agent::spf::legacyservicewrapper
