#pragma once

#include "KeyValueStore.h"

#include "agent/core/service/NativeLegacyServiceBase.h"

#include <memory>
#include <string>

namespace apps::legacyagent {

// The key-value store as a native legacy service: "<prefix>KeyValueStore", version 1.0.0.0,
// with sampleServiceMetadata(). Payloads are raw bytes, one request and one reply Message per call:
//
//   put     request  <key> NUL <value>   (the first NUL byte ends the key; the value is
//                                          every byte after it, NULs included)
//           reply    empty
//   get     request  <key>                reply  the value
//   remove  request  <key>                reply  the value it had
//   keys    request  ignored              reply  every key, sorted, each followed by NUL
//
// Refusals are failure replies with these texts: "put needs a key, a NUL byte and the
// value", "No such key", and KeyValueStore::put's errors ("Key is empty", "The store is
// full", ...); a refused put is also logged as a warning.
//
// Each instance serves once (see ServiceBase); a new one for the same store serves the same
// data. The store is shared with the request handlers, so a request still running after
// stop() is safe.
class KeyValueService : public agent::core::service::NativeLegacyServiceBase {
public:
    static constexpr const char* kName = "KeyValueStore";

    KeyValueService(const std::string& namePrefix, std::shared_ptr<KeyValueStore> store);
};

}  // namespace apps::legacyagent
