#ifndef CPPMICROSERVICES_CONFIGURATIONADMIN_CMLOGGER_H
#define CPPMICROSERVICES_CONFIGURATIONADMIN_CMLOGGER_H

#include "foundation/log/DiagnosticLogger.h"

namespace cppmicroservices::cmimpl
{
    // The logger "cppmicroservices::cm" of this bundle. It lives until the
    // process ends, so that a delivery thread left to finish a callback after
    // the bundle stopped can still log. Any thread.
    foundation::log::diagnostic_logger const& CmLogger();
} // namespace cppmicroservices::cmimpl

#endif // CPPMICROSERVICES_CONFIGURATIONADMIN_CMLOGGER_H
