#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include "support/Barrier.h"

#include <cppmicroservices/ServiceInterface.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using agent::spf::core::GenericPayload;
using namespace agent::spf::serialisation;

namespace cataloguetest {
struct Reading {
    std::string sensor;
    std::vector<double> samples;
    bool operator==(const Reading& other) const { return sensor == other.sensor && samples == other.samples; }
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

template <class F>
std::string failureOf(F&& f) {
    try {
        f();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "no failure";
}

}  // namespace

TEST(SerialisationCatalogueTest, TheCatalogueIsFoundUnderItsServiceName) {
    EXPECT_EQ(us_service_interface_iid<SerialisationCatalogue>(), "agent::spf::serialisation::SerialisationCatalogue");
}

TEST(SerialisationCatalogueTest, EachArgumentRoundTripsThroughItsSerialiserAndTheDeserialiserOfItsType) {
    SerialisationCatalogue catalogue;
    registerAvroTypes(catalogue);
    const auto id = boost::uuids::uuid{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
    GenericPayload args = GenericPayload::make(std::int32_t{-3}, std::string("abc"), std::vector<double>{1.5, 2.5},
                                               std::map<std::string, std::string>{{"k", "v"}},
                                               std::optional<std::int64_t>{}, id);
    const GenericPayload expected = args;
    std::vector<Serialiser> serialisers = createSerialisersFor(std::move(args), catalogue, avroContentType, 3);
    ASSERT_EQ(serialisers.size(), expected.size());
    for (std::size_t i = 0; i < serialisers.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(serialisers[i].valueType(), expected.typeAt(i));
        ByteBuffer bytes;
        for (auto chunk = serialisers[i].nextChunk(); chunk.size != 0; chunk = serialisers[i].nextChunk()) {
            EXPECT_LE(chunk.size, 3u);
            bytes.append(chunk.data, chunk.size);
        }
        GenericPayload back = deserialise(catalogue, expected.typeAt(i), bytes);
        ASSERT_EQ(back.size(), 1u);
        EXPECT_EQ(back.typeAt(0), expected.typeAt(i));
        // The value read back writes the same bytes again.
        auto again = createSerialisersFor(std::move(back), catalogue, avroContentType);
        EXPECT_EQ(drain(again[0]), bytes);
    }
    EXPECT_EQ(drain(serialisers[0]).size(), 0u);  // everything was handed out already
}

TEST(SerialisationCatalogueTest, AUserRecordRegisteredOnceTravelsAsAnyOtherType) {
    SerialisationCatalogue catalogue;
    registerAvroType<cataloguetest::Reading>(catalogue);
    registerAvroType<std::vector<cataloguetest::Reading>>(catalogue);
    const std::vector<cataloguetest::Reading> readings{{"t1", {20.5, 21.0}}, {"t2", {}}};
    std::vector<Serialiser> serialisers =
        createSerialisersFor(GenericPayload::make(readings), catalogue, avroContentType);
    ASSERT_EQ(serialisers.size(), 1u);
    const ByteBuffer bytes = drain(serialisers[0]);
    EXPECT_EQ(bytes, avroEncode(readings));
    EXPECT_EQ(deserialise(catalogue, typeid(readings), bytes).get<std::vector<cataloguetest::Reading>>(0), readings);
}

TEST(SerialisationCatalogueTest, RefusalsNameWhatIsMissing) {
    SerialisationCatalogue catalogue;
    registerAvroTypes(catalogue);
    GenericPayload args = GenericPayload::make(std::int32_t{1}, std::uint16_t{2});
    EXPECT_EQ(failureOf([&] { createSerialisersFor(std::move(args), catalogue, avroContentType); }),
              "No serialiser registered for content type application/octet-stream+spf/avro and type unsigned short");
    EXPECT_EQ(args.get<std::int32_t>(0), 1);  // a refusal leaves the arguments whole
    EXPECT_EQ(failureOf([&] { createSerialisersFor(GenericPayload::make(1.0), catalogue, "text/plain"); }),
              "No serialiser registered for content type text/plain and type double");
    GenericPayload withHole(1);
    EXPECT_EQ(failureOf([&] { createSerialisersFor(std::move(withHole), catalogue, avroContentType); }),
              "GenericPayload empty at index 0");
    EXPECT_TRUE(createSerialisersFor(GenericPayload(), catalogue, avroContentType).empty());

    const Deserialiser unknown = catalogue.getDeserialiser(avroContentType, typeid(std::uint16_t));
    EXPECT_FALSE(unknown.isValid());
    std::istringstream in("\x02");
    EXPECT_EQ(failureOf([&] { unknown(in); }),
              "Attempt to invoke an invalid deserialiser - no deserialising function set");
}

TEST(SerialisationCatalogueTest, AVoidResultNeedsNoRegistrationAndReadsNothing) {
    SerialisationCatalogue catalogue;
    std::istringstream in("anything");
    const Deserialiser none = catalogue.getDeserialiser("any/type", typeid(void));
    ASSERT_TRUE(none.isValid());
    EXPECT_EQ(none(in).size(), 0u);
    EXPECT_TRUE(catalogue.hasDeserialiser("any/type", typeid(void)));
}

TEST(SerialisationCatalogueTest, OwnContentTypesAndEncoderFailuresAreHonoured) {
    SerialisationCatalogue catalogue;
    catalogue.registerSerialiser<std::int32_t>("text/decimal", [](const std::int32_t& value, ByteBuffer& out) {
        if (value < 0) throw std::runtime_error("negative values are not written");
        const std::string text = std::to_string(value);
        out.append(text.data(), text.size());
    });
    catalogue.registerDeserialiser<std::int32_t>("text/decimal", [](std::istream& in) {
        std::int32_t value = 0;
        in >> value;
        return value;
    });
    EXPECT_EQ(catalogue.contentTypes(), std::vector<std::string>{"text/decimal"});
    auto good = createSerialisersFor(GenericPayload::make(std::int32_t{1234}), catalogue, "text/decimal", 1);
    EXPECT_EQ(drain(good[0]).size(), 4u);
    auto bad = createSerialisersFor(GenericPayload::make(std::int32_t{-1}), catalogue, "text/decimal");
    EXPECT_EQ(failureOf([&] { bad[0].nextChunk(); }), "negative values are not written");
    EXPECT_EQ(bad[0].nextChunk().size, 0u);
    std::istringstream in("77");
    EXPECT_EQ(catalogue.getDeserialiser("text/decimal", typeid(std::int32_t))(in).get<std::int32_t>(0), 77);
}

TEST(SerialisationCatalogueTest, LookupsRunWhileOtherThreadsRegister) {
    SerialisationCatalogue catalogue;
    registerAvroTypes(catalogue);
    constexpr int threadCount = 8;
    testsupport::Barrier start(threadCount);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            start.ArriveAndWait();
            for (int i = 0; i < 200; ++i) {
                if (t % 2 == 0) {
                    registerAvroTypes(catalogue);
                } else {
                    auto serialisers = createSerialisersFor(GenericPayload::make(std::int64_t{i}), catalogue,
                                                            avroContentType);
                    const ByteBuffer bytes = drain(serialisers[0]);
                    if (deserialise(catalogue, typeid(std::int64_t), bytes).get<std::int64_t>(0) != i) ++wrong;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}
