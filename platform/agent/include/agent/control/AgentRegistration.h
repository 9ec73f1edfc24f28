#pragma once

#include "agent/control/AgentInfo.h"

#include <filesystem>

namespace agent::control {

// An agent's entry in the registry, for as long as this object lives: the constructor
// writes one file into `root` and the destructor removes it. An agent process holds one
// while it runs; enumerateAllRunningAgents lists it to others.
//
// The file is "agent-<pid>-<16 hex digits>.json" (the digits are random, so a process ID
// reused after a crash never lands on a stale entry's name) holding a JSON object:
//   {"formatVersion": 1, "name": ..., "exchange": ..., "processID": ..., "mode": ...,
//    "registered": <nanoseconds since the Unix epoch>}
// It is written to a hidden temporary file in `root` and renamed into place, so a reader
// sees either no file or the whole of it.
//
// Neither copyable nor movable. Construction and destruction block on the file system;
// any thread may construct or destroy one.
class AgentRegistration {
public:
    // Creates `root` (and its parents) when missing, then writes the entry. Throws
    // std::invalid_argument("Agent needs a name"), ("Agent needs an exchange"),
    // ("Agent needs a positive process ID"), and std::runtime_error("Cannot create the
    // agent registry folder <root>: <reason>") or ("Cannot write the agent registry file
    // <file>: <reason>").
    AgentRegistration(const std::filesystem::path& root, AgentInfo info);
    // Removes the file; a file already gone (an enumeration took it for a dead process's)
    // is fine, any other failure is logged. Never throws.
    ~AgentRegistration();
    AgentRegistration(const AgentRegistration&) = delete;
    AgentRegistration& operator=(const AgentRegistration&) = delete;

    const AgentInfo& info() const noexcept { return info_; }
    // The registry file this object owns.
    const std::filesystem::path& path() const noexcept { return path_; }

private:
    AgentInfo info_;
    std::filesystem::path path_;
};

}  // namespace agent::control
