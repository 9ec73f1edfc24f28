#include "cppmicroservices/Framework.h"

#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"

#include <stdexcept>

namespace cppmicroservices
{
    Framework::Framework(Bundle b) : Bundle(std::move(b))
    {
        if (!d || !d->IsSystemBundle() || !c)
        {
            throw std::logic_error("Not a framework bundle");
        }
    }

    Framework::Framework(Framework const&) = default;
    Framework::Framework(Framework&&) noexcept = default;
    Framework& Framework::operator=(Framework const&) = default;
    Framework& Framework::operator=(Framework&&) noexcept = default;
    Framework::~Framework() = default;

    void
    Framework::Init()
    {
        c->lifecycle.Init(*c);
    }

    FrameworkEvent
    Framework::WaitForStop(std::chrono::milliseconds const& timeout)
    {
        return c->lifecycle.WaitForStop(*c, timeout);
    }
} // namespace cppmicroservices
