#pragma once

#include "foundation/log/DiagnosticLogger.h"

namespace agent::directory {

// "agent::directory". Never destroyed, so late pool threads can still log.
const foundation::log::diagnostic_logger& directoryLogger();

}  // namespace agent::directory
