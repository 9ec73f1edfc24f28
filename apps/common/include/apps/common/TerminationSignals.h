#pragma once

#include <signal.h>

namespace apps::common {

// SIGINT and SIGTERM, taken by a thread that waits for them rather than by a handler, so
// that an app's stop may do anything (a handler may only call async-signal-safe functions).
//
// Construct it in main before any thread starts: it blocks both signals in the calling
// thread, so every thread started later inherits the mask and only wait() takes them. It
// also ignores SIGPIPE, so a reader that went away cannot end the process through a write
// to its pipe. The mask is left as it is on destruction.
class TerminationSignals {
public:
    TerminationSignals();

    // Blocks until SIGINT or SIGTERM arrives; returns which.
    int wait() const;

private:
    sigset_t signals_;
};

}  // namespace apps::common
