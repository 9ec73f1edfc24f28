#include "nanomsgtransport/PipeEventRelay.h"

#include <condition_variable>
#include <mutex>
#include <unordered_map>

namespace agent::nanomsgtransport {

namespace {

struct Entry {
    PipeEventRelay::Handler handler;
    unsigned calls = 0;  // guarded by Registry::entriesMutex
};

struct Registry {
    std::mutex entriesMutex;
    std::condition_variable callReturned;
    std::unordered_map<std::uintptr_t, std::shared_ptr<Entry>> entries;
    std::uintptr_t nextToken = 1;
};

// Never destroyed: nng's threads may deliver an event during static destruction.
Registry& registry() {
    static auto* instance = new Registry;
    return *instance;
}

}  // namespace

PipeEventRelay::~PipeEventRelay() {
    detach();
}

void PipeEventRelay::attach(nng_socket socket, std::initializer_list<nng_pipe_ev> events, Handler handler) {
    detach();
    auto entry = std::make_shared<Entry>();
    entry->handler = std::move(handler);
    auto& shared = registry();
    {
        std::lock_guard<std::mutex> lock(shared.entriesMutex);
        token_ = shared.nextToken++;
        shared.entries.emplace(token_, entry);
    }
    for (nng_pipe_ev event : events) {
        nng_pipe_notify(socket, event, &PipeEventRelay::onPipeEvent, reinterpret_cast<void*>(token_));
    }
}

void PipeEventRelay::detach() noexcept {
    if (token_ == 0) {
        return;
    }
    auto& shared = registry();
    std::unique_lock<std::mutex> lock(shared.entriesMutex);
    auto it = shared.entries.find(token_);
    token_ = 0;
    if (it == shared.entries.end()) {
        return;
    }
    auto entry = it->second;
    shared.entries.erase(it);
    shared.callReturned.wait(lock, [&] { return entry->calls == 0; });
}

void PipeEventRelay::onPipeEvent(nng_pipe pipe, nng_pipe_ev event, void* token) noexcept {
    auto& shared = registry();
    std::shared_ptr<Entry> entry;
    {
        std::lock_guard<std::mutex> lock(shared.entriesMutex);
        auto it = shared.entries.find(reinterpret_cast<std::uintptr_t>(token));
        if (it == shared.entries.end()) {
            return;  // detached: the socket's owner is gone or going
        }
        entry = it->second;
        ++entry->calls;
    }
    try {
        entry->handler(pipe, event);
    } catch (...) {
        // The handler only records the event; losing one beats unwinding into nng.
    }
    {
        std::lock_guard<std::mutex> lock(shared.entriesMutex);
        --entry->calls;
    }
    shared.callReturned.notify_all();
}

}  // namespace agent::nanomsgtransport
