#pragma once

#include <boost/optional.hpp>

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace apps::legacyagent {

// The data behind the key-value service. It belongs to the process, not to one service
// instance, so that entering the service into a new directory (after the exchange
// restarted) keeps what clients stored.
//
// Keys are non-empty byte strings without NUL bytes, at most kMaxKeySize long; values are
// any bytes. The store holds at most kMaxEntries entries and kMaxBytes of keys and values
// together, so that no client can exhaust the process's memory.
//
// Thread-safe: every member may be called from any thread (request handlers run on many
// pool threads at once). Nothing blocks beyond a short lock.
class KeyValueStore {
public:
    static constexpr std::size_t kMaxKeySize = 1024;
    static constexpr std::size_t kMaxEntries = 100000;
    static constexpr std::size_t kMaxBytes = 64u << 20;

    // Sets `key` to `value`. Throws std::invalid_argument("Key is empty"),
    // ("Key is longer than 1024 bytes"), ("Key holds a NUL byte"), and
    // std::length_error("The store is full") when the entry would pass a limit (the store
    // is then unchanged).
    void put(const std::string& key, std::string value);
    // none for an unknown key.
    boost::optional<std::string> get(const std::string& key) const;
    // The value the key had; none for an unknown key.
    boost::optional<std::string> remove(const std::string& key);
    // Every key, sorted bytewise.
    std::vector<std::string> keys() const;
    std::size_t size() const;

private:
    mutable std::mutex entriesMutex_;
    std::map<std::string, std::string> entries_;
    std::size_t bytes_ = 0;  // keys and values in entries_
};

}  // namespace apps::legacyagent
