#include "LegacyAgentLogger.h"

namespace apps::legacyagent {

const foundation::log::diagnostic_logger& legacyAgentLogger() {
    static const auto* logger = new foundation::log::diagnostic_logger("legacy-agent");
    return *logger;
}

}  // namespace apps::legacyagent
