#include "agent/control/AgentMode.h"

namespace agent::control {

const char* toString(AgentMode mode) noexcept {
    return mode == AgentMode::DesktopServices ? "desktopservices" : "korvexdrive";
}

boost::optional<AgentMode> parseAgentMode(std::string_view text) noexcept {
    if (text == "korvexdrive") {
        return AgentMode::KorvexDrive;
    }
    if (text == "desktopservices") {
        return AgentMode::DesktopServices;
    }
    return boost::none;
}

}  // namespace agent::control
