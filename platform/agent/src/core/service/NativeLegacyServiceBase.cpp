#include "agent/core/service/NativeLegacyServiceBase.h"

#include "agent/directory/DirectoryServiceClient.h"
#include "directory/DirectoryLogger.h"

#include <stdexcept>

namespace agent::core::service {

using foundation::log::severity::error;

NativeLegacyServiceBase::NativeLegacyServiceBase(std::string name, serviceutils::APIVersion version,
                                                 std::map<std::string, std::string> metadata,
                                                 std::chrono::milliseconds timeout)
    : name_(std::move(name)), version_(version), metadata_(std::move(metadata)), timeout_(timeout) {}

NativeLegacyServiceBase::~NativeLegacyServiceBase() {
    stop();
}

void NativeLegacyServiceBase::addMethod(const std::string& method, transport::RequestHandler handler) {
    if (method.empty() || !handler) {
        throw std::invalid_argument("Method needs a name and a handler");
    }
    std::lock_guard<std::mutex> lock(lifecycleMutex_);
    if (transport_ != nullptr) {
        throw std::logic_error("Methods are added before start");
    }
    handlers_[method] = std::move(handler);
}

bool NativeLegacyServiceBase::start(const StartupConfiguration& configuration) {
    // Logged after the lock is released: log sinks are never called under it.
    std::string failure;
    {
        std::lock_guard<std::mutex> lock(lifecycleMutex_);
        if (transport_ != nullptr) {
            return true;
        }
        failure = startLocked(configuration.context);
    }
    if (!failure.empty()) {
        FOUNDATION_LOG(directory::directoryLogger(), error) << "Service " << name_ << " cannot start: " << failure;
    }
    return failure.empty();
}

std::string NativeLegacyServiceBase::startLocked(const serviceutils::Context& context) {
    if (context.getTransport() == nullptr || !context.isValid()) {
        return "its context has no transport";
    }
    transport_ = context.getTransport();
    instance_ = context.getServiceInstance();
    try {
        directoryinterfaces::ServiceInstanceInfo entry;
        entry.name = name_;
        entry.instance = instance_;
        entry.version = version_;
        entry.metadata = metadata_;
        entry.node = context.getNodeID();
        for (const auto& [method, handler] : handlers_) {
            const transport::Address address(context.generateUUID());
            transport_->registerHandler(address, handler, instance_);
            addresses_.emplace(method, address);
            entry.methods.emplace(method, address);
        }
        directory_ = std::make_unique<directory::DirectoryServiceClient>(context, timeout_);
        directory_->registerServiceInstance(std::move(entry));
        registered_ = true;
        return {};
    } catch (const std::exception& e) {
        withdrawLocked();
        return e.what();
    }
}

void NativeLegacyServiceBase::stop() {
    std::string failure;
    {
        std::lock_guard<std::mutex> lock(lifecycleMutex_);
        failure = withdrawLocked();
    }
    if (!failure.empty()) {
        FOUNDATION_LOG(directory::directoryLogger(), error)
            << "Service " << name_ << " could not leave the directory: " << failure;
    }
}

boost::uuids::uuid NativeLegacyServiceBase::serviceInstance() const {
    std::lock_guard<std::mutex> lock(lifecycleMutex_);
    return instance_;
}

transport::Transport* NativeLegacyServiceBase::getTransport() const {
    std::lock_guard<std::mutex> lock(lifecycleMutex_);
    return transport_;
}

std::string NativeLegacyServiceBase::withdrawLocked() {
    std::string failure;
    if (transport_ == nullptr) {
        return failure;
    }
    if (registered_) {
        try {
            directory_->deregisterServiceInstance(instance_);
        } catch (const std::exception& e) {
            failure = e.what();
        }
        registered_ = false;
    }
    transport_->rejectRequestsFor(instance_);
    for (const auto& [method, address] : addresses_) {
        transport_->unregisterHandler(address);
    }
    addresses_.clear();
    directory_.reset();
    transport_ = nullptr;
    instance_ = {};
    return failure;
}

}  // namespace agent::core::service
