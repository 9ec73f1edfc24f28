#pragma once

#include "foundation/log/DiagnosticLogger.h"

namespace agent::spf::legacyservicewrapper {

// "agent::spf::legacyservicewrapper". Never destroyed, so late pool threads can still log.
const foundation::log::diagnostic_logger& legacyServiceWrapperLogger();

}  // namespace agent::spf::legacyservicewrapper
