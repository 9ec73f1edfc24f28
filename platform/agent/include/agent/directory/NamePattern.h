#pragma once

#include <string>

namespace agent::directory {

// A service-name pattern of the directory. `*` matches any run of characters (also none);
// every other character matches itself, case-sensitively. So "*" matches every name,
// "Key*" every name starting with "Key", a name without `*` only itself, and
// "*Store" or "a*b*c" are matched as globs. There is no escape for a literal `*`.
// A value type; matching never throws.
class NamePattern {
public:
    explicit NamePattern(std::string pattern);

    bool matches(const std::string& name) const noexcept;

    bool matchesEverything() const noexcept { return kind_ == Kind::Everything; }
    // No `*`: only the name itself.
    bool isExact() const noexcept { return kind_ == Kind::Exact; }
    // One trailing `*` only: every name starting with prefix().
    bool isPrefix() const noexcept { return kind_ == Kind::Prefix; }
    // The pattern without its trailing `*` (the whole pattern when exact).
    const std::string& prefix() const noexcept { return prefix_; }
    const std::string& text() const noexcept { return pattern_; }

private:
    enum class Kind { Everything, Exact, Prefix, Glob };
    std::string pattern_;
    std::string prefix_;
    Kind kind_;
};

}  // namespace agent::directory
