#include "agent/directory/DirectoryServiceClient.h"

#include "directory/DirectoryLogger.h"
#include "directory/DirectoryProtocol.h"

#include "foundation/concurrent/threadpool/ConcurrencyLimitedExecutor.h"

#include <atomic>
#include <stdexcept>

namespace agent::directory {

using core::transport::Address;
using core::transport::Message;
using directoryinterfaces::ServiceNotification;
using foundation::log::severity::error;

DirectoryCallback makeCallbackFunction(
    std::function<void(const directoryinterfaces::ServiceStartedNotification&)> started,
    std::function<void(const directoryinterfaces::ServiceStoppedNotification&)> stopped) {
    return [started = std::move(started), stopped = std::move(stopped)](const ServiceNotification& n) {
        if (const auto* s = boost::get<directoryinterfaces::ServiceStartedNotification>(&n)) {
            if (started) {
                started(*s);
            }
        } else if (stopped) {
            stopped(boost::get<directoryinterfaces::ServiceStoppedNotification>(n));
        }
    };
}

namespace {

// The reply of the expected kind, or std::runtime_error for anything else.
template <class Expected>
Expected expect(const Message& message) {
    try {
        auto reply = protocol::decodeReply(message);
        if (auto* expected = boost::get<Expected>(&reply)) {
            return std::move(*expected);
        }
        throw protocol::DirectoryProtocolError("Directory message is a reply of another kind");
    } catch (const protocol::DirectoryProtocolError& e) {
        throw std::runtime_error(std::string("Directory service sent a malformed reply: ") + e.what());
    }
}

}  // namespace

// One subscription's receiving end: puts notifications back in the directory's order
// (the pool may run two handler calls at once) and hands them, in that order, to a
// serial executor on the context's pool.
class DirectoryServiceClient::Subscription {
public:
    Subscription(DirectoryCallback callback, foundation::concurrent::threadpool::ThreadPool& pool,
                 const Address& address)
        : address(address), delivery_(std::make_shared<Delivery>(std::move(callback))), serial_(pool, 1) {}

    const Address address;

    void receive(protocol::NotificationMessage n) {
        std::lock_guard<std::mutex> lock(orderMutex_);
        if (n.sequence < next_ || early_.size() >= kMaxEarly) {
            FOUNDATION_LOG(directoryLogger(), error)
                << "Dropped a directory notification out of sequence (" << n.sequence << ")";
            return;
        }
        early_.emplace(n.sequence, std::move(n.notification));
        // Posting under the lock keeps the order; postWork never blocks or calls back.
        for (auto it = early_.find(next_); it != early_.end(); it = early_.find(next_)) {
            serial_.postWork([delivery = delivery_, notification = std::move(it->second)] {
                delivery->deliver(notification);
            });
            early_.erase(it);
            ++next_;
        }
    }

    // No callback starts after this; once it returns, none runs either, unless this runs
    // inside one (which then finishes after it). A notification still on its way is dropped
    // when it arrives.
    void end() {
        delivery_->ended.store(true);
        if (Delivery::current != delivery_.get()) {
            serial_.wait();
        }
    }

private:
    // What the queued deliveries use; shared with them, so that a subscription ended and
    // released from inside its own callback leaves nothing dangling behind it.
    struct Delivery {
        explicit Delivery(DirectoryCallback callback) : callback(std::move(callback)) {}

        void deliver(const ServiceNotification& notification) {
            if (ended.load()) {
                return;
            }
            const auto* outer = current;
            current = this;
            try {
                callback(notification);
            } catch (...) {
                current = outer;
                throw;
            }
            current = outer;
        }

        const DirectoryCallback callback;
        std::atomic<bool> ended{false};
        // The delivery whose callback the current thread runs, if any.
        static thread_local const Delivery* current;
    };

    // Beyond this many notifications ahead of a missing one, the subscriber is hopelessly
    // behind; dropping bounds the memory a lost notification can cost.
    static constexpr std::size_t kMaxEarly = 65536;

    const std::shared_ptr<Delivery> delivery_;

    std::mutex orderMutex_;
    std::uint64_t next_ = 1;
    std::map<std::uint64_t, ServiceNotification> early_;

