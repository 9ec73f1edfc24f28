#pragma once

#include "foundation/log/DiagnosticLogger.h"

namespace agent::nanomsgtransport {

// "agent::nanomsgtransport::Exchange" and "agent::nanomsgtransport::Transport". Never
// destroyed, so nng threads outliving static destruction can still log.
const foundation::log::diagnostic_logger& exchangeLogger();
const foundation::log::diagnostic_logger& transportLogger();

}  // namespace agent::nanomsgtransport
