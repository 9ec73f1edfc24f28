#include "agent/spf/threadpoolprovider/ThreadPoolProvider.h"

namespace agent::spf::threadpoolprovider {

// Out of line so that the type's vtable and type info live in this library, which every
// user of the service then links: the bundle that registered it may stop first.
ThreadPoolProvider::~ThreadPoolProvider() = default;

}  // namespace agent::spf::threadpoolprovider
