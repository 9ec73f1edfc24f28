#include "control/ControlLogger.h"

namespace agent::control {

const foundation::log::diagnostic_logger& controlLogger() {
    static const auto* logger = new foundation::log::diagnostic_logger("agent::control");
    return *logger;
}

}  // namespace agent::control
