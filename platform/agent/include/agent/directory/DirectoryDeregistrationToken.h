#pragma once

#include <functional>

namespace agent::directory {

// Owns one directory entry: reset() (or the destructor) deregisters it, once. Move-only;
// a moved-from or reset token does nothing. release() gives the entry up without
// deregistering it. Not synchronised: one owner at a time.
class DirectoryDeregistrationToken {
public:
    DirectoryDeregistrationToken() = default;
    explicit DirectoryDeregistrationToken(std::function<void()> deregister) : deregister_(std::move(deregister)) {}
    // Deregisters; a failure is logged, not thrown.
    ~DirectoryDeregistrationToken();
    DirectoryDeregistrationToken(DirectoryDeregistrationToken&& other) noexcept;
    DirectoryDeregistrationToken& operator=(DirectoryDeregistrationToken&& other) noexcept;

    // Deregisters the entry now. Blocks on the directory; throws what the directory
    // client throws (the token is spent either way).
    void reset();
    void release() noexcept { deregister_ = nullptr; }
    explicit operator bool() const noexcept { return static_cast<bool>(deregister_); }

private:
    std::function<void()> deregister_;
};

}  // namespace agent::directory
