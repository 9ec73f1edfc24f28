#pragma once

#include "foundation/log/DiagnosticLogger.h"

namespace agent::spf::legacyservicepublisher {

// The one logger of this bundle, named "agent::spf::legacyservicepublisher". Made on first
// use (thread-safe initialisation of a function-local static) and destroyed at process exit.
// Any thread; never blocks; throws only std::bad_alloc, and only on the first call.
foundation::log::basic_diagnostic_logger<char>& getLogger();

}  // namespace agent::spf::legacyservicepublisher
