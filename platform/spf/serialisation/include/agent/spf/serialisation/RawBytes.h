#pragma once

#include "agent/spf/serialisation/SerialisationCatalogue.h"

#include <string>

namespace agent::spf::serialisation {

// The content type of services that take and give plain bytes: a value is its bytes as they
// stand, with no length or type of its own, so a message carries one value.
inline const std::string rawContentType = "application/octet-stream";

// Registers, under rawContentType, byte vectors (std::vector<std::uint8_t>) and std::string, both
// ways: written as they are, read as everything the stream holds. Thread-safe like every
// registration.
void registerRawTypes(SerialisationCatalogue& catalogue);

}  // namespace agent::spf::serialisation
