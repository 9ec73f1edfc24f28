#include "foundation/log/DiagnosticLogger.h"

namespace foundation::log {

template <class CharT>
basic_function_trace<CharT>::basic_function_trace(const basic_diagnostic_logger<CharT>& logger,
                                                  const char* function, const char* file, int line) noexcept
    : logger_(logger), function_(function), file_(file), line_(line) {
    logger_.logAt(severity::trace, "enter", function_, file_, line_);
}

template <class CharT>
basic_function_trace<CharT>::~basic_function_trace() {
    logger_.logAt(severity::trace, "leave", function_, file_, line_);
}

template class basic_function_trace<char>;

}  // namespace foundation::log
