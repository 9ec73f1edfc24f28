#ifndef CPPMICROSERVICES_DS_RUNTIME_DSLOGGER_H
#define CPPMICROSERVICES_DS_RUNTIME_DSLOGGER_H

#include "foundation/log/DiagnosticLogger.h"
#include "foundation/log/Severity.h"

namespace cppmicroservices::ds
{
    /// The logger "cppmicroservices::ds". Never log with a DS lock held: sinks are user code.
    foundation::log::diagnostic_logger& DsLogger();
} // namespace cppmicroservices::ds

#endif // CPPMICROSERVICES_DS_RUNTIME_DSLOGGER_H
