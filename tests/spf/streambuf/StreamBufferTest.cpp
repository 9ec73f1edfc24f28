// What a legacy service's requests do to a client's stream, and what they are refused with.

#include "agent/spf/streambuf/StreamBuffer.h"
#include "agent/spf/streambuf/StreamRequest.h"

#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using agent::core::transport::Message;
using namespace agent::spf::streambuf;
using testsupport::ThrownText;

struct Refusal {
    const char* name;
    bool sink;
    std::vector<Message> before;  // served first, successfully
    Message request;
    const char* text;
};

TEST(StreamBufferTest, EachRequestTheStreamCannotServeIsRefusedWithItsText) {
    const std::uint8_t unknown = 9;
    const std::uint8_t shortRead[] = {2, 0, 1};
    const std::vector<Refusal> refusals = {
        {"empty", true, {}, Message(), "Invalid stream request"},
        {"unknown kind", false, {}, Message(&unknown, 1), "Invalid stream request"},
        {"read without its count", false, {}, Message(shortRead, sizeof shortRead), "Invalid stream request"},
        {"read of a sink", true, {}, makeReadRequest(1), "Data sink cannot be read"},
        {"write to a source", false, {}, makeWriteRequest("x", 1), "Data source cannot be written"},
        {"write after close", true, {makeCloseRequest()}, makeWriteRequest("x", 1), "Exported stream is closed"},
        {"read after close", false, {makeCloseRequest()}, makeReadRequest(1), "Exported stream is closed"},
    };
    for (const auto& refusal : refusals) {
        auto device = refusal.sink ? makeDevice(std::make_shared<std::ostringstream>())
                                   : makeDevice(std::make_shared<std::istringstream>("abc"));
        for (const auto& request : refusal.before) {
            device->serve(request);
        }
        EXPECT_EQ(refusal.text, ThrownText<std::runtime_error>([&] { device->serve(refusal.request); }))
            << refusal.name;
    }
}

// Reads in parts up to the largest, the empty read at the end and closing run end to end (a
// service copying more than one read's worth); a sink whose stream fails says so and stays open.
TEST(StreamBufferTest, ASinkWhoseStreamFailsSaysSoAndStaysOpen) {
    auto stream = std::make_shared<std::ostringstream>();
    auto sink = makeDevice(stream);
    sink->serve(makeWriteRequest("ab", 2));
    EXPECT_EQ("ab", stream->str());
    stream->setstate(std::ios::badbit);
    EXPECT_THROW(sink->serve(makeWriteRequest("c", 1)), std::runtime_error);
    EXPECT_FALSE(sink->isClosed());
}

}  // namespace
