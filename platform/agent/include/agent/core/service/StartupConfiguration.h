#pragma once

#include "agent/core/serviceutils/Context.h"

#include <boost/property_tree/ptree.hpp>

namespace agent::core::service {

// What a service is started with: its settings and the context it runs in.
// A plain value; the context's pool and transport are borrowed (see Context).
struct StartupConfiguration {
    boost::property_tree::ptree properties;
    serviceutils::Context context;
};

}  // namespace agent::core::service
