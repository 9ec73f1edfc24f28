#pragma once

// Shared by the directory tests: bounded waits, an exchange on inproc:// with containers
// dialling it, and small builders for directory entries.

#include "agent/AgentTestSupport.h"
#include "support/Barrier.h"
#include "agent/core/container/ServiceContainer.h"
#include "agent/directoryinterfaces/ServiceInstanceInfo.h"
#include "agent/directoryinterfaces/ServiceNotification.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace agent::directory::testing {

// Bounded waits, ids and containers are the agent tests' own.
using namespace agent::testing;

inline directoryinterfaces::ServiceInstanceInfo instance(const std::string& name,
                                                         std::map<std::string, std::string> metadata = {},
                                                         const boost::uuids::uuid& node = {}) {
    directoryinterfaces::ServiceInstanceInfo info;
    info.name = name;
    info.instance = randomId();
    info.metadata = std::move(metadata);
    info.node = node;
    return info;
}

// A stand-in for an exchange without a directory, on inproc://: it welcomes containers,
// confirms their addresses, sees them off, and either drops every request (Silent) or
// refuses each at once (Refusing).
class DirectorylessExchange {
public:
    enum Requests { Silent, Refusing };

    explicit DirectorylessExchange(Requests requests) : url_(inprocUrl()) {
        if (nng_rep0_open_raw(&socket_) != 0 || nng_listen(socket_, url_.c_str(), nullptr, 0) != 0) {
            throw std::runtime_error("DirectorylessExchange cannot listen on " + url_);
        }
        nng_socket_set_ms(socket_, NNG_OPT_RECVTIMEO, 20);
        answering_ = std::thread([this, requests] { answer(requests); });
    }
    ~DirectorylessExchange() {
        stop_ = true;
        answering_.join();
        nng_close(socket_);
    }
    const std::string& url() const { return url_; }

private:
    void answer(Requests requests) {
        using nanomsgtransport::FrameKind;
        while (!stop_) {
            nng_msg* frame = nullptr;
            if (nng_recvmsg(socket_, &frame, 0) != 0) {
                continue;
            }
            auto* body = static_cast<std::uint8_t*>(nng_msg_body(frame));
            auto envelope = nanomsgtransport::decodeEnvelope(body, nng_msg_len(frame));
            const bool refuse = requests == Refusing && envelope.kind == FrameKind::Request;
            const std::map<FrameKind, FrameKind> answers{{FrameKind::Hello, FrameKind::Welcome},
                                                         {FrameKind::Register, FrameKind::Registered},
                                                         {FrameKind::Goodbye, FrameKind::Farewell},
                                                         {FrameKind::Request, FrameKind::Failure}};
            if (answers.count(envelope.kind) == 0 || (envelope.kind == FrameKind::Request && !refuse)) {
                nng_msg_free(frame);
                continue;
            }
            envelope.kind = answers.at(envelope.kind);
            envelope.flags = nanomsgtransport::FrameFlags::fromExchange;
            envelope.destinationAddress = envelope.sourceNode;
            nanomsgtransport::encodeEnvelope(envelope, body);
            nng_msg_chop(frame, nng_msg_len(frame) - nanomsgtransport::Envelope::kSize);
            if (refuse) {
                nng_msg_append(frame, "No directory here", 17);
            }
            // The header still names the sender's pipe.
            if (nng_sendmsg(socket_, frame, 0) != 0) {
                nng_msg_free(frame);
            }
        }
    }

    std::string url_;
    nng_socket socket_{};
    std::atomic<bool> stop_{false};
    std::thread answering_;
};

// "started <name>" or "stopped <name>".
inline std::string describe(const directoryinterfaces::ServiceNotification& n) {
    if (const auto* started = boost::get<directoryinterfaces::ServiceStartedNotification>(&n)) {
        return "started " + started->serviceName;
    }
    return "stopped " + boost::get<directoryinterfaces::ServiceStoppedNotification>(n).serviceName;
}

}  // namespace agent::directory::testing
