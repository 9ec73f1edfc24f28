#include "agent/spf/serialisation/RawBytes.h"

#include <cstdint>
#include <iterator>
#include <vector>

namespace agent::spf::serialisation {

namespace {

template <class Bytes>
void registerRaw(SerialisationCatalogue& catalogue) {
    catalogue.registerSerialiser<Bytes>(rawContentType,
                                        [](const Bytes& value, ByteBuffer& out) { out.append(value.data(), value.size()); });
    catalogue.registerDeserialiser<Bytes>(rawContentType, [](std::istream& in) {
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    });
}

}  // namespace

void registerRawTypes(SerialisationCatalogue& catalogue) {
    registerRaw<std::vector<std::uint8_t>>(catalogue);
    registerRaw<std::string>(catalogue);
}

}  // namespace agent::spf::serialisation
