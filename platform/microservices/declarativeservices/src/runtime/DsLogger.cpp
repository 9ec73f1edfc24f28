#include "runtime/DsLogger.h"

namespace cppmicroservices::ds
{
    foundation::log::diagnostic_logger&
    DsLogger()
    {
        static foundation::log::diagnostic_logger logger("cppmicroservices::ds");
        return logger;
    }
} // namespace cppmicroservices::ds
