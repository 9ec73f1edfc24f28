#include "nanomsgtransport/Loggers.h"

namespace agent::nanomsgtransport {

const foundation::log::diagnostic_logger& exchangeLogger() {
    static const auto* logger = new foundation::log::diagnostic_logger("agent::nanomsgtransport::Exchange");
    return *logger;
}

const foundation::log::diagnostic_logger& transportLogger() {
    static const auto* logger = new foundation::log::diagnostic_logger("agent::nanomsgtransport::Transport");
    return *logger;
}

}  // namespace agent::nanomsgtransport
