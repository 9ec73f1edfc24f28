#pragma once

#include "WireFormat.h"

#include "agent/core/serviceutils/APIVersion.h"
#include "agent/spf/core/ServiceInterface.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"

#include <map>
#include <memory>
#include <string>

namespace agent::spf::legacyservicewrapper {

// What every service of one LegacyServiceBuilder shares: the interface with its methods,
// the catalogue, the wire format, and the directory entry's name, version and metadata.
// Immutable once built, so any thread may read it.
class ServiceDefinition {
public:
    // Throws std::invalid_argument with
    //   "LegacyServiceBuilder needs a serialisation catalogue" for a null catalogue,
    //   "A legacy service needs an interface name" for an empty name, and
    //   "Wire format <format> has no parts for the arguments of method <name>" when the
    //   interface's wire format frames a whole message as one value and a method takes
    //   more than one argument.
    ServiceDefinition(core::ServiceInterface serviceInterface,
                      std::shared_ptr<serialisation::SerialisationCatalogue> catalogue);

    const core::ServiceInterface& serviceInterface() const noexcept { return serviceInterface_; }
    const serialisation::SerialisationCatalogue& catalogue() const noexcept { return *catalogue_; }
    const WireFormat& wireFormat() const noexcept { return wireFormat_; }

    const std::string& name() const noexcept { return serviceInterface_.getInterfaceName(); }
    const agent::core::serviceutils::APIVersion& version() const noexcept { return version_; }
    // The interface's metadata with "spf.wireFormat" (when it had none),
    // "spf::servicemajor", and "spf.signature.<method>" for each method (when it had none).
    const std::map<std::string, std::string>& metadata() const noexcept { return metadata_; }

private:
    const core::ServiceInterface serviceInterface_;
    const std::shared_ptr<serialisation::SerialisationCatalogue> catalogue_;
    std::map<std::string, std::string> metadata_;
    WireFormat wireFormat_;
    agent::core::serviceutils::APIVersion version_;
};

}  // namespace agent::spf::legacyservicewrapper
