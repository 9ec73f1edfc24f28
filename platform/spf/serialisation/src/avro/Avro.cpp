#include "agent/spf/serialisation/avro/Avro.h"

#include "BuiltInAvroTypes.h"

#include <array>
#include <type_traits>

namespace agent::spf::serialisation {

namespace detail {

void checkAvroInputConsumed(const AvroDecoder& decoder) {
    if (decoder.remaining() != 0) {
        throw std::runtime_error("Avro value followed by " + std::to_string(decoder.remaining()) +
                                 " unexpected bytes");
    }
}

void withAvroInput(std::istream& in, const std::function<void(const std::uint8_t*, std::size_t)>& decode) {
    if (auto* view = dynamic_cast<NonOwningByteBufferViewIStreambuf*>(in.rdbuf())) {
        decode(view->current(), view->remaining());
        view->consume(view->remaining());
        return;
    }
    // Any other stream is read in pieces, so memory grows only with the bytes that arrive.
    std::vector<std::uint8_t> bytes;
    std::array<char, 16 * 1024> piece{};
    while (in.read(piece.data(), piece.size()) || in.gcount() > 0) {
        bytes.insert(bytes.end(), piece.data(), piece.data() + in.gcount());
    }
    decode(bytes.data(), bytes.size());
}

}  // namespace detail

void registerAvroTypes(SerialisationCatalogue& catalogue) {
    detail::forEachBuiltInAvroType([&catalogue](auto* type) {
        registerAvroType<std::remove_pointer_t<decltype(type)>>(catalogue);
    });
}

}  // namespace agent::spf::serialisation
