#pragma once

#include "foundation/log/DiagnosticLogger.h"

namespace spfhost {

// The host's own logger, "spf-host". Any thread.
const foundation::log::diagnostic_logger& logger();

}  // namespace spfhost
