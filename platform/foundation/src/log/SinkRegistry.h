#pragma once

#include "foundation/log/Sink.h"

#include <memory>
#include <mutex>
#include <vector>

namespace foundation::log {

// The process-wide sink list behind addSink/removeSink/dispatch. Never destroyed, so
// objects that log from static destructors still find it.
class SinkRegistry {
public:
    static SinkRegistry& instance();

    void add(std::shared_ptr<sink> s);
    bool remove(const std::shared_ptr<sink>& s);
    std::vector<std::shared_ptr<sink>> snapshot() const;
    // Copies the list under the lock, then calls every sink with no lock held.
    void dispatch(const record& rec) const noexcept;

    const std::shared_ptr<sink>& stderrSink() const noexcept { return stderrSink_; }

private:
    SinkRegistry();

    using SinkList = std::vector<std::shared_ptr<sink>>;

    const std::shared_ptr<sink> stderrSink_;

    mutable std::mutex sinksMutex_;
    // Replaced, never modified in place, so dispatch can use a snapshot without the lock.
    std::shared_ptr<const SinkList> sinks_;
};

}  // namespace foundation::log
