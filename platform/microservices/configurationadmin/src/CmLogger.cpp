#include "CmLogger.h"

namespace cppmicroservices::cmimpl
{
    foundation::log::diagnostic_logger const&
    CmLogger()
    {
        // Never destroyed: threads of this bundle may log during process exit.
        static auto* const logger = new foundation::log::diagnostic_logger("cppmicroservices::cm");
        return *logger;
    }
} // namespace cppmicroservices::cmimpl
