#include "support/Thrown.h"
#include "agent/nanomsgtransport/Envelope.h"

#include <boost/uuid/random_generator.hpp>

#include <gtest/gtest.h>

#include <vector>

using namespace agent::nanomsgtransport;

namespace {

std::vector<std::uint8_t> encoded(const Envelope& envelope) {
    std::vector<std::uint8_t> bytes(Envelope::kSize);
    encodeEnvelope(envelope, bytes.data());
    return bytes;
}

}  // namespace

TEST(EnvelopeTest, EveryFieldSurvivesARoundTrip) {
    boost::uuids::random_generator generate;
    Envelope envelope;
    envelope.kind = FrameKind::Failure;
    envelope.flags = FrameFlags::fromExchange;
    envelope.credit = 0x01020304;
    envelope.correlationId = 0x1122334455667788ull;
    envelope.sourceNode = generate();
    envelope.sourceAddress = generate();
    envelope.destinationAddress = generate();
    auto bytes = encoded(envelope);
    bytes.push_back(0x42);  // payload follows the envelope
    const auto decoded = decodeEnvelope(bytes.data(), bytes.size());
    EXPECT_EQ(decoded.kind, envelope.kind);
    EXPECT_EQ(decoded.flags, envelope.flags);
    EXPECT_EQ(decoded.credit, envelope.credit);
    EXPECT_EQ(decoded.correlationId, envelope.correlationId);
    EXPECT_EQ(decoded.sourceNode, envelope.sourceNode);
    EXPECT_EQ(decoded.sourceAddress, envelope.sourceAddress);
    EXPECT_EQ(decoded.destinationAddress, envelope.destinationAddress);
    // Big-endian on the wire.
    EXPECT_EQ(bytes[0], Envelope::kVersion);
    EXPECT_EQ(bytes[4], 0x01);
    EXPECT_EQ(bytes[8], 0x11);
}

TEST(EnvelopeTest, MalformedFramesAreRejectedWithTheirReason) {
    const auto valid = encoded(Envelope{});
    auto with = [&](std::size_t index, std::uint8_t value) {
        auto bytes = valid;
        bytes[index] = value;
        return bytes;
    };
    struct Case {
        std::vector<std::uint8_t> frame;
        std::string error;
    };
    const std::vector<Case> cases{
        {{}, "Frame of 0 bytes is shorter than an envelope"},
        {{Envelope::kVersion}, "Frame of 1 bytes is shorter than an envelope"},
        {std::vector<std::uint8_t>(valid.begin(), valid.end() - 1), "Frame of 63 bytes is shorter than an envelope"},
        {{2}, "Frame has envelope version 2; this exchange speaks version 1"},
        {with(0, 0), "Frame has envelope version 0; this exchange speaks version 1"},
        {with(0, 255), "Frame has envelope version 255; this exchange speaks version 1"},
        {with(1, 0), "Frame has unknown kind 0"},
        {with(1, 12), "Frame has unknown kind 12"},
        {with(2, 0x80), "Frame has unknown flags 0x8000"},
        {with(3, 0x02), "Frame has unknown flags 0x0002"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(testsupport::ThrownText<EnvelopeError>([&] { decodeEnvelope(c.frame.data(), c.frame.size()); }),
                  c.error);
    }
}
