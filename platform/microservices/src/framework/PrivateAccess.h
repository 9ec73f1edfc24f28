#ifndef CPPMICROSERVICES_SRC_FRAMEWORK_PRIVATEACCESS_H
#define CPPMICROSERVICES_SRC_FRAMEWORK_PRIVATEACCESS_H

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/ListenerToken.h"
#include "cppmicroservices/ServiceReferenceBase.h"
#include "cppmicroservices/ServiceRegistrationBase.h"

#include <memory>
#include <string>

namespace cppmicroservices::detail
{
    // The one door from the framework's internals to the private members of
    // the public value types, so that none of them needs a list of friends.
    struct PrivateAccess
    {
        static Bundle
        MakeBundle(std::shared_ptr<BundlePrivate> d, std::shared_ptr<CoreBundleContext> c)
        {
            return Bundle(std::move(d), std::move(c));
        }
        static std::shared_ptr<BundlePrivate> const&
        Get(Bundle const& b)
        {
            return b.d;
        }
        static std::shared_ptr<CoreBundleContext> const&
        Core(Bundle const& b)
        {
            return b.c;
        }

        static BundleContext
        MakeContext(std::shared_ptr<BundleContextPrivate> d)
        {
            return BundleContext(std::move(d));
        }
        static std::shared_ptr<BundleContextPrivate> const&
        Get(BundleContext const& c)
        {
            return c.d;
        }

        static ServiceReferenceBase
        MakeReference(std::shared_ptr<ServiceRegistrationBasePrivate> d, std::string const* interfaceId)
        {
            ServiceReferenceBase ref;
            ref.d = std::move(d);
            ref.interfaceId = interfaceId;
            return ref;
        }
        static std::shared_ptr<ServiceRegistrationBasePrivate> const&
        Get(ServiceReferenceBase const& r)
        {
            return r.d;
        }
        static std::string const*
        InterfaceId(ServiceReferenceBase const& r)
        {
            return r.interfaceId;
        }

        static ServiceRegistrationBase
        MakeRegistration(std::shared_ptr<ServiceRegistrationBasePrivate> d)
        {
            ServiceRegistrationBase reg;
            reg.d = std::move(d);
            return reg;
        }
        static std::shared_ptr<ServiceRegistrationBasePrivate> const&
        Get(ServiceRegistrationBase const& r)
        {
            return r.d;
        }

        static ListenerToken
        MakeToken(ListenerTokenId id)
        {
            return ListenerToken(id);
        }
        static ListenerTokenId
        Id(ListenerToken const& token)
        {
            return token.Id();
        }
    };
} // namespace cppmicroservices::detail

#endif // CPPMICROSERVICES_SRC_FRAMEWORK_PRIVATEACCESS_H
