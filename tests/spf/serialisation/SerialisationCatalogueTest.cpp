#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include "support/Barrier.h"
#include "support/Thrown.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

using agent::spf::core::GenericPayload;
using namespace agent::spf::serialisation;

namespace cataloguetest {
struct Reading {
    std::string sensor;
    std::vector<double> samples;
};
}  // namespace cataloguetest

template <>
struct agent::spf::serialisation::AvroCodec<cataloguetest::Reading>
    : AvroRecordCodec<cataloguetest::Reading, &cataloguetest::Reading::sensor, &cataloguetest::Reading::samples> {};

namespace {

ByteBuffer drain(Serialiser& serialiser) {
    ByteBuffer out;
    serialiser.drainInto([&out](const std::uint8_t* data, std::size_t size) { out.append(data, size); });
    return out;
}

GenericPayload deserialise(const SerialisationCatalogue& catalogue, std::type_index type, const ByteBuffer& bytes) {
    NonOwningByteBufferViewIStreambuf buffer(bytes);
    std::istream in(&buffer);
    return catalogue.getDeserialiser(avroContentType, type)(in);
}

// Every Avro type crosses the catalogue both ways end to end, and a request part larger than a
// chunk is framed in the publisher's tests; here a user record registered once travels as any
// other type, in chunks of at most 3 bytes.
TEST(SerialisationCatalogueTest, AUserRecordRegisteredOnceTravelsInChunksAndReadsBack) {
    SerialisationCatalogue catalogue;
    registerAvroType<std::vector<cataloguetest::Reading>>(catalogue);
    const std::vector<cataloguetest::Reading> readings{{"t1", {20.5, 21.0}}, {"t2", {}}};
    auto serialisers = createSerialisersFor(GenericPayload::make(readings), catalogue, avroContentType, 3);
    ByteBuffer bytes;
    for (auto chunk = serialisers[0].nextChunk(); chunk.size != 0; chunk = serialisers[0].nextChunk()) {
        EXPECT_LE(chunk.size, 3u);
        bytes.append(chunk.data, chunk.size);
    }
    EXPECT_EQ(avroEncode(readings), bytes);
    const auto back = deserialise(catalogue, typeid(readings), bytes).get<std::vector<cataloguetest::Reading>>(0);
    ASSERT_EQ(2u, back.size());
    EXPECT_EQ(std::vector<double>({20.5, 21.0}), back[0].samples);
}

TEST(SerialisationCatalogueTest, RefusalsAndAnEncodersFailureNameWhatIsWrong) {
    SerialisationCatalogue catalogue;
    registerAvroTypes(catalogue);
    catalogue.registerSerialiser<std::int32_t>("text/decimal", [](const std::int32_t& value, ByteBuffer& out) {
        if (value < 0) throw std::runtime_error("negative values are not written");
        out.append("1", 1);
    });
    GenericPayload args = GenericPayload::make(std::int32_t{1}, std::uint16_t{2});
    auto bad = createSerialisersFor(GenericPayload::make(std::int32_t{-1}), catalogue, "text/decimal");
    std::istringstream in("\x02");
    const std::vector<std::pair<std::function<void()>, std::string>> rows = {
        {[&] { createSerialisersFor(std::move(args), catalogue, avroContentType); },
         "No serialiser registered for content type application/octet-stream+spf/avro and type unsigned short"},
        {[&] { createSerialisersFor(GenericPayload(1), catalogue, avroContentType); }, "GenericPayload empty at index 0"},
        {[&] { catalogue.getDeserialiser(avroContentType, typeid(std::uint16_t))(in); },
         "Attempt to invoke an invalid deserialiser - no deserialising function set"},
        {[&] { bad[0].nextChunk(); }, "negative values are not written"},
    };
    for (const auto& [request, text] : rows) EXPECT_EQ(text, testsupport::ThrownText<std::exception>(request));
    EXPECT_EQ(1, args.get<std::int32_t>(0)) << "a refusal leaves the arguments whole";
    EXPECT_EQ(0u, bad[0].nextChunk().size) << "a failed serialiser has nothing more";
    EXPECT_TRUE(createSerialisersFor(GenericPayload(), catalogue, avroContentType).empty());
    EXPECT_EQ(0u, catalogue.getDeserialiser("any/type", typeid(void))(in).size()) << "void needs no registration";
}

TEST(SerialisationCatalogueTest, LookupsRunWhileOtherThreadsRegister) {
    SerialisationCatalogue catalogue;
    registerAvroTypes(catalogue);
    constexpr int threadCount = 8;
    std::atomic<int> wrong{0};
    testsupport::RunConcurrently(threadCount, [&](int t) {
        for (int i = 0; i < 200; ++i) {
            if (t % 2 == 0) {
                registerAvroTypes(catalogue);
            } else {
                auto serialisers = createSerialisersFor(GenericPayload::make(std::int64_t{i}), catalogue, avroContentType);
                wrong += deserialise(catalogue, typeid(std::int64_t), drain(serialisers[0])).get<std::int64_t>(0) != i;
            }
        }
    });
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
