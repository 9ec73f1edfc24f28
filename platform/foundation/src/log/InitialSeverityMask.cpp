#include "foundation/log/DiagnosticLogger.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>

namespace foundation::log {
namespace {

// Hex with a 0x prefix, or decimal; the whole text must be the number.
std::optional<std::uint32_t> parseMask(const std::string& text) {
    int base = 10;
    std::size_t start = 0;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        start = 2;
    }
    if (start >= text.size() || !std::isxdigit(static_cast<unsigned char>(text[start]))) {
        return std::nullopt;
    }
    errno = 0;
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str() + start, &end, base);
    if (errno != 0 || *end != '\0' || value > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(value);
}

std::uint32_t readMaskFromEnvironment() {
    const char* text = std::getenv("FOUNDATION_LOG_MASK");
    if (text == nullptr) {
        return defaultSeverityMask;
    }
    if (auto mask = parseMask(text)) {
        return *mask;
    }
    // No logger can report this: it is the loggers' own configuration.
    std::fprintf(stderr, "FOUNDATION_LOG_MASK ignored: \"%s\" is neither 0x-prefixed hex nor decimal\n", text);
    return defaultSeverityMask;
}

}  // namespace

std::uint32_t initialSeverityMask() {
    static const std::uint32_t mask = readMaskFromEnvironment();
    return mask;
}

}  // namespace foundation::log
