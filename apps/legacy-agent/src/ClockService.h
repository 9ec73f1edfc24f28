#pragma once

#include "SampleService.h"

#include <chrono>
#include <string>

namespace apps::legacyagent {

// A clock as a native legacy service: "<prefix>Clock", version 1.0.0.0, wire format
// kAvroMultipartWireFormat (Avro values, one part per argument; see AvroMethod):
//
//   now()                     -> string, the time in UTC, "YYYY-MM-DDThh:mm:ss.mmmZ"
//   echo(string text)         -> string, the same text
//   millisecondsSinceEpoch()  -> long (int64), milliseconds since 1970-01-01T00:00:00Z
//
// Each instance serves once (see ServiceBase).
class ClockService : public SampleService {
public:
    static constexpr const char* kName = "Clock";

    explicit ClockService(const std::string& namePrefix);

    // `time` as the reply of "now" gives it. Any thread; throws nothing but std::bad_alloc.
    static std::string formatUtc(std::chrono::system_clock::time_point time);
};

}  // namespace apps::legacyagent
