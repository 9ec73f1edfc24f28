#include "WireFormat.h"

namespace agent::spf::legacyservicewrapper {

WireFormat WireFormat::parse(const std::string& wireFormat) {
    const auto suffix = wireFormat.find(kMultipartSuffix);
    if (suffix == std::string::npos) {
        return WireFormat{wireFormat, false};
    }
    return WireFormat{wireFormat.substr(0, suffix), true};
}

}  // namespace agent::spf::legacyservicewrapper
