#pragma once

// Shared by the agent tests: bounded waits, containers on a running exchange, a folder for
// ipc:// socket files, and a raw nng peer and a stand-in exchange that speak the frame
// format directly (to misbehave on purpose).

#include "TemporaryFolder.h"
#include "support/ContainerSupport.h"
#include "support/WaitFor.h"

#include "agent/nanomsgtransport/Envelope.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <boost/uuid/uuid_io.hpp>

#include <nng/nng.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace agent::testing {

using namespace std::chrono_literals;
using core::transport::Address;
using core::transport::Message;
using core::transport::ReplyFuture;
using nanomsgtransport::Envelope;
using nanomsgtransport::Exchange;
using nanomsgtransport::FrameKind;
using testsupport::Clock;
using testsupport::deadline;
using testsupport::makeContainer;
using testsupport::outcome;
using testsupport::randomId;

// A unique inproc:// URL per call.
inline std::string inprocUrl() {
    static std::atomic<int> counter{0};
    return "inproc://agent-test-" + std::to_string(counter.fetch_add(1));
}

inline core::transport::Message text(const std::string& s) {
    return core::transport::Message(std::string_view(s));
}

inline core::transport::Message echo(const core::transport::Message& request) {
    return request;
}

// Polls `condition` until it holds or the deadline passes (for state without a signal).
template <class Condition>
bool eventually(Condition condition) {
    return testsupport::WaitFor(condition, 20s);
}

// A raw REQ socket speaking the exchange's frame format by hand.
class RawPeer {
public:
    explicit RawPeer(const std::string& url) : node_(randomId()) {
        if (nng_req0_open_raw(&socket_) != 0 || nng_dial(socket_, url.c_str(), nullptr, 0) != 0) {
            throw std::runtime_error("RawPeer cannot connect to " + url);
        }
        nng_socket_set_ms(socket_, NNG_OPT_RECVTIMEO, 5000);
    }
    ~RawPeer() { nng_close(socket_); }

    // Sends raw body bytes with the request word in the header.
    void sendBody(const std::vector<std::uint8_t>& body) {
        nng_msg* msg = nullptr;
        nng_msg_alloc(&msg, 0);
        nng_msg_append(msg, body.data(), body.size());
        nng_msg_header_append_u32(msg, nanomsgtransport::Envelope::kRequestWord);
        if (nng_sendmsg(socket_, msg, 0) != 0) {
            nng_msg_free(msg);
            throw std::runtime_error("RawPeer cannot send");
        }
    }

    void send(nanomsgtransport::Envelope envelope, const std::string& payload = {}) {
        envelope.sourceNode = node_;
        envelope.credit += unreported_;  // report what we took, as a container does
        unreported_ = 0;
        std::vector<std::uint8_t> body(nanomsgtransport::Envelope::kSize + payload.size());
        nanomsgtransport::encodeEnvelope(envelope, body.data());
        std::memcpy(body.data() + nanomsgtransport::Envelope::kSize, payload.data(), payload.size());
        sendBody(body);
    }

    // The next frame: its envelope and payload; nullopt after the receive timeout.
    std::optional<std::pair<nanomsgtransport::Envelope, std::string>> receive(nng_duration timeoutMs = 5000) {
        nng_socket_set_ms(socket_, NNG_OPT_RECVTIMEO, timeoutMs);
        nng_msg* msg = nullptr;
        if (nng_recvmsg(socket_, &msg, 0) != 0) {
            return std::nullopt;
        }
        const auto* body = static_cast<const std::uint8_t*>(nng_msg_body(msg));
        auto envelope = nanomsgtransport::decodeEnvelope(body, nng_msg_len(msg));
        std::string payload(reinterpret_cast<const char*>(body) + nanomsgtransport::Envelope::kSize,
                            nng_msg_len(msg) - nanomsgtransport::Envelope::kSize);
        nng_msg_free(msg);
        ++unreported_;
        return std::make_pair(envelope, payload);
    }

    // Hello and Register, each confirmed.
    void registerAddress(const boost::uuids::uuid& address) {
        nanomsgtransport::Envelope hello;
        hello.kind = nanomsgtransport::FrameKind::Hello;
        hello.correlationId = 1;
        send(hello);
        expect(nanomsgtransport::FrameKind::Welcome);
        nanomsgtransport::Envelope registration;
        registration.kind = nanomsgtransport::FrameKind::Register;
        registration.correlationId = 2;
        registration.sourceAddress = address;
        send(registration, {});
        expect(nanomsgtransport::FrameKind::Registered);
        nanomsgtransport::Envelope credit;
        credit.kind = nanomsgtransport::FrameKind::Credit;
        send(credit);
    }

private:
    void expect(nanomsgtransport::FrameKind kind) {
        auto frame = receive();
        if (!frame || frame->first.kind != kind) {
            throw std::runtime_error(std::string("RawPeer expected ") + nanomsgtransport::frameKindName(kind));
        }
    }

    nng_socket socket_{};
    boost::uuids::uuid node_;
    std::uint32_t unreported_ = 0;  // frames received and not yet reported as credit
};

// A stand-in for an exchange on `url`. It welcomes containers, confirms their addresses, sees
// them off, and either drops every request (Silent) or refuses each at once (Refusing); a
// Deaf one welcomes the Hello that connect() waits for, then never reads again.
class FakeExchange {
public:
    enum Behaviour { Silent, Refusing, Deaf };

    explicit FakeExchange(Behaviour behaviour, std::string url = inprocUrl()) : url_(std::move(url)) {
        if (nng_rep0_open_raw(&socket_) != 0 || nng_listen(socket_, url_.c_str(), nullptr, 0) != 0) {
            throw std::runtime_error("FakeExchange cannot listen on " + url_);
        }
        nng_socket_set_ms(socket_, NNG_OPT_RECVTIMEO, 20);
        answering_ = std::thread([this, behaviour] { answer(behaviour); });
    }
    ~FakeExchange() {
        stop_ = true;
        answering_.join();
        nng_close(socket_);
    }
    const std::string& url() const { return url_; }

private:
    void answer(Behaviour behaviour) {
        while (!stop_) {
            nng_msg* frame = nullptr;
            if (nng_recvmsg(socket_, &frame, 0) != 0) {
                continue;
            }
            auto* body = static_cast<std::uint8_t*>(nng_msg_body(frame));
            auto envelope = nanomsgtransport::decodeEnvelope(body, nng_msg_len(frame));
            const bool refuse = behaviour == Refusing && envelope.kind == FrameKind::Request;
            const bool connecting = envelope.kind == FrameKind::Hello && envelope.correlationId != 0;
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
            nng_msg_chop(frame, nng_msg_len(frame) - Envelope::kSize);
            if (refuse) {
                nng_msg_append(frame, "No directory here", 17);
            }
            // The header still names the sender's pipe.
            if (nng_sendmsg(socket_, frame, 0) != 0) {
                nng_msg_free(frame);
            }
            if (behaviour == Deaf && connecting) {
                return;
            }
        }
    }

    std::string url_;
    nng_socket socket_{};
    std::atomic<bool> stop_{false};
    std::thread answering_;
};

}  // namespace agent::testing
