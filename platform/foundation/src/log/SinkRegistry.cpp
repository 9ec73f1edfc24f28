#include "log/SinkRegistry.h"

#include "foundation/log/StderrSink.h"

#include <algorithm>
#include <utility>

namespace foundation::log {

SinkRegistry& SinkRegistry::instance() {
    // Leaked on purpose: loggers may run during static destruction.
    static SinkRegistry* const registry = new SinkRegistry();
    return *registry;
}

SinkRegistry::SinkRegistry()
    : stderrSink_(std::make_shared<stderr_sink>()),
      sinks_(std::make_shared<const SinkList>(SinkList{stderrSink_})) {}

void SinkRegistry::add(std::shared_ptr<sink> s) {
    if (!s) {
        return;
    }
    std::lock_guard<std::mutex> lock(sinksMutex_);
    if (std::find(sinks_->begin(), sinks_->end(), s) != sinks_->end()) {
        return;
    }
    auto next = std::make_shared<SinkList>(*sinks_);
    next->push_back(std::move(s));
    sinks_ = std::move(next);
}

bool SinkRegistry::remove(const std::shared_ptr<sink>& s) {
    std::shared_ptr<const SinkList> previous;  // released after the lock
    std::lock_guard<std::mutex> lock(sinksMutex_);
    auto found = std::find(sinks_->begin(), sinks_->end(), s);
    if (found == sinks_->end()) {
        return false;
    }
    auto next = std::make_shared<SinkList>(*sinks_);
    next->erase(next->begin() + (found - sinks_->begin()));
    previous = std::exchange(sinks_, std::move(next));
    return true;
}

std::vector<std::shared_ptr<sink>> SinkRegistry::snapshot() const {
    std::lock_guard<std::mutex> lock(sinksMutex_);
    return *sinks_;
}

void SinkRegistry::dispatch(const record& rec) const noexcept {
    std::shared_ptr<const SinkList> sinks;
    {
        std::lock_guard<std::mutex> lock(sinksMutex_);
        sinks = sinks_;
    }
    for (const auto& s : *sinks) {
        try {
            s->consume(rec);
        } catch (...) {
            // A failing sink must not fail the code that logs, nor starve the other sinks.
        }
    }
}

void addSink(std::shared_ptr<sink> s) { SinkRegistry::instance().add(std::move(s)); }

bool removeSink(const std::shared_ptr<sink>& s) { return SinkRegistry::instance().remove(s); }

std::vector<std::shared_ptr<sink>> installedSinks() { return SinkRegistry::instance().snapshot(); }

std::shared_ptr<sink> defaultStderrSink() { return SinkRegistry::instance().stderrSink(); }

void dispatch(const record& rec) noexcept { SinkRegistry::instance().dispatch(rec); }

}  // namespace foundation::log
