#include "cppmicroservices/FrameworkFactory.h"

#include "framework/CoreBundleContext.h"

#include "cppmicroservices/Framework.h"

namespace cppmicroservices
{
    Framework
    FrameworkFactory::NewFramework(FrameworkConfiguration const& configuration, std::ostream* logger)
    {
        auto core = CoreBundleContext::Create(configuration, logger);
        return Framework(core->MakeBundle(core->systemBundle));
    }

    Framework
    FrameworkFactory::NewFramework()
    {
        return NewFramework(FrameworkConfiguration());
    }
} // namespace cppmicroservices
