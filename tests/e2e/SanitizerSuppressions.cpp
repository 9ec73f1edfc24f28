// Read only by the sanitizer runtimes; in other builds these functions are never called.

// nng 1.5.2 leaks the connections a stuck ipc listener had accepted but never handed to
// its socket (the exchange's listener watchdog works around the bug, not the leak); the
// allocations live wholly inside libnng.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libnng.so\n";
}

// libstdc++ counts the references to a shared exception (a failed request's, thrown on
// one thread and caught on another) in code the thread sanitizer does not see.
extern "C" const char* __tsan_default_suppressions() {
    return "race:std::runtime_error::~runtime_error\n"
           "race:std::__exception_ptr::exception_ptr::_M_release\n";
}
