#pragma once

#include "agent/core/service/ServiceBuilderBase.h"
#include "agent/spf/core/ServiceInterface.h"

#include <memory>

namespace agent::spf::serialisation {
class SerialisationCatalogue;
}

namespace agent::spf::legacyservicewrapper {

class ServiceDefinition;

// Runs an SPF ServiceInterface as a legacy agent service. Each service it creates, once
// started on a context:
// - serves every method of the interface at an address of its own on the context's
//   transport: a request carries the arguments in the service's wire format (by default
//   one multipart part per argument: an 8-byte big-endian size, then the value's bytes),
//   each read by the catalogue's deserialiser for the method's argument type; the method
//   runs on the transport's handler thread and the reply is its result, framed the same
//   way as one part (a method without a result answers one empty part); a malformed
//   request, an argument that cannot be read, and an exception of the method become a
//   failure reply carrying the error's text (and, but for the method's own exceptions, a
//   log line on "agent::spf::legacyservicewrapper");
// - enters the directory with the interface's name and version, its metadata, plus
//   "spf.wireFormat" (default "application/octet-stream+spf/avro+spf/multipart", kept
//   when the interface sets its own), "spf::servicemajor" (the major version, decimal) and,
//   for each method, "spf.signature.<method>": its core::MethodSignature text with the types
//   named by serialisation::avroTypeName, say "(int, int) -> int" (an interface's own kept);
// - withdraws the entry and the handlers in stop.
// start returns false (with a log line) when the context has no transport or the exchange
// refuses an address or the entry; stop never throws.
class LegacyServiceBuilder final : public agent::core::service::ServiceBuilderBase {
public:
    // The catalogue is shared with every service created and may gain types later: a type
    // missing when a request arrives fails that request. Throws std::invalid_argument with
    //   "LegacyServiceBuilder needs a serialisation catalogue" for a null catalogue,
    //   "A legacy service needs an interface name" for an empty name, and
    //   "Wire format <format> has no parts for the arguments of method <name>" when the
    //   interface's own wire format lacks "+spf/multipart" (a whole message is then one
    //   value) and a method takes more than one argument.
    static std::shared_ptr<agent::core::service::ServiceBuilderBase> make_shared(
        core::ServiceInterface serviceInterface, std::shared_ptr<serialisation::SerialisationCatalogue> catalogue);

    // A new, unstarted service. Any thread; never null; throws only std::bad_alloc.
    std::shared_ptr<agent::core::service::ServiceBase> create() override;

private:
    explicit LegacyServiceBuilder(std::shared_ptr<const ServiceDefinition> definition);

    // Immutable, shared with every service created.
    const std::shared_ptr<const ServiceDefinition> definition_;
};

}  // namespace agent::spf::legacyservicewrapper
