#pragma once

#include "agent/control/AgentInfo.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace agent::control {

// The content of one registry file (see AgentRegistration.h for the format). Pure
// functions of their arguments; thread-safe.
struct AgentRecord {
    static constexpr int kFormatVersion = 1;
    // Registry files are named "agent-<anything>.json"; a reader ignores every other name.
    static constexpr std::string_view kFilePrefix = "agent-";
    static constexpr std::string_view kFileSuffix = ".json";
    // Readers refuse larger files without reading them.
    static constexpr std::size_t kMaxFileSize = 64 * 1024;

    AgentInfo info;
    // Nanoseconds since the Unix epoch when the entry was written.
    std::int64_t registered = 0;

    // The JSON text of this record.
    std::string serialise() const;

    // Reads a record; fields it does not know are ignored, so a later writer can add some.
    // Throws std::invalid_argument with one of:
    //   "Agent record is not valid JSON"
    //   "Agent record is not a JSON object"
    //   "Agent record has no format version"
    //   "Agent record format version is not supported"
    //   "Agent record needs a name" / "... an exchange" (non-empty strings)
    //   "Agent record needs a positive process ID"
    //   "Agent record mode must be korvexdrive or desktopservices"
    //   "Agent record needs a registration time" (a non-negative integer)
    static AgentRecord parse(std::string_view text);
    // True for "agent-<at least one character>.json".
    static bool isRecordFileName(std::string_view fileName) noexcept;
};

}  // namespace agent::control
