// The two LDAPFilter::Match overloads that need the framework: they match
// the registry's stored properties and a bundle's manifest headers in place.

#include "cppmicroservices/LDAPFilter.h"

#include "framework/PrivateAccess.h"
#include "service/ServiceRegistrationBasePrivate.h"

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceReferenceBase.h"

namespace cppmicroservices
{
    bool
    LDAPFilter::Match(ServiceReferenceBase const& reference) const
    {
        auto const& reg = detail::PrivateAccess::Get(reference);
        if (!reg)
        {
            return false;
        }
        // The registry has already rejected keys that differ only in case.
        return detail::LDAPMatchValidatedProperties(*this, *reg->Properties());
    }

    bool
    LDAPFilter::Match(Bundle const& bundle) const
    {
        if (!bundle)
        {
            return false;
        }
        return Match(bundle.GetHeaders());
    }
} // namespace cppmicroservices
