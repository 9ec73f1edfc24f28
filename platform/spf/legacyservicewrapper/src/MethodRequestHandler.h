#pragma once

#include "agent/core/transport/Message.h"
#include "agent/spf/core/GenericPayload.h"
#include "agent/spf/core/MethodImplementation.h"

#include <memory>
#include <string>

namespace agent::spf::legacyservicewrapper {

class ServiceDefinition;

// Serves one method of a legacy-wrapped SPF service: reads the arguments from a request
// in the service's wire format, calls the method and writes its result as the reply.
//
// Copyable (it becomes a transport RequestHandler); copies share the definition, which
// keeps the method alive. The call operator may run on many threads at once.
class MethodRequestHandler {
public:
    // Throws std::runtime_error("Unknown method <name>") for a name the interface lacks.
    MethodRequestHandler(std::shared_ptr<const ServiceDefinition> definition, std::string method);

    // The reply to `request`. Throws std::runtime_error, which the transport returns as a
    // failure reply: the framing's texts for a malformed request, "Invalid argument <i> of
    // method <name>: <cause>" for a value that cannot be read, the method's own exception
    // unchanged, and "Result of method <name> cannot be written: <cause>". Refused input is
    // logged as a warning, an unwritable result as an error.
    agent::core::transport::Message operator()(const agent::core::transport::Message& request) const;

private:
    core::GenericPayload readArguments(const agent::core::transport::Message& request) const;
    agent::core::transport::Message writeReply(core::GenericPayload&& result) const;

    std::shared_ptr<const ServiceDefinition> definition_;
    std::string method_;
    const core::MethodImplementation* implementation_;  // owned by definition_
};

}  // namespace agent::spf::legacyservicewrapper
