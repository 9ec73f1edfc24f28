#pragma once

#include "foundation/log/Record.h"

#include <memory>
#include <vector>

namespace foundation::log {

// Receives every record of every logger in the process (records that pass the
// logger's mask). consume() is called on the logging thread, concurrently from many
// threads, and with no lock of the logger core held, so a sink may itself log.
// An exception thrown by consume() is swallowed: logging never fails the caller.
class sink {
public:
    virtual ~sink() = default;
    virtual void consume(const record& rec) = 0;
};

// Process-wide sink list. Thread-safe; a sink added or removed while another thread
// logs may or may not see that one record. Adding a sink twice has no effect.
void addSink(std::shared_ptr<sink> s);
// Returns true if the sink was installed.
bool removeSink(const std::shared_ptr<sink>& s);
// A snapshot of the installed sinks.
std::vector<std::shared_ptr<sink>> installedSinks();

// The stderr sink installed by default. Remove it with removeSink(defaultStderrSink())
// to silence stderr (tests, benchmarks); add it back with addSink.
std::shared_ptr<sink> defaultStderrSink();

// Delivers a finished record to every installed sink. Used by the loggers; public for
// code that forwards records from elsewhere.
void dispatch(const record& rec) noexcept;

}  // namespace foundation::log
