#pragma once

#include <boost/uuid/uuid.hpp>

namespace agent::spf::core {

// The method uuid under which a legacy service offers to hear that a client removed a callback
// it had passed: the bridge sends the callback uuid there. A service without a method of this
// name in its directory entry is simply not told.
inline constexpr const char* kCallbackRemovalMethodUUID = "7ce1dbaf-c044-46ec-b423-fbf560ad4cc5";

// What a legacy service receives in place of an ExportedCallback argument: where the bridge
// serves the callback's invocations (the callback uuid, as a transport address) and where it
// serves the service's removal of it. On the wire (Avro), a record of two fixed(16) fields in
// this order. A plain value.
struct ExportedCallbackReference {
    boost::uuids::uuid callbackUUID{};
    boost::uuids::uuid removalMethodAddress{};

    friend bool operator==(const ExportedCallbackReference& a, const ExportedCallbackReference& b) noexcept {
        return a.callbackUUID == b.callbackUUID && a.removalMethodAddress == b.removalMethodAddress;
    }
    friend bool operator!=(const ExportedCallbackReference& a, const ExportedCallbackReference& b) noexcept {
        return !(a == b);
    }
};

}  // namespace agent::spf::core
