#pragma once

// The frame format between containers and the exchange.
//
// Design. The exchange owns one raw REP socket (nng_rep0_open_raw) listening on every
// endpoint; each container owns one raw REQ socket (nng_req0_open_raw) that dials it.
// Raw REP lets the exchange address any connected pipe (the first header word is the
// pipe id) and never blocks its router on a slow container; raw REQ gives containers
// back-pressure towards the exchange and accepts unsolicited frames. We chose this over
// one pair1 socket per container because that needs a listener per container (each
// exposed to the ipc listener bug of nng 1.5.2), a two-step handshake with a window in
// between and many more teardown paths; pair1's polyamorous mode is deprecated and drops
// beyond two queued frames.
//
// Cost (bench/agent/ExchangeBenchmark.cpp, one call in flight, everything in one process
// on a 2-core machine): on inproc:// a round trip through the exchange takes 1.75-2.15x a
// direct pair1 round trip. On ipc:// it takes 2.6-3.1x, because every one of its four
// transits pays nng's raw-socket queue hand-offs: nng's own forwarder between a raw REP
// and a raw REQ socket, with none of our code, already takes 2.2-2.5x, and the exchange
// 1.05-1.3x that. A forwarder on pair1 sockets takes 1.8-2.4x, so the per-container pair1
// design would win back at most about a quarter of an ipc round trip, at the price above.
//
// The price of raw REP is that nng drops silently beyond 64 frames queued for one pipe.
// So nothing leaves the exchange for a container without a credit: a container may have
// at most kCreditWindow frames sent to it and not yet taken by its receive loop. Every
// frame a container sends reports, in `credit`, how many frames it has taken since its
// last report (a Credit frame does only that when it has nothing else to send). The
// exchange queues frames beyond the window per container, up to a backlog limit (default
// kDefaultBacklogLimit frames); past that a request is answered with a failure and any other
// frame is dropped with a logged error. Senders that outrun a healthy container land in the
// backlog; only a container that stops reading reaches the limit.
//
// nng header (protocol space, not part of the envelope): a container puts exactly one
// 32-bit word with the top bit set (kRequestWord) in the header of every frame; the
// exchange sees [pipe id][word] and sends [destination pipe id][word].
//
// Body: a fixed 64-byte envelope, all integers big-endian, then the payload:
//   offset size field
//        0    1 version              kVersion; other versions are rejected
//        1    1 kind                 FrameKind
//        2    2 flags                FrameFlags
//        4    4 credit               frames taken by the sender since its last report
//        8    8 correlation id       chosen by the requester, echoed in the answer
//       16   16 source node          the sending container's node id
//       32   16 source address       requester address / address to (un)register
//       48   16 destination address  where the exchange routes the frame
//       64    … payload              request, reply, or failure text (UTF-8)
//
// Kinds and the exchange's part:
//   Hello      container → exchange: binds the pipe to the source node (the node id is an
//              address replies are routed to); answered with Welcome (same correlation id).
//   Register   address in `source address`; answered with Registered, or Failure if
//              another live container holds it.
//   Unregister address in `source address`; no answer.
//   Request    routed to the owner of `destination address`; the exchange remembers it
//              until answered, and fails it at once if the owner's connection goes.
//              Unknown destination: Failure at once.
//   Reply, Failure  routed to `destination address` (the requester's node id).
//   Credit     only reports `credit`.
//   Goodbye    container → exchange, the last frame a leaving container sends: the exchange
//              forgets it as if its connection had gone (its addresses, the requests it
//              was serving fail) and answers Farewell (same correlation id), the last frame
//              it sends on that connection. Afterwards the container closes its socket
//              knowing nothing is in transit towards it (see TransportCore::closeConnection).
//              exchange → container, when the exchange closes: the last frame it sends on
//              that connection; it routes and answers nothing more. The container hangs
//              up (it closes its dialer: nothing can arrive any more, so that is safe on
//              its side, and the exchange reads the end of the stream, which is safe on
//              ours; see ExchangeRouter.h), fails what it still waits for, and dials again
//              after a short pause. A connection that does not hang up within a short
//              while (a stalled container, or not one of ours) gets a hang-up: an empty
//              message without envelope or request word, which a raw REQ socket takes for
//              garbage and answers by dropping the connection from its receive path.

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace agent::nanomsgtransport {

enum class FrameKind : std::uint8_t {
    Hello = 1,
    Welcome = 2,
    Register = 3,
    Registered = 4,
    Unregister = 5,
    Request = 6,
    Reply = 7,
    Failure = 8,
    Credit = 9,
    Goodbye = 10,
    Farewell = 11,
};

namespace FrameFlags {
constexpr std::uint16_t none = 0;
// Set on frames the exchange itself originates (its failures, Welcome, Registered).
constexpr std::uint16_t fromExchange = 0x0001;
constexpr std::uint16_t all = fromExchange;
}  // namespace FrameFlags

struct Envelope {
    static constexpr std::uint8_t kVersion = 1;
    static constexpr std::size_t kSize = 64;
    static constexpr std::uint32_t kRequestWord = 0x80000000u;
    static constexpr std::uint32_t kCreditWindow = 32;   // below nng's per-pipe queue of 64
    static constexpr std::size_t kDefaultBacklogLimit = 65536;  // frames the exchange holds per container
    static constexpr std::size_t kMaxFrameSize = 64u * 1024u * 1024u;

    FrameKind kind = FrameKind::Request;
    std::uint16_t flags = FrameFlags::none;
    std::uint32_t credit = 0;
    std::uint64_t correlationId = 0;
    boost::uuids::uuid sourceNode{};
    boost::uuids::uuid sourceAddress{};
    boost::uuids::uuid destinationAddress{};
};

// Writes kSize bytes at `out`. Never throws.
void encodeEnvelope(const Envelope& envelope, std::uint8_t* out) noexcept;

// Reads the envelope at the start of a frame body. Throws EnvelopeError with one of:
//   "Frame of N bytes is shorter than an envelope"
//   "Frame has envelope version N; this exchange speaks version 1"
//   "Frame has unknown kind N"
//   "Frame has unknown flags 0xNNNN"
Envelope decodeEnvelope(const std::uint8_t* data, std::size_t size);

class EnvelopeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

const char* frameKindName(FrameKind kind) noexcept;

}  // namespace agent::nanomsgtransport
