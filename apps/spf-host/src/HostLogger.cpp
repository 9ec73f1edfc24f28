#include "HostLogger.h"

namespace spfhost {

const foundation::log::diagnostic_logger& logger() {
    // Never destroyed: threads of bundles may log while the process exits.
    static const auto* logger = new foundation::log::diagnostic_logger("spf-host");
    return *logger;
}

}  // namespace spfhost
