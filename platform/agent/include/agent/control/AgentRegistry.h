#pragma once

#include "agent/control/AgentInfo.h"

#include <filesystem>
#include <vector>

namespace agent::control {

// The agents registered in `root` (see AgentRegistration) whose process is alive
// (kill(pid, 0) succeeds or fails with EPERM), oldest registration first: ordered by the
// "registered" time in each file, then by file name.
//
// Only regular files named "agent-*.json" are read; other names are ignored, and a
// directory, symbolic link, special file or file over 64 KiB under such a name is skipped
// with a warning. A file that cannot be read or parsed is tried again up to `retries`
// more times, 10 ms apart (at most 50 retries), in case a writer that does not rename
// into place is still at it; then it is skipped with a warning naming the file and the
// reason. A file that vanishes while being read was deregistered and is left out quietly.
//
// Files of dead processes are removed (best effort; a failure is logged), so entries of
// agents that crashed do not pile up. Process IDs are those of this process's PID
// namespace.
//
// A missing root gives an empty list, as does an unreadable one (with a warning). Never
// throws except std::bad_alloc. Blocking (file system, and the retry pauses); any thread
// may call it.
std::vector<AgentInfo> enumerateAllRunningAgents(const std::filesystem::path& root, unsigned int retries);

}  // namespace agent::control
