#pragma once

#include "foundation/log/DiagnosticLogger.h"

namespace apps::legacyagent {

// "legacy-agent". Never destroyed, so threads still running at exit can log.
const foundation::log::diagnostic_logger& legacyAgentLogger();

}  // namespace apps::legacyagent
