#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

using agent::spf::core::GenericPayload;
using namespace agent::spf::serialisation;

TEST(SerialisationCatalogueTest, AvroValuesRoundTripThroughSerialisersAndDeserialisers) {
    SerialisationCatalogue catalogue;
    registerAvroTypes(catalogue);
    std::vector<Serialiser> serialisers = createSerialisersFor(
        GenericPayload::make(std::int32_t{-3}, std::string("abc"), std::vector<double>{1.5}), catalogue,
        avroContentType, 2);
    ASSERT_EQ(serialisers.size(), 3u);
    std::vector<ByteBuffer> parts(3);
    for (std::size_t i = 0; i < 3; ++i) {
        serialisers[i].drainInto([&](const std::uint8_t* data, std::size_t size) {
            EXPECT_LE(size, 2u);
            parts[i].append(data, size);
        });
    }
    EXPECT_EQ(parts[0].bytes(), (std::vector<std::uint8_t>{0x05}));
    NonOwningByteBufferViewIStreambuf buffer(parts[1]);
    std::istream in(&buffer);
    GenericPayload text = catalogue.getDeserialiser(avroContentType, typeid(std::string))(in);
    EXPECT_EQ(text.get<std::string>(0), "abc");
}
