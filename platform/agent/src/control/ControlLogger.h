#pragma once

#include "foundation/log/DiagnosticLogger.h"

namespace agent::control {

// "agent::control". Never destroyed, so it can log from static destructors too.
const foundation::log::diagnostic_logger& controlLogger();

}  // namespace agent::control
