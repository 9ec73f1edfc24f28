#include "foundation/log/StderrSink.h"

#include "foundation/log/Severity.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sstream>

namespace foundation::log {
namespace {

void appendUtcTimestamp(std::ostringstream& out, std::chrono::system_clock::time_point when) {
    using namespace std::chrono;
    const auto sinceEpoch = when.time_since_epoch();
    const auto seconds = duration_cast<std::chrono::seconds>(sinceEpoch);
    auto millis = duration_cast<milliseconds>(sinceEpoch - seconds).count();
    std::time_t whole = static_cast<std::time_t>(seconds.count());
    if (millis < 0) {  // before the epoch: keep the fraction positive
        millis += 1000;
        --whole;
    }
    std::tm utc{};
    gmtime_r(&whole, &utc);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    out.write(text, static_cast<std::streamsize>(length));
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03dZ", static_cast<int>(millis));
    out << fraction;
}

void writeAll(int fd, const std::string& line) {
    const char* data = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, left);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;  // stderr is gone; nothing sensible to report it to
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
}

}  // namespace

std::string stderr_sink::format(const record& rec) {
    std::ostringstream out;
    appendUtcTimestamp(out, rec.timestamp);
    out << " [" << rec.threadId << "] " << rec.loggerName << ' ' << severityName(rec.severity) << ": "
        << rec.text;
    if (!rec.function.empty()) {
        out << ' ' << rec.function;
    }
    if (!rec.file.empty()) {
        out << " (" << rec.file << ':' << rec.line << ')';
    }
    return out.str();
}

void stderr_sink::consume(const record& rec) {
    std::string line = format(rec);
    line += '\n';
    writeAll(STDERR_FILENO, line);
}

}  // namespace foundation::log
