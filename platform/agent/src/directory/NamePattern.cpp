#include "agent/directory/NamePattern.h"

#include <algorithm>

namespace agent::directory {

NamePattern::NamePattern(std::string pattern) : pattern_(std::move(pattern)) {
    const auto stars = std::count(pattern_.begin(), pattern_.end(), '*');
    if (!pattern_.empty() && std::all_of(pattern_.begin(), pattern_.end(), [](char c) { return c == '*'; })) {
        kind_ = Kind::Everything;
    } else if (stars == 0) {
        kind_ = Kind::Exact;
        prefix_ = pattern_;
    } else if (stars == 1 && pattern_.back() == '*') {
        kind_ = Kind::Prefix;
        prefix_ = pattern_.substr(0, pattern_.size() - 1);
    } else {
        kind_ = Kind::Glob;
    }
}

bool NamePattern::matches(const std::string& name) const noexcept {
    switch (kind_) {
    case Kind::Everything:
        return true;
    case Kind::Exact:
        return name == pattern_;
    case Kind::Prefix:
        return name.compare(0, prefix_.size(), prefix_) == 0;
    case Kind::Glob:
        break;
    }
    // Greedy glob with backtracking to the last `*`: linear in practice, no recursion.
    std::size_t p = 0, n = 0, star = std::string::npos, resume = 0;
    while (n < name.size()) {
        if (p < pattern_.size() && pattern_[p] == '*') {
            star = p++;
            resume = n;
        } else if (p < pattern_.size() && pattern_[p] == name[n]) {
            ++p;
            ++n;
        } else if (star != std::string::npos) {
            p = star + 1;
            n = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern_.size() && pattern_[p] == '*') {
        ++p;
    }
    return p == pattern_.size();
}

}  // namespace agent::directory
