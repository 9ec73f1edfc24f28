#include "agent/spf/core/APIVersion.h"

namespace agent::spf::core {

std::string APIVersion::toString() const {
    return std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(patch) + '.' +
           std::to_string(extension);
}

}  // namespace agent::spf::core
