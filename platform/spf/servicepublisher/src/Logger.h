#pragma once

#include "foundation/log/DiagnosticLogger.h"

#include <string>

namespace agent::spf::servicepublisher {

// The library's logger, "agent::spf::servicepublisher". Created on first use; any thread.
const foundation::log::diagnostic_logger& getLogger();

// Logs a failure as two records: explanation at error (0x100), then "Exception caught: " and the
// message of the exception in flight at exception (0x10). Call it only inside a catch block.
// Never throws.
void logCaughtException(const std::string& explanation) noexcept;

}  // namespace agent::spf::servicepublisher
