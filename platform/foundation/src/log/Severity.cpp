#include "foundation/log/Severity.h"

#include <cstdio>

namespace foundation::log {

std::string severityName(std::uint32_t flag) {
    switch (flag) {
    case severity::trace: return "trace";
    case severity::warning: return "warning";
    case severity::info: return "info";
    case severity::debug: return "debug";
    case severity::exception: return "exception";
    case severity::error: return "error";
    default: break;
    }
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", static_cast<unsigned>(flag));
    return text;
}

}  // namespace foundation::log
