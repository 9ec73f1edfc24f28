#pragma once

#include "agent/core/service/NativeLegacyServiceBase.h"

#include <chrono>
#include <string>

namespace apps::legacyagent {

// A clock as a native legacy service: "<prefix>Clock", version 1.0.0.0, with
// sampleServiceMetadata(). Payloads are raw bytes:
//
//   now   request  ignored   reply  the time in UTC as text, "YYYY-MM-DDThh:mm:ss.mmmZ"
//   echo  request  any bytes reply  the same bytes
//
// Each instance serves once (see ServiceBase).
class ClockService : public agent::core::service::NativeLegacyServiceBase {
public:
    static constexpr const char* kName = "Clock";

    explicit ClockService(const std::string& namePrefix);

    // `time` as the reply of "now" gives it. Any thread; throws nothing but std::bad_alloc.
    static std::string formatUtc(std::chrono::system_clock::time_point time);
};

}  // namespace apps::legacyagent
