#pragma once

#include "agent/core/serviceutils/APIVersion.h"

#include <chrono>
#include <string>

namespace apps::legacyagent {

// What the sample services have in common.

inline constexpr agent::core::serviceutils::APIVersion kSampleServiceVersion(1, 0, 0, 0);

// Bounds each directory call a service makes entering or leaving the directory, so that a
// stop while the exchange is gone does not hold the process for long.
inline constexpr std::chrono::milliseconds kDirectoryCallTimeout{2000};

// The wire format of the typed services (see AvroMethod), and that of raw bytes alone; each
// service's directory entry names its own under "spf.wireFormat" (see SampleService).
inline constexpr const char* kAvroMultipartWireFormat = "application/octet-stream+spf/avro+spf/multipart";
inline constexpr const char* kRawBytesWireFormat = "application/octet-stream";

}  // namespace apps::legacyagent
