#pragma once

#include "agent/core/serviceutils/APIVersion.h"

#include <chrono>
#include <map>
#include <string>

namespace apps::legacyagent {

// What the sample services have in common.

inline constexpr agent::core::serviceutils::APIVersion kSampleServiceVersion(1, 0, 0, 0);

// Bounds each directory call a service makes entering or leaving the directory, so that a
// stop while the exchange is gone does not hold the process for long.
inline constexpr std::chrono::milliseconds kDirectoryCallTimeout{2000};

// The directory metadata of both: the SPF wire format they are meant to speak (their
// payloads are raw bytes for now) and their major version.
inline std::map<std::string, std::string> sampleServiceMetadata() {
    return {{"spf.wireFormat", "application/octet-stream+spf/avro+spf/multipart"},
            {"spf::servicemajor", std::to_string(kSampleServiceVersion.getMajor())}};
}

}  // namespace apps::legacyagent
