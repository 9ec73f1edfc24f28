#pragma once

#include <functional>
#include <set>
#include <string>

namespace agent::spf::legacyservicepublisher {

class ServicePublisher;

// What one pass of a publisher's work thread did, for observers that check the pacing by the
// order and kind of passes rather than by the clock.
struct PassReport {
    const ServicePublisher* publisher = nullptr;
    // The pass followed the previous one without waiting (that pass asked for a rerun).
    bool rerun = false;
    // The pass took over the work fields: it was woken, found a stop request or endpoints to
    // tear down. False for a pass that only ran because nextPassDue had come.
    bool woken = false;
    // The pass saw the stop request; the thread ends after it.
    bool stopSeen = false;
    // The endpoints whose connections the pass tore down by force.
    std::set<std::string> forcedEndpoints;
    // The pass scheduled the next one after the short interval (still in the fast phase).
    bool fastPace = false;
};

// Process-wide observer of every publisher's passes, for tests. The work thread calls it after
// each pass with no lock of the publisher held. Setting an empty function removes it; a pass
// that has already fetched the old observer may still call it once. Thread-safe.
class PassObserver {
public:
    using Function = std::function<void(const PassReport&)>;

    static void set(Function observer);
    // Called by the work thread; does nothing when no observer is set. Never throws: an
    // observer's exception is dropped.
    static void report(const PassReport& pass) noexcept;
};

}  // namespace agent::spf::legacyservicepublisher
