#pragma once

#include "KeyValueStore.h"

#include "SampleService.h"

#include <memory>
#include <string>

namespace apps::legacyagent {

// The key-value store as a native legacy service: "<prefix>KeyValueStore", version 1.0.0.0,
// wire format kAvroMultipartWireFormat (Avro values, one part per argument; see AvroMethod):
//
//   put(string key, string value)        -> nothing (one empty part)
//   get(string key)                      -> string, the value
//   remove(string key)                   -> string, the value it had
//   keys()                               -> array<string>, every key, sorted bytewise
//
// Avro strings carry any bytes, so values (and the texts of keys) need not be UTF-8.
// Refusals are failure replies with these texts: "No such key", KeyValueStore::put's errors
// ("Key is empty", "The store is full", ...), and AvroMethod's for a malformed request; a
// refused put and a malformed request are also logged as warnings.
//
// Each instance serves once (see ServiceBase); a new one for the same store serves the same
// data. The store is shared with the request handlers, so a request still running after
// stop() is safe.
class KeyValueService : public SampleService {
public:
    static constexpr const char* kName = "KeyValueStore";

    KeyValueService(const std::string& namePrefix, std::shared_ptr<KeyValueStore> store);
};

}  // namespace apps::legacyagent
