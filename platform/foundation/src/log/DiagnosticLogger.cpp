#include "foundation/log/DiagnosticLogger.h"

#include "foundation/log/Sink.h"

namespace foundation::log {

template <class CharT>
basic_diagnostic_logger<CharT>::basic_diagnostic_logger(string_type name)
    : basic_diagnostic_logger(std::move(name), initialSeverityMask()) {}

template <class CharT>
basic_diagnostic_logger<CharT>::basic_diagnostic_logger(string_type name, std::uint32_t mask)
    : name_(std::move(name)), mask_(mask) {}

template <class CharT>
void basic_diagnostic_logger<CharT>::log(std::uint32_t flag, std::basic_string_view<CharT> text) const noexcept {
    logAt(flag, text, nullptr, nullptr, 0);
}

template <class CharT>
void basic_diagnostic_logger<CharT>::logAt(std::uint32_t flag, std::basic_string_view<CharT> text,
                                           const char* function, const char* file, int line) const noexcept {
    if (!isEnabled(flag)) {
        return;
    }
    try {
        record rec;
        rec.timestamp = std::chrono::system_clock::now();
        rec.threadId = std::this_thread::get_id();
        rec.loggerName = name_;
        rec.severity = flag;
        rec.text.assign(text.data(), text.size());
        if (function != nullptr) {
            rec.function = function;
        }
        if (file != nullptr) {
            rec.file = file;
        }
        rec.line = line;
        dispatch(rec);
    } catch (...) {
        // Only allocation can fail here; losing the record beats failing the caller.
    }
}

template class basic_diagnostic_logger<char>;

}  // namespace foundation::log
