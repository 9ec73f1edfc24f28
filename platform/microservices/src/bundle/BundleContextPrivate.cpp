#include "bundle/BundleContextPrivate.h"

#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"

#include <stdexcept>

namespace cppmicroservices
{
    BundleContextPrivate::BundleContextPrivate(std::weak_ptr<BundlePrivate> bundle) : bundle(std::move(bundle)) {}

    BundleContextPrivate::Pinned
    BundleContextPrivate::Pin() const
    {
        Pinned pinned;
        if (!TryPin(pinned))
        {
            throw std::runtime_error("The bundle context is no longer valid");
        }
        return pinned;
    }

    bool
    BundleContextPrivate::TryPin(Pinned& out) const
    {
        if (!IsValid())
        {
            return false;
        }
        out.bundle = bundle.lock();
        if (!out.bundle)
        {
            return false;
        }
        out.core = out.bundle->core.lock();
        return static_cast<bool>(out.core);
    }
} // namespace cppmicroservices