    foundation::concurrent::threadpool::ConcurrencyLimitedExecutor serial_;
};

thread_local const DirectoryServiceClient::Subscription::Delivery*
    DirectoryServiceClient::Subscription::Delivery::current = nullptr;

DirectoryServiceClient::DirectoryServiceClient(const core::serviceutils::Context& context,
                                               const boost::optional<std::chrono::milliseconds>& timeout,
                                               std::shared_ptr<const void> owner)
    : owner_(std::move(owner)), context_(context), timeout_(timeout) {
    if (context_.getTransport() == nullptr || context_.getPool() == nullptr) {
        throw std::invalid_argument("DirectoryServiceClient needs a context with a transport");
    }
}

DirectoryServiceClient::~DirectoryServiceClient() {
    decltype(subscriptions_) open;
    {
        std::lock_guard<std::mutex> lock(subscriptionsMutex_);
        open.swap(subscriptions_);
    }
    for (const auto& [id, subscription] : open) {
        context_.getTransport()->unregisterHandler(subscription->address);
        try {
            call(protocol::encode(protocol::Request(protocol::UnsubscribeRequest{id})));
        } catch (const std::exception& e) {
            FOUNDATION_LOG(directoryLogger(), error) << "Ending a directory subscription failed: " << e.what();
        }
        subscription->end();
    }
}

boost::uuids::uuid DirectoryServiceClient::registerForCallbacks(
    const DirectoryCallback& callback, CallbackMode mode, const boost::optional<std::string>& serviceName,
    const boost::optional<std::map<std::string, std::string>>& metadata) {
    if (!callback) {
        throw std::invalid_argument("Directory callback is empty");
    }
    const Address address(context_.generateUUID());
    auto subscription = std::make_shared<Subscription>(callback, *context_.getPool(), address);
    auto* transport = context_.getTransport();
    transport->registerHandler(
        address,
        [subscription](const Message& request) {
            try {
                subscription->receive(protocol::decodeNotification(request));
            } catch (const protocol::DirectoryProtocolError& e) {
                FOUNDATION_LOG(directoryLogger(), error) << "Refused a directory notification: " << e.what();
                throw;
            }
            return Message();
        },
        context_.getServiceInstance());

    protocol::SubscribeRequest request;
    request.callback = address;
    request.node = context_.getNodeID();
    request.retrospectively = mode == Retrospectively;
    request.serviceName = serviceName;
    request.metadata = metadata;
    boost::uuids::uuid id;
    try {
        id = expect<protocol::SubscribedReply>(call(protocol::encode(protocol::Request(request)))).subscription;
    } catch (...) {
        transport->unregisterHandler(address);
        throw;
    }
    std::lock_guard<std::mutex> lock(subscriptionsMutex_);
    subscriptions_.emplace(id, subscription);
    return id;
}

bool DirectoryServiceClient::deregisterFromCallbacks(const boost::uuids::uuid& id) {
    std::shared_ptr<Subscription> subscription;
    {
        std::lock_guard<std::mutex> lock(subscriptionsMutex_);
        auto it = subscriptions_.find(id);
        if (it == subscriptions_.end()) {
            return false;
        }
        subscription = std::move(it->second);
        subscriptions_.erase(it);
    }
    // Stop listening first: whatever the directory says, nothing more reaches the callback.
    context_.getTransport()->unregisterHandler(subscription->address);
    subscription->end();
    call(protocol::encode(protocol::Request(protocol::UnsubscribeRequest{id})));
    return true;
}

std::vector<boost::uuids::uuid> DirectoryServiceClient::queryDirectoryForServiceUUIDs(
    const std::string& pattern) const {
    protocol::QueryRequest request{pattern, boost::none};
    return expect<protocol::UuidsReply>(call(protocol::encode(protocol::Request(request)))).instances;
}

std::vector<boost::uuids::uuid> DirectoryServiceClient::queryDirectoryForServicesMatchingMetadata(
    const std::string& pattern, const std::map<std::string, std::string>& metadata) const {
    protocol::QueryRequest request{pattern, metadata};
    return expect<protocol::UuidsReply>(call(protocol::encode(protocol::Request(request)))).instances;
}

core::serviceutils::ServiceStub DirectoryServiceClient::lookupServiceInstance(
    const boost::uuids::uuid& instance, const core::serviceutils::APIVersion& version) const {
    protocol::LookupRequest request{instance, version};
    auto found = expect<protocol::FoundReply>(call(protocol::encode(protocol::Request(request)))).instance;
    if (!found) {
        return {};
    }
    return core::serviceutils::ServiceStub(std::move(*found), context_.getTransport(), timeout_);
}

void DirectoryServiceClient::registerServiceInstance(directoryinterfaces::ServiceInstanceInfo instance) {
    if (instance.node.is_nil()) {
        instance.node = context_.getNodeID();
    }
    protocol::RegisterRequest request{std::move(instance)};
    expect<protocol::DoneReply>(call(protocol::encode(protocol::Request(std::move(request)))));
}

bool DirectoryServiceClient::deregisterServiceInstance(const boost::uuids::uuid& instance) {
    protocol::DeregisterRequest request{instance};
    return expect<protocol::DoneReply>(call(protocol::encode(protocol::Request(request)))).changed;
}

DirectoryDeregistrationToken DirectoryServiceClient::getDeregistrationToken(const boost::uuids::uuid& instance) {
    return DirectoryDeregistrationToken([this, instance] { deregisterServiceInstance(instance); });
}

Message DirectoryServiceClient::call(const Message& request) const {
    auto reply = context_.getTransport()->sendRequest(
        core::transport::getWellKnowAddressFor(core::transport::WellKnownAddressName::Directory), request, timeout_);
    try {
        return reply.get();
    } catch (const std::exception& e) {
        throw std::runtime_error(std::string("Directory service request failed: ") + e.what());
    }
}

}  // namespace agent::directory
