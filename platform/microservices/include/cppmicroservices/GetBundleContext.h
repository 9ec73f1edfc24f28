#ifndef CPPMICROSERVICES_GETBUNDLECONTEXT_H
#define CPPMICROSERVICES_GETBUNDLECONTEXT_H

#ifndef US_BUNDLE_NAME
#  error Missing US_BUNDLE_NAME preprocessor define: GetBundleContext() is for code inside a bundle
#endif

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/GlobalConfig.h"

extern "C" US_ABI_LOCAL cppmicroservices::BundleContextPrivate* US_GET_CTX_FUNC(US_BUNDLE_NAME)();

namespace cppmicroservices
{
    /// The context of the bundle this code is compiled into; invalid while
    /// the bundle is not started (or its library was loaded without a
    /// context). Any thread; non-blocking.
    static inline BundleContext
    GetBundleContext()
    {
        return detail::MakeBundleContext(US_GET_CTX_FUNC(US_BUNDLE_NAME)());
    }
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_GETBUNDLECONTEXT_H
