#include "agent/directory/DirectoryDeregistrationToken.h"

#include "directory/DirectoryLogger.h"

#include <exception>

namespace agent::directory {

DirectoryDeregistrationToken::~DirectoryDeregistrationToken() {
    try {
        reset();
    } catch (const std::exception& e) {
        FOUNDATION_LOG(directoryLogger(), foundation::log::severity::error)
            << "Deregistering a directory entry failed: " << e.what();
    }
}

DirectoryDeregistrationToken::DirectoryDeregistrationToken(DirectoryDeregistrationToken&& other) noexcept
    : deregister_(std::move(other.deregister_)) {
    other.deregister_ = nullptr;
}

DirectoryDeregistrationToken& DirectoryDeregistrationToken::operator=(DirectoryDeregistrationToken&& other) noexcept {
    if (this != &other) {
        try {
            reset();
        } catch (const std::exception& e) {
            FOUNDATION_LOG(directoryLogger(), foundation::log::severity::error)
                << "Deregistering a directory entry failed: " << e.what();
        }
        deregister_ = std::move(other.deregister_);
        other.deregister_ = nullptr;
    }
    return *this;
}

void DirectoryDeregistrationToken::reset() {
    auto deregister = std::move(deregister_);
    deregister_ = nullptr;
    if (deregister) {
        deregister();
    }
}

}  // namespace agent::directory
