#pragma once

#include "agent/directoryinterfaces/ServiceStartedNotification.h"
#include "agent/directoryinterfaces/ServiceStoppedNotification.h"

#include <boost/variant.hpp>

namespace agent::directoryinterfaces {

// One change a subscriber is told about.
using ServiceNotification = boost::variant<ServiceStartedNotification, ServiceStoppedNotification>;

}  // namespace agent::directoryinterfaces
