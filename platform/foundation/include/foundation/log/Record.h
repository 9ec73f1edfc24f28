#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

namespace foundation::log {

// One log record as sinks receive it. Trace records (function enter/leave) also
// carry the function text, source file and line; for other records those are empty/0.
struct record {
    std::chrono::system_clock::time_point timestamp;
    std::thread::id threadId;
    std::string loggerName;
    std::uint32_t severity = 0;
    std::string text;
    std::string function;
    std::string file;
    int line = 0;
};

}  // namespace foundation::log
