#include "component/ReferenceTracker.h"

#include "component/ComponentManager.h"

#include "cppmicroservices/LDAPFilter.h"
#include "cppmicroservices/servicecomponent/ComponentConstants.hpp"

namespace cppmicroservices::ds
{
    namespace
    {
        // Characters that an LDAP value must escape.
        std::string
        Escaped(std::string const& value)
        {
            std::string result;
            for (char c : value)
            {
                if (c == '\\' || c == '*' || c == '(' || c == ')')
                {
                    result += '\\';
                }
                result += c;
            }
            return result;
        }
    } // namespace

    ReferenceTracker::ReferenceTracker(BundleContext const& context,
                                       ReferenceMetadata const& reference,
                                       std::size_t index,
                                       unsigned long ownComponentId,
                                       std::weak_ptr<ComponentManager> manager)
        : index(index)
        , ownComponentId(ownComponentId)
        , manager(std::move(manager))
        , tracker(std::make_unique<ServiceTracker<void, ServiceMatch>>(
              context,
              LDAPFilter(FilterOf(reference)),
              static_cast<ServiceTrackerCustomizer<void, ServiceMatch>*>(this)))
    {
    }

    ReferenceTracker::~ReferenceTracker() { Close(); }

    std::string
    ReferenceTracker::FilterOf(ReferenceMetadata const& reference)
    {
        std::string filter = "(" + Constants::OBJECTCLASS + "=" + Escaped(reference.interfaceName) + ")";
        std::string extra = reference.target;
        if (reference.scope == "prototype-required")
        {
            extra += "(" + Constants::SERVICE_SCOPE + "=" + Constants::SCOPE_PROTOTYPE + ")";
        }
        return extra.empty() ? filter : "(&" + filter + extra + ")";
    }

    void
    ReferenceTracker::Open()
    {
        tracker->Open();
    }

    void
    ReferenceTracker::Close()
    {
        try
        {
            tracker->Close();
        }
        catch (...)
        {
            // The bundle's listeners are gone already.
        }
    }

    std::shared_ptr<ServiceMatch>
    ReferenceTracker::AddingService(ServiceReferenceU const& reference)
    {
        auto const componentId = reference.GetProperty(service::component::ComponentConstants::COMPONENT_ID);
        if (auto const* id = any_cast<unsigned long>(&componentId); id != nullptr && *id == ownComponentId)
        {
            return nullptr;
        }
        auto match = std::make_shared<ServiceMatch>(ServiceMatch::From(reference));
        if (auto owner = manager.lock())
        {
            owner->ReferenceAdded(index, *match);
        }
        return match;
    }

    void
    ReferenceTracker::ModifiedService(ServiceReferenceU const& reference, std::shared_ptr<ServiceMatch> const&)
    {
        if (auto owner = manager.lock())
        {
            owner->ReferenceModified(index, ServiceMatch::From(reference));
        }
    }

    void
    ReferenceTracker::RemovedService(ServiceReferenceU const&, std::shared_ptr<ServiceMatch> const& match)
    {
        if (auto owner = manager.lock())
        {
            owner->ReferenceRemoved(index, match->id);
        }
    }
} // namespace cppmicroservices::ds
