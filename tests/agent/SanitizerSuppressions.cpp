// Linked into the tests and into their peer process. nng 1.5.2 leaks frames that were
// queued when a socket or pipe closes, and the connections a stuck ipc listener had
// accepted but never handed to its socket; those allocations live wholly inside libnng,
// so the leak checker is told to leave that library alone.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libnng.so\n";
}

// A failed request's exception is shared between the thread that fails it and the one
// that catches it; libstdc++ counts those references in code the thread sanitizer does not
// see, so the last release looks like a race with the catcher's earlier read of what().
extern "C" const char* __tsan_default_suppressions() {
    return "race:std::runtime_error::~runtime_error\n"
           "race:std::__exception_ptr::exception_ptr::_M_release\n";
}
