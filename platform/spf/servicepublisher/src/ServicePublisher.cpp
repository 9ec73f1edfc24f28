#include "agent/spf/servicepublisher/ServicePublisher.h"

namespace agent::spf::servicepublisher {

// Defined here so that the type's vtable and type information live in this library alone.
ServicePublisher::~ServicePublisher() = default;

}  // namespace agent::spf::servicepublisher
