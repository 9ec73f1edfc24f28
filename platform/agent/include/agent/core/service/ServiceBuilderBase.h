#pragma once

#include "agent/core/service/ServiceBase.h"

#include <memory>

namespace agent::core::service {

// Makes instances of one kind of service. create() may be called from any thread; each
// call returns a new, not yet started instance (null when it cannot make one).
class ServiceBuilderBase {
public:
    virtual ~ServiceBuilderBase() = default;
    virtual std::shared_ptr<ServiceBase> create() = 0;
};

}  // namespace agent::core::service
