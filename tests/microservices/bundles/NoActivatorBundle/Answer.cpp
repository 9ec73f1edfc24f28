// A bundle without an activator: the framework never loads it on its own.
// The test loads it on demand, as component runtimes do, and checks that the
// glue setter gave it its context.

#include "cppmicroservices/GetBundleContext.h"
#include "cppmicroservices/GlobalConfig.h"

extern "C" US_ABI_EXPORT int
test_no_activator_answer()
{
    return 42;
}

extern "C" US_ABI_EXPORT long
test_no_activator_own_bundle_id()
{
    auto context = cppmicroservices::GetBundleContext();
    return context ? context.GetBundle().GetBundleId() : -1;
}
