#include "directory/DirectoryLogger.h"

namespace agent::directory {

const foundation::log::diagnostic_logger& directoryLogger() {
    static const auto* logger = new foundation::log::diagnostic_logger("agent::directory");
    return *logger;
}

}  // namespace agent::directory
