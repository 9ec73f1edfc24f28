#pragma once

#include "agent/control/AgentMode.h"

#include <sys/types.h>

#include <string>

namespace agent::control {

// What the agent registry says of one running agent: its name, the endpoint URL of its
// exchange, its process ID and its mode. A plain value: copyable, movable, thread-compatible.
// Holds whatever it is given; AgentRegistration checks the fields before writing them.
class AgentInfo {
public:
    AgentInfo(std::string name, std::string exchange, pid_t processID, AgentMode mode);

    const std::string& getName() const noexcept { return name_; }
    const std::string& getExchange() const noexcept { return exchange_; }
    pid_t getProcessID() const noexcept { return processID_; }
    AgentMode getMode() const noexcept { return mode_; }

    friend bool operator==(const AgentInfo& a, const AgentInfo& b) noexcept;
    friend bool operator!=(const AgentInfo& a, const AgentInfo& b) noexcept { return !(a == b); }

private:
    std::string name_;
    std::string exchange_;
    pid_t processID_;
    AgentMode mode_;
};

}  // namespace agent::control
