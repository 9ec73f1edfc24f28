#pragma once

#include "foundation/log/Sink.h"

#include <string>

namespace foundation::log {

// Writes one line per record to stderr with a single write(2), so lines of
// concurrent threads never interleave:
//   2026-11-22T01:54:11.123Z [thread] logger.name info: text
// Trace records add " <function> (<file>:<line>)".
class stderr_sink : public sink {
public:
    void consume(const record& rec) override;

    // The line consume() writes, without the trailing newline.
    static std::string format(const record& rec);
};

}  // namespace foundation::log
