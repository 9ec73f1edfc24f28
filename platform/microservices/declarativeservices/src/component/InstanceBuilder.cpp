#include "component/InstanceBuilder.h"

#include "component/EntryPoints.h"
#include "runtime/DsLogger.h"

#include "cppmicroservices/ServiceObjects.h"

#include <exception>
#include <utility>

namespace cppmicroservices::ds
{
    namespace
    {
        std::string
        CurrentExceptionText()
        {
            try
            {
                throw;
            }
            catch (std::exception const& e)
            {
                return e.what();
            }
            catch (...)
            {
                return "an exception not derived from std::exception";
            }
        }

        void
        DeleteQuietly(LiveInstance const& live)
        {
            try
            {
                live.deleter(live.instance);
            }
            catch (...)
            {
                // A throwing destructor in bundle code: the instance is gone either way.
            }
        }
    } // namespace

    InstanceBuilder::InstanceBuilder(std::shared_ptr<ComponentDescription const> description,
                                     std::function<ServiceReferenceU()> ownReference)
        : description(std::move(description))
        , ownReference(std::move(ownReference))
    {
    }

    void
    InstanceBuilder::LogError(std::string const& what) const
    {
        FOUNDATION_LOG(DsLogger(), foundation::log::severity::error)
            << "The " << description->Describe() << " " << what;
    }

    BoundService
    InstanceBuilder::Acquire(std::size_t index, ServiceMatch const& match) const
    {
        auto const& reference = description->metadata->references[index];
        BoundService bound{ match, nullptr, nullptr };
        // The description is shared read-only and BundleContext's service calls are not const.
        BundleContext context = description->bundleContext;
        try
        {
            if (reference.scope == "bundle")
            {
                bound.objects = context.GetService(match.reference);
            }
            else
            {
                bound.objects = context.GetServiceObjects(match.reference).GetService();
            }
        }
        catch (std::exception const&)
        {
            // Unregistered meanwhile, or the bundle is stopping: nothing to bind.
        }
        bound.service = ExtractInterface(bound.objects, reference.interfaceName);
        if (!bound.service)
        {
            bound.objects = nullptr;
        }
        return bound;
    }

    std::shared_ptr<LiveInstance>
    InstanceBuilder::Build(ServiceProperties const& properties,
                           std::vector<std::vector<ServiceMatch>> const& bindings,
                           Bundle const& usingBundle) const
    {
        auto const& metadata = *description->metadata;
        std::vector<std::vector<BoundService>> bound(metadata.references.size());
        for (std::size_t i = 0; i < metadata.references.size(); ++i)
        {
            for (auto const& match : bindings[i])
            {
                auto service = Acquire(i, match);
                if (service.objects)
                {
                    bound[i].push_back(std::move(service));
                }
            }
            if (bound[i].empty() && !metadata.references[i].optional)
            {
                // The service went away after it was chosen; its removal
                // starts the next life.
                FOUNDATION_LOG(DsLogger(), foundation::log::severity::info)
                    << "The " << description->Describe() << " was not created: the service of its mandatory "
                    << "reference '" << metadata.references[i].name << "' went away";
                return nullptr;
            }
        }

        EntryPoints entryPoints;
        try
        {
            entryPoints = EntryPoints::Resolve(description->bundle, metadata.name);
        }
        catch (std::exception const& e)
        {
            FOUNDATION_LOG(DsLogger(), foundation::log::severity::error) << e.what();
            return nullptr;
        }

        auto live = std::make_shared<LiveInstance>();
        live->deleter = entryPoints.destroy;
        live->context = std::make_shared<ComponentContextImpl>(description, properties, usingBundle, ownReference);
        live->context->SetBound(std::move(bound));
        try
        {
            live->instance = entryPoints.create();
        }
        catch (...)
        {
            LogError("could not be created: " + EntryPoints::NewSymbol(metadata.name)
                     + " threw: " + CurrentExceptionText());
            return nullptr;
        }
        if (live->instance == nullptr)
        {
            LogError("could not be created: " + EntryPoints::NewSymbol(metadata.name) + " returned null");
            return nullptr;
        }

        try
        {
            live->instance->CreateInstance(live->context);
            live->interfaces = live->instance->GetInterfaceMap();
            live->hasModified = live->instance->DoesModifiedMethodExist();
        }
        catch (...)
        {
            LogError("could not be constructed: the constructor threw: " + CurrentExceptionText());
            DeleteQuietly(*live);
            live->context->Invalidate();
            return nullptr;
        }
        for (auto const& interfaceName : metadata.serviceInterfaces)
        {
            if (!live->interfaces || live->interfaces->count(interfaceName) == 0)
            {
                LogError("does not provide the interface " + interfaceName + " its manifest declares");
                DeleteQuietly(*live);
                live->context->Invalidate();
                return nullptr;
            }
        }

        try
        {
            live->instance->BindReferences(live->context);
        }
        catch (...)
        {
            LogError("could not bind its dynamic references: " + CurrentExceptionText());
        }

        try
        {
            live->instance->Activate();
        }
        catch (...)
        {
            LogError("could not be activated: Activate threw: " + CurrentExceptionText());
            try
            {
                live->instance->UnbindReferences();
            }
            catch (...)
            {
                // Already logged the failure that matters.
            }
            DeleteQuietly(*live);
            live->context->Invalidate();
            return nullptr;
        }
        return live;
    }

    void
    InstanceBuilder::Destroy(LiveInstance& live) const
    {
        try
        {
            live.instance->Deactivate();
        }
        catch (...)
        {
            LogError("threw from Deactivate: " + CurrentExceptionText());
        }
        try
        {
            live.instance->UnbindReferences();
        }
        catch (...)
        {
            LogError("threw from an Unbind method: " + CurrentExceptionText());
        }
        live.context->Invalidate();
        DeleteQuietly(live);
        live.instance = nullptr;
        live.interfaces = nullptr;
    }

    void
    InstanceBuilder::InvokeBind(LiveInstance& live, std::size_t index, BoundService const& service) const
    {
        if (!service.service)
        {
            return;
        }
        try
        {
            live.instance->InvokeBindMethod(description->metadata->references[index].name, service.service);
        }
        catch (...)
        {
            LogError("threw from the Bind method of reference '" + description->metadata->references[index].name
                     + "': " + CurrentExceptionText());
        }
    }

    void
    InstanceBuilder::InvokeUnbind(LiveInstance& live, std::size_t index, BoundService const& service) const
    {
        if (!service.service)
        {
            return;
        }
        try
        {
            live.instance->InvokeUnbindMethod(description->metadata->references[index].name, service.service);
        }
        catch (...)
        {
            LogError("threw from the Unbind method of reference '" + description->metadata->references[index].name
                     + "': " + CurrentExceptionText());
        }
    }

    bool
    InstanceBuilder::InvokeModified(LiveInstance& live) const
    {
        try
        {
            live.instance->Modified();
            return true;
        }
        catch (...)
        {
            LogError("threw from Modified: " + CurrentExceptionText());
            return false;
        }
    }
} // namespace cppmicroservices::ds
