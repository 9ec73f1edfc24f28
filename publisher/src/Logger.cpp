#include "agent/spf/legacyservicepublisher/Logger.h"

namespace agent::spf::legacyservicepublisher {

foundation::log::basic_diagnostic_logger<char>& getLogger() {
    static foundation::log::basic_diagnostic_logger<char> logger("agent::spf::legacyservicepublisher");
    return logger;
}

}  // namespace agent::spf::legacyservicepublisher
