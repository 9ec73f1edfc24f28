#include "agent/spf/serialisation/Deserialiser.h"

#include <stdexcept>

namespace agent::spf::serialisation {

core::GenericPayload Deserialiser::operator()(std::istream& in) const {
    if (!function_) {
        throw std::runtime_error("Attempt to invoke an invalid deserialiser - no deserialising function set");
    }
    return function_(in);
}

}  // namespace agent::spf::serialisation
