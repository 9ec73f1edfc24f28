#pragma once

#include <string>

namespace agent::spf::legacyservicewrapper {

// How a service's values travel: the content type that selects serialisers in the
// catalogue, and whether each value is framed as a part of its own.
struct WireFormat {
    static constexpr const char* kMetadataKey = "spf.wireFormat";
    static constexpr const char* kDefault = "application/octet-stream+spf/avro+spf/multipart";
    static constexpr const char* kMultipartSuffix = "+spf/multipart";

    // The text before the first "+spf/multipart" (which makes the framing multipart;
    // anything after the suffix is dropped), or the whole text (single framing): the same
    // reading callers apply to the service's directory entry.
    static WireFormat parse(const std::string& wireFormat);

    std::string contentType;
    bool multipart = true;
};

}  // namespace agent::spf::legacyservicewrapper
