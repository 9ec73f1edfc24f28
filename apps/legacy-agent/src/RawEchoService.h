#pragma once

#include "SampleService.h"

#include <string>

namespace apps::legacyagent {

// An echo of raw bytes as a native legacy service: "<prefix>RawEcho", version 1.0.0.0, wire
// format kRawBytesWireFormat, so a message is the value's bytes alone, without parts:
//
//   echo   request  any bytes (none included)   reply  the same bytes
//
// It shows clients the single framing beside the typed services' multipart one. Each
// instance serves once (see ServiceBase).
class RawEchoService : public SampleService {
public:
    static constexpr const char* kName = "RawEcho";

    explicit RawEchoService(const std::string& namePrefix);
};

}  // namespace apps::legacyagent
