#pragma once

#include <boost/optional.hpp>

#include <string_view>

namespace agent::control {

// Which family of agents an agent belongs to. Each mode has its own registry root
// (see agent::utils::FolderLocations and korvexconnector::serviceprocess::FolderLocations).
enum class AgentMode { KorvexDrive, DesktopServices };

// "korvexdrive" or "desktopservices": the spelling on the command line and in registry files.
const char* toString(AgentMode mode) noexcept;
// The mode spelled `text` exactly (lower case); none for anything else.
boost::optional<AgentMode> parseAgentMode(std::string_view text) noexcept;

}  // namespace agent::control
