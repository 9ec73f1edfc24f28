#include "agent/nanomsgtransport/Envelope.h"

#include <cstring>
#include <string>

namespace agent::nanomsgtransport {

namespace {

void putU16(std::uint8_t* out, std::uint16_t v) noexcept {
    out[0] = static_cast<std::uint8_t>(v >> 8);
    out[1] = static_cast<std::uint8_t>(v);
}

void putU32(std::uint8_t* out, std::uint32_t v) noexcept {
    for (int i = 0; i < 4; ++i) {
        out[i] = static_cast<std::uint8_t>(v >> (24 - 8 * i));
    }
}

void putU64(std::uint8_t* out, std::uint64_t v) noexcept {
    for (int i = 0; i < 8; ++i) {
        out[i] = static_cast<std::uint8_t>(v >> (56 - 8 * i));
    }
}

std::uint16_t getU16(const std::uint8_t* in) noexcept {
    return static_cast<std::uint16_t>((in[0] << 8) | in[1]);
}

std::uint32_t getU32(const std::uint8_t* in) noexcept {
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        v = (v << 8) | in[i];
    }
    return v;
}

std::uint64_t getU64(const std::uint8_t* in) noexcept {
    std::uint64_t v = 0;
    for (int i = 0; i < 8; ++i) {
        v = (v << 8) | in[i];
    }
    return v;
}

std::string hex16(std::uint16_t v) {
    static const char digits[] = "0123456789abcdef";
    std::string text = "0x";
    for (int shift = 12; shift >= 0; shift -= 4) {
        text += digits[(v >> shift) & 0xf];
    }
    return text;
}

}  // namespace

void encodeEnvelope(const Envelope& envelope, std::uint8_t* out) noexcept {
    out[0] = Envelope::kVersion;
    out[1] = static_cast<std::uint8_t>(envelope.kind);
    putU16(out + 2, envelope.flags);
    putU32(out + 4, envelope.credit);
    putU64(out + 8, envelope.correlationId);
    std::memcpy(out + 16, envelope.sourceNode.data, 16);
    std::memcpy(out + 32, envelope.sourceAddress.data, 16);
    std::memcpy(out + 48, envelope.destinationAddress.data, 16);
}

Envelope decodeEnvelope(const std::uint8_t* data, std::size_t size) {
    // The version comes first so that a future, longer envelope is reported as such.
    if (size >= 1 && data[0] != Envelope::kVersion) {
        throw EnvelopeError("Frame has envelope version " + std::to_string(data[0]) +
                            "; this exchange speaks version 1");
    }
    if (size < Envelope::kSize) {
        throw EnvelopeError("Frame of " + std::to_string(size) + " bytes is shorter than an envelope");
    }
    const auto kind = data[1];
    if (kind < static_cast<std::uint8_t>(FrameKind::Hello) || kind > static_cast<std::uint8_t>(FrameKind::Farewell)) {
        throw EnvelopeError("Frame has unknown kind " + std::to_string(kind));
    }
    Envelope envelope;
    envelope.kind = static_cast<FrameKind>(kind);
    envelope.flags = getU16(data + 2);
    if ((envelope.flags & ~FrameFlags::all) != 0) {
        throw EnvelopeError("Frame has unknown flags " + hex16(envelope.flags));
    }
    envelope.credit = getU32(data + 4);
    envelope.correlationId = getU64(data + 8);
    std::memcpy(envelope.sourceNode.data, data + 16, 16);
    std::memcpy(envelope.sourceAddress.data, data + 32, 16);
    std::memcpy(envelope.destinationAddress.data, data + 48, 16);
    return envelope;
}

const char* frameKindName(FrameKind kind) noexcept {
    switch (kind) {
        case FrameKind::Hello: return "Hello";
        case FrameKind::Welcome: return "Welcome";
        case FrameKind::Register: return "Register";
        case FrameKind::Registered: return "Registered";
        case FrameKind::Unregister: return "Unregister";
        case FrameKind::Request: return "Request";
        case FrameKind::Reply: return "Reply";
        case FrameKind::Failure: return "Failure";
        case FrameKind::Credit: return "Credit";
        case FrameKind::Goodbye: return "Goodbye";
        case FrameKind::Farewell: return "Farewell";
    }
    return "unknown";
}

}  // namespace agent::nanomsgtransport
