// A failed future's exception is shared between the thread that fails it and the one that
// catches it; libstdc++ counts those references in code the thread sanitizer does not see, so
// the last release looks like a race with the catcher's earlier read of what().
extern "C" const char* __tsan_default_suppressions() {
    return "race:std::runtime_error::~runtime_error\n"
           "race:std::__exception_ptr::exception_ptr::_M_release\n";
}
