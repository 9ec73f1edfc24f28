#pragma once

// The service through which bundles hand service interfaces to a publisher of legacy services,
// offered as "agent::spf::servicepublisher::ServicePublisher". The order of the virtual members
// is part of the binary interface: keep it.

#include "agent/spf/core/ServiceInterface.h"

#include <cppmicroservices/ServiceInterface.h>

#include <boost/uuid/uuid.hpp>

namespace agent::spf::servicepublisher {

class ServicePublisher {
public:
    // Registers serviceInterface and returns the identifier that withdraws it. Implementations
    // may block (e.g. until they have a configuration to honour). Throws std::runtime_error when
    // the interface is refused.
    virtual boost::uuids::uuid publishService(agent::spf::core::ServiceInterface serviceInterface) = 0;

    // Withdraws the interface published under id. True if there was one, false otherwise.
    // Never throws.
    virtual bool unpublishService(const boost::uuids::uuid& id) = 0;

    virtual ~ServicePublisher();

protected:
    ServicePublisher() = default;
    ServicePublisher(const ServicePublisher&) = default;
    ServicePublisher& operator=(const ServicePublisher&) = default;
};

}  // namespace agent::spf::servicepublisher

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(agent::spf::servicepublisher::ServicePublisher,
                                           "agent::spf::servicepublisher::ServicePublisher")
