#include "agent/control/AgentInfo.h"

#include <utility>

namespace agent::control {

AgentInfo::AgentInfo(std::string name, std::string exchange, pid_t processID, AgentMode mode)
    : name_(std::move(name)), exchange_(std::move(exchange)), processID_(processID), mode_(mode) {}

bool operator==(const AgentInfo& a, const AgentInfo& b) noexcept {
    return a.name_ == b.name_ && a.exchange_ == b.exchange_ && a.processID_ == b.processID_ && a.mode_ == b.mode_;
}

}  // namespace agent::control
