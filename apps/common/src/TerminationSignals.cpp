#include "apps/common/TerminationSignals.h"

#include <pthread.h>

namespace apps::common {

TerminationSignals::TerminationSignals() {
    ::sigemptyset(&signals_);
    ::sigaddset(&signals_, SIGINT);
    ::sigaddset(&signals_, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
}

int TerminationSignals::wait() const {
    int received = 0;
    while (::sigwait(&signals_, &received) != 0) {
    }
    return received;
}

}  // namespace apps::common
