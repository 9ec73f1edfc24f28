#include "agent/directory/DirectoryServiceHost.h"

#include "directory/DirectoryLogger.h"
#include "directory/DirectoryProtocol.h"

#include <boost/uuid/uuid_io.hpp>

#include <deque>
#include <mutex>
#include <stdexcept>

namespace agent::directory {

using core::transport::Address;
using core::transport::Message;
using core::transport::ReplyFuture;
using foundation::log::severity::error;

namespace {

// A subscriber that does not take a notification within this is counted as gone.
constexpr std::chrono::milliseconds kNotificationTimeout{5000};

}  // namespace

// Sends notifications for every subscription of the host and keeps their replies until
// they arrive, so that stop can wait for the last ones. Shared with the sinks the
// directory holds, which may outlive the host.
class DirectoryServiceHost::Sender {
public:
    explicit Sender(core::transport::Transport& transport) : transport_(transport) {}

    void send(const Address& callback, const protocol::NotificationMessage& notification) {
        std::lock_guard<std::mutex> lock(inFlightMutex_);
        if (closed_) {
            return;
        }
        // Sending under the lock keeps close() from returning while a send is under way;
        // sendRequest does not call back.
        inFlight_.push_back(transport_.sendRequest(callback, protocol::encode(notification), kNotificationTimeout));
        while (!inFlight_.empty() &&
               inFlight_.front().wait_until(std::chrono::steady_clock::now()) == std::future_status::ready) {
            inFlight_.pop_front();
        }
    }

    // Waits for the replies in flight until `deadline`, then sends nothing more.
    void close(std::chrono::steady_clock::time_point deadline) {
        std::deque<ReplyFuture> waiting;
        {
            std::lock_guard<std::mutex> lock(inFlightMutex_);
            closed_ = true;
            waiting.swap(inFlight_);
        }
        for (auto& reply : waiting) {
            reply.wait_until(deadline);
        }
    }

private:
    core::transport::Transport& transport_;

    std::mutex inFlightMutex_;
    std::deque<ReplyFuture> inFlight_;
    bool closed_ = false;
};

DirectoryServiceHost::DirectoryServiceHost(std::shared_ptr<DirectoryCore> directory,
                                           core::transport::Transport& transport)
    : directory_(std::move(directory)), transport_(transport), sender_(std::make_shared<Sender>(transport)) {
    if (!directory_) {
        throw std::invalid_argument("DirectoryServiceHost needs a directory");
    }
}

DirectoryServiceHost::~DirectoryServiceHost() {
    stop();
}

void DirectoryServiceHost::start() {
    const auto address = core::transport::getWellKnowAddressFor(core::transport::WellKnownAddressName::Directory);
    // The handler holds what it uses, not the host: a request already handed to it may
    // still run after stop has unregistered it.
    transport_.registerHandler(
        address,
        [directory = directory_, sender = sender_](const Message& request) {
            return handle(*directory, sender, request);
        },
        address.getUUID());
}

std::vector<directoryinterfaces::ServiceInstanceInfo> DirectoryServiceHost::nodeGone(const boost::uuids::uuid& node) {
    return directory_->deregisterNode(node);
}

void DirectoryServiceHost::stop(std::chrono::milliseconds flushTimeout) {
    const auto deadline = std::chrono::steady_clock::now() + flushTimeout;
    try {
        directory_->shutDown();
        sender_->close(deadline);
        transport_.unregisterHandler(core::transport::getWellKnowAddressFor(
            core::transport::WellKnownAddressName::Directory));
    } catch (const std::exception& e) {
        FOUNDATION_LOG(directoryLogger(), error) << "Stopping the directory service failed: " << e.what();
    }
}

Message DirectoryServiceHost::handle(DirectoryCore& directory, const std::shared_ptr<Sender>& sender,
                                     const Message& message) {
    protocol::Request request;
    try {
        request = protocol::decodeRequest(message);
    } catch (const protocol::DirectoryProtocolError& e) {
        FOUNDATION_LOG(directoryLogger(), error) << "Refused a directory request: " << e.what();
        throw;
    }
    if (auto* r = boost::get<protocol::RegisterRequest>(&request)) {
        directory.registerInstance(std::move(r->instance));
        return protocol::encode(protocol::Reply(protocol::DoneReply{true}));
    }
    if (auto* r = boost::get<protocol::DeregisterRequest>(&request)) {
        return protocol::encode(protocol::Reply(protocol::DoneReply{directory.deregisterInstance(r->instance)}));
    }
    if (auto* r = boost::get<protocol::QueryRequest>(&request)) {
        auto found = r->metadata ? directory.queryByMetadata(r->pattern, *r->metadata)
                                 : directory.queryByName(r->pattern);
        return protocol::encode(protocol::Reply(protocol::UuidsReply{std::move(found)}));
    }
    if (auto* r = boost::get<protocol::LookupRequest>(&request)) {
        return protocol::encode(protocol::Reply(protocol::FoundReply{directory.lookup(r->instance, r->version)}));
    }
    if (auto* r = boost::get<protocol::SubscribeRequest>(&request)) {
        if (!r->callback.isValid()) {
            throw std::invalid_argument("Subscription needs a callback address");
        }
        std::weak_ptr<Sender> weakSender = sender;
        const Address callback = r->callback;
        auto subscription = directory.subscribe(
            DirectoryCore::Filter{r->serviceName, r->metadata}, r->retrospectively,
            [weakSender, callback](const boost::uuids::uuid& id, const directoryinterfaces::ServiceNotification& n,
                               std::uint64_t sequence) {
                if (auto live = weakSender.lock()) {
                    live->send(callback, protocol::NotificationMessage{id, sequence, n});
                }
            },
            r->node);
        return protocol::encode(protocol::Reply(protocol::SubscribedReply{subscription}));
    }
    const auto& r = boost::get<protocol::UnsubscribeRequest>(request);
    return protocol::encode(protocol::Reply(protocol::DoneReply{directory.unsubscribe(r.subscription)}));
}

}  // namespace agent::directory
