#pragma once

#include "foundation/log/DiagnosticLogger.h"

#include <functional>

namespace foundation::concurrent::threadpool {

// The logger of the thread pools, executors and facades: "foundation::concurrent::threadpool".
// Never destroyed, so workers outliving static destruction can still log.
const log::diagnostic_logger& threadPoolLogger();

// Runs `task`; an exception it throws is logged (0x100 explanation, then 0x10
// "Exception caught: " with the message) and swallowed.
void runGuarded(const std::function<void()>& task) noexcept;

}  // namespace foundation::concurrent::threadpool
