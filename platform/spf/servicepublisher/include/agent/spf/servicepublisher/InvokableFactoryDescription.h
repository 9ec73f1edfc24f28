#pragma once

#include "agent/spf/core/APIVersion.h"

#include <cppmicroservices/AnyMap.h>

#include <boost/uuid/uuid.hpp>

#include <string>

namespace agent::spf::servicepublisher {

// Names one registered invokable factory: 16 random bytes (an RFC 4122 version-4 uuid) drawn at
// registration, never reused while the publisher lives.
using InvokableFactoryHandle = boost::uuids::uuid;

// What a factory was registered with, as clients see it. A value type.
struct InvokableFactoryDescription {
    InvokableFactoryHandle handle;
    // The factory's service name (e.g. a legacy service's name).
    std::string name;
    // The service instance's uuid as the registrant gave it; not the handle.
    boost::uuids::uuid uuid;
    core::APIVersion version;
    // Where the service is reached (e.g. "endpointAddress").
    cppmicroservices::AnyMap endpointProperties;
    // What the service says of itself.
    cppmicroservices::AnyMap serviceProperties;
};

}  // namespace agent::spf::servicepublisher
