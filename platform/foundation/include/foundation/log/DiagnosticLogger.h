#pragma once

// A named diagnostic logger with a runtime severity mask.
//
// Environment: FOUNDATION_LOG_MASK, read once per process when the first logger is
// created, sets the mask of every new logger instead of defaultSeverityMask
// (0x116 = warning|info|exception|error). It takes hex with a 0x prefix
// ("0x11f") or decimal ("287"); any other value is ignored with a note on stderr.
//
//   FOUNDATION_LOG(logger, 0x04) << "Creating " << endpoint;   // operands evaluated only if 0x04 is on
//   logger.log(0x100, "text");
//   FOUNDATION_LOG_FUNCTION(logger);   // enter/leave trace records for this scope

#include "foundation/log/Record.h"
#include "foundation/log/Severity.h"

#include <atomic>
#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace foundation::log {

// The mask new loggers start with: FOUNDATION_LOG_MASK if set and valid, else
// defaultSeverityMask.
std::uint32_t initialSeverityMask();

template <class CharT>
class basic_record_builder;

// Thread-safe: any thread may log, read or change the mask at any time. Records go
// to every installed sink (Sink.h). Logging never throws.
template <class CharT>
class basic_diagnostic_logger {
    static_assert(std::is_same_v<CharT, char>, "diagnostic loggers are provided for char only");

public:
    using char_type = CharT;
    using string_type = std::basic_string<CharT>;

    explicit basic_diagnostic_logger(string_type name);
    basic_diagnostic_logger(string_type name, std::uint32_t mask);
    basic_diagnostic_logger(const basic_diagnostic_logger&) = delete;
    basic_diagnostic_logger& operator=(const basic_diagnostic_logger&) = delete;

    const string_type& name() const noexcept { return name_; }

    std::uint32_t mask() const noexcept { return mask_.load(std::memory_order_relaxed); }
    void setMask(std::uint32_t mask) noexcept { mask_.store(mask, std::memory_order_relaxed); }
    // True if any bit of `flag` is in the mask.
    bool isEnabled(std::uint32_t flag) const noexcept { return (mask() & flag) != 0; }

    // Writes `text` at `flag` if that flag is enabled.
    void log(std::uint32_t flag, std::basic_string_view<CharT> text) const noexcept;
    // Writes a trace-style record carrying function, file and line if `flag` is enabled.
    void logAt(std::uint32_t flag, std::basic_string_view<CharT> text, const char* function,
               const char* file, int line) const noexcept;

    // A stream whose text is written at `flag` when the builder is destroyed. Check
    // isEnabled first (FOUNDATION_LOG does) to avoid formatting disabled records.
    basic_record_builder<CharT> open(std::uint32_t flag) const;

private:
    const string_type name_;
    std::atomic<std::uint32_t> mask_;
};

using diagnostic_logger = basic_diagnostic_logger<char>;

// Collects streamed text for one record and writes it when destroyed (at the end of
// the full expression in FOUNDATION_LOG).
template <class CharT>
class basic_record_builder {
public:
    basic_record_builder(const basic_diagnostic_logger<CharT>& logger, std::uint32_t flag)
        : logger_(logger), flag_(flag) {}
    basic_record_builder(const basic_record_builder&) = delete;
    basic_record_builder& operator=(const basic_record_builder&) = delete;
    ~basic_record_builder() {
        try {
            logger_.log(flag_, text_.str());
        } catch (...) {
            // Out of memory while finishing the text: the record is lost, the caller is not.
        }
    }

    template <class T>
    basic_record_builder& operator<<(const T& value) {
        text_ << value;
        return *this;
    }
    basic_record_builder& operator<<(std::basic_ostream<CharT>& (*manip)(std::basic_ostream<CharT>&)) {
        text_ << manip;
        return *this;
    }
    basic_record_builder& operator<<(std::ios_base& (*manip)(std::ios_base&)) {
        text_ << manip;
        return *this;
    }

private:
    const basic_diagnostic_logger<CharT>& logger_;
    const std::uint32_t flag_;
    std::basic_ostringstream<CharT> text_;
};

template <class CharT>
basic_record_builder<CharT> basic_diagnostic_logger<CharT>::open(std::uint32_t flag) const {
    return basic_record_builder<CharT>(*this, flag);
}

// Function-scope trace: an "enter" record on construction and a "leave" record on
// destruction, both at severity::trace and each written only if trace is enabled at
// that moment. `function` and `file` must outlive the object (string literals,
// __func__); the logger too.
template <class CharT>
class basic_function_trace {
public:
    basic_function_trace(const basic_diagnostic_logger<CharT>& logger, const char* function,
                         const char* file, int line) noexcept;
    ~basic_function_trace();
    basic_function_trace(const basic_function_trace&) = delete;
    basic_function_trace& operator=(const basic_function_trace&) = delete;

private:
    const basic_diagnostic_logger<CharT>& logger_;
    const char* const function_;
    const char* const file_;
    const int line_;
};

using function_trace = basic_function_trace<char>;

extern template class basic_diagnostic_logger<char>;
extern template class basic_function_trace<char>;

namespace detail {
// Lets FOUNDATION_LOG evaluate its logger and flag arguments exactly once.
template <class CharT>
struct log_gate {
    const basic_diagnostic_logger<CharT>& logger;
    std::uint32_t flag;
    bool enabled() const noexcept { return logger.isEnabled(flag); }
    basic_record_builder<CharT> open() const { return logger.open(flag); }
};
template <class CharT>
log_gate<CharT> makeGate(const basic_diagnostic_logger<CharT>& logger, std::uint32_t flag) noexcept {
    return {logger, flag};
}
}  // namespace detail

}  // namespace foundation::log

#define FOUNDATION_LOG_CONCAT_INNER(a, b) a##b
#define FOUNDATION_LOG_CONCAT(a, b) FOUNDATION_LOG_CONCAT_INNER(a, b)

// FOUNDATION_LOG(logger, flag) << a << b;  writes "ab" at `flag`; when `flag` is
// disabled nothing after the first << is evaluated. Safe inside an unbraced if/else.
#define FOUNDATION_LOG(logger, flag)                                                          \
    if (auto foundationLogGate_ = ::foundation::log::detail::makeGate((logger), (flag));      \
        !foundationLogGate_.enabled()) {                                                      \
    } else                                                                                    \
        foundationLogGate_.open()

// Enter/leave trace records for the enclosing scope, carrying the function signature.
#define FOUNDATION_LOG_FUNCTION(logger)                                                       \
    const ::foundation::log::function_trace FOUNDATION_LOG_CONCAT(foundationFunctionTrace_, __LINE__)( \
        (logger), __PRETTY_FUNCTION__, __FILE__, __LINE__)
