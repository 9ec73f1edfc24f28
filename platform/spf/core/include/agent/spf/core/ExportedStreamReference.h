#pragma once

#include <boost/uuid/uuid.hpp>

namespace agent::spf::core {

// What a legacy service receives in place of an ExportedDataSink or ExportedDataSource
// argument: the transport address (the stream uuid) where the bridge serves the client's
// stream, until the service closes it or the invokable is cleaned up. On the wire (Avro), a
// record of one fixed(16) field. A plain value.
struct ExportedStreamReference {
    boost::uuids::uuid streamUUID{};

    friend bool operator==(const ExportedStreamReference& a, const ExportedStreamReference& b) noexcept {
        return a.streamUUID == b.streamUUID;
    }
    friend bool operator!=(const ExportedStreamReference& a, const ExportedStreamReference& b) noexcept {
        return !(a == b);
    }
};

}  // namespace agent::spf::core
