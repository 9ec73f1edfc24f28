#include "KeyValueStore.h"

#include <stdexcept>

namespace apps::legacyagent {

void KeyValueStore::put(const std::string& key, std::string value) {
    if (key.empty()) {
        throw std::invalid_argument("Key is empty");
    }
    if (key.size() > kMaxKeySize) {
        throw std::invalid_argument("Key is longer than 1024 bytes");
    }
    if (key.find('\0') != std::string::npos) {
        throw std::invalid_argument("Key holds a NUL byte");
    }
    std::lock_guard<std::mutex> lock(entriesMutex_);
    auto it = entries_.find(key);
    const std::size_t freed = it == entries_.end() ? 0 : key.size() + it->second.size();
    const std::size_t added = key.size() + value.size();
    const bool tooMany = it == entries_.end() && entries_.size() >= kMaxEntries;
    if (tooMany || value.size() > kMaxBytes || bytes_ - freed + added > kMaxBytes) {
        throw std::length_error("The store is full");
    }
    bytes_ = bytes_ - freed + added;
    if (it == entries_.end()) {
        entries_.emplace(key, std::move(value));
    } else {
        it->second = std::move(value);
    }
}

boost::optional<std::string> KeyValueStore::get(const std::string& key) const {
    std::lock_guard<std::mutex> lock(entriesMutex_);
    auto it = entries_.find(key);
    if (it == entries_.end()) {
        return boost::none;
    }
    return it->second;
}

boost::optional<std::string> KeyValueStore::remove(const std::string& key) {
    std::lock_guard<std::mutex> lock(entriesMutex_);
    auto it = entries_.find(key);
    if (it == entries_.end()) {
        return boost::none;
    }
    std::string value = std::move(it->second);
    bytes_ -= key.size() + value.size();
    entries_.erase(it);
    return value;
}

std::vector<std::string> KeyValueStore::keys() const {
    std::lock_guard<std::mutex> lock(entriesMutex_);
    std::vector<std::string> keys;
    keys.reserve(entries_.size());
    for (const auto& [key, value] : entries_) {
        keys.push_back(key);
    }
    return keys;
}

std::size_t KeyValueStore::size() const {
    std::lock_guard<std::mutex> lock(entriesMutex_);
    return entries_.size();
}

}  // namespace apps::legacyagent
