#include "runtime/ComponentRuntime.h"

#include "component/ComponentDescription.h"
#include "component/ComponentManager.h"
#include "config/ConfigurationBroker.h"
#include "metadata/ScrSectionParser.h"
#include "runtime/DsLogger.h"

#include "cppmicroservices/servicecomponent/ComponentConstants.hpp"

#include <algorithm>
#include <atomic>

namespace cppmicroservices::ds
{
    namespace
    {
        unsigned long
        NextComponentId()
        {
            static std::atomic<unsigned long> counter{ 0 };
            return ++counter;
        }

        bool
        IsStarted(Bundle const& bundle)
        {
            auto const state = bundle.GetState();
            return state == Bundle::STATE_STARTING || state == Bundle::STATE_ACTIVE;
        }
    } // namespace

    ComponentRuntime::ComponentRuntime(BundleContext context)
        : context(std::move(context))
        , configurations(std::make_shared<ConfigurationBroker>(this->context))
        , enablerPool(1)
    {
    }

    ComponentRuntime::~ComponentRuntime() { Stop(); }

    void
    ComponentRuntime::Start()
    {
        std::weak_ptr<ComponentRuntime> weak = shared_from_this();
        auto token = context.AddBundleListener(
            [weak](BundleEvent const& event)
            {
                if (auto runtime = weak.lock())
                {
                    runtime->BundleChanged(event);
                }
            });
        {
            std::lock_guard<std::mutex> lock(componentsMutex);
            bundleListener = std::move(token);
        }
        configurations->Start();
        for (auto const& bundle : context.GetBundles())
        {
            if (bundle.GetBundleId() != 0 && bundle.GetState() == Bundle::STATE_ACTIVE)
            {
                LoadComponents(bundle);
            }
        }
    }

    void
    ComponentRuntime::Stop()
    {
        ListenerToken token;
        {
            std::lock_guard<std::mutex> lock(componentsMutex);
            stopped = true;
            token = std::move(bundleListener);
        }
        if (token)
        {
            try
            {
                context.RemoveListener(std::move(token));
            }
            catch (std::exception const&)
            {
                // The context is gone and its listeners with it.
            }
        }
        enablerPool.shutDown();
        UnloadAll();
        configurations->Stop();
    }

    void
    ComponentRuntime::BundleChanged(BundleEvent const& event)
    {
        auto const bundle = event.GetBundle();
        switch (event.GetType())
        {
            case BundleEvent::BUNDLE_STARTED:
                if (bundle.GetBundleId() != 0)
                {
                    LoadComponents(bundle);
                }
                break;
            case BundleEvent::BUNDLE_STOPPING:
                if (bundle.GetBundleId() == 0)
                {
                    // The framework is stopping: take every component down
                    // while all the services they use are still there.
                    {
                        std::lock_guard<std::mutex> lock(componentsMutex);
                        stopped = true;
                    }
                    UnloadAll();
                }
                else
                {
                    UnloadComponents(bundle.GetBundleId());
                }
                break;
            default:
                break;
        }
    }

    void
    ComponentRuntime::LoadComponents(Bundle const& bundle)
    {
        auto const& headers = bundle.GetHeaders();
        auto const scr = headers.find(service::component::ComponentConstants::SERVICE_COMPONENT);
        if (scr == headers.end())
        {
            return;
        }
        auto const bundleName = bundle.GetSymbolicName();
        ScrSection section;
        try
        {
            section = ScrSectionParser::Parse(scr->second);
        }
        catch (std::exception const& e)
        {
            FOUNDATION_LOG(DsLogger(), foundation::log::severity::error)
                << "The scr section of bundle '" << bundleName << "' is invalid: " << e.what()
                << "; none of its components is loaded";
            return;
        }
        for (auto const& error : section.errors)
        {
            FOUNDATION_LOG(DsLogger(), foundation::log::severity::error)
                << "Could not load the component with index: " << error.index << " (component '" << error.name
                << "') of bundle '" << bundleName << "': " << error.message;
        }
        for (auto const& warning : section.warnings)
        {
            FOUNDATION_LOG(DsLogger(), foundation::log::severity::warning)
                << "The component '" << warning.name << "' of bundle '" << bundleName << "': " << warning.message;
        }
        auto const bundleContext = bundle.GetBundleContext();
        if (!bundleContext || section.components.empty())
        {
            return;
        }

        long const bundleId = bundle.GetBundleId();
        std::weak_ptr<ComponentRuntime> weak = shared_from_this();
        std::vector<std::shared_ptr<ComponentManager>> managers;
        for (auto const& metadata : section.components)
        {
            auto description = std::make_shared<ComponentDescription>();
            description->metadata = metadata;
            description->bundle = bundle;
            description->bundleContext = bundleContext;
            description->bundleName = bundleName;
            description->id = NextComponentId();
            description->enabler = [weak, bundleId](std::string const& name, bool enable)
            {
                if (auto runtime = weak.lock())
                {
                    runtime->PostEnable(bundleId, name, enable);
                }
            };
            managers.push_back(ComponentManager::Create(std::move(description)));
        }
        {
            std::lock_guard<std::mutex> lock(componentsMutex);
            if (stopped || components.count(bundleId) != 0)
            {
                return;
            }
            components[bundleId] = managers;
        }
        for (auto const& manager : managers)
        {
            configurations->Attach(manager);
            try
            {
                manager->Open();
            }
            catch (std::exception const& e)
            {
                FOUNDATION_LOG(DsLogger(), foundation::log::severity::error) << e.what();
            }
        }
        if (!IsStarted(bundle))
        {
            UnloadComponents(bundleId); // it began to stop while its components were loading
        }
    }

    void
    ComponentRuntime::UnloadComponents(long bundleId)
    {
        std::vector<std::shared_ptr<ComponentManager>> managers;
        {
            std::lock_guard<std::mutex> lock(componentsMutex);
            auto const found = components.find(bundleId);
            if (found == components.end())
            {
                return;
            }
            managers = std::move(found->second);
            components.erase(found);
        }
        for (auto it = managers.rbegin(); it != managers.rend(); ++it)
        {
            configurations->Detach(*it);
            (*it)->Dispose();
        }
    }

    void
    ComponentRuntime::UnloadAll()
    {
        std::vector<long> bundleIds;
        {
            std::lock_guard<std::mutex> lock(componentsMutex);
            for (auto const& entry : components)
            {
                bundleIds.push_back(entry.first);
            }
        }
        // Later bundles may use the services of earlier ones: take them down first.
        for (auto it = bundleIds.rbegin(); it != bundleIds.rend(); ++it)
        {
            UnloadComponents(*it);
        }
    }

    void
    ComponentRuntime::PostEnable(long bundleId, std::string const& name, bool enable)
    {
        std::weak_ptr<ComponentRuntime> weak = shared_from_this();
        try
        {
            enablerPool.post(
                [weak, bundleId, name, enable]
                {
                    auto runtime = weak.lock();
                    if (!runtime)
                    {
                        return;
                    }
                    std::vector<std::shared_ptr<ComponentManager>> targets;
                    {
                        std::lock_guard<std::mutex> lock(runtime->componentsMutex);
                        auto const found = runtime->components.find(bundleId);
                        if (found != runtime->components.end())
                        {
                            for (auto const& manager : found->second)
                            {
                                if (name.empty() || manager->Description().metadata->name == name)
                                {
                                    targets.push_back(manager);
                                }
                            }
                        }
                    }
                    for (auto const& manager : targets)
                    {
                        manager->SetEnabled(enable);
                    }
                });
        }
        catch (std::exception const&)
        {
            // The runtime is stopping; its components are going away anyway.
        }
    }
} // namespace cppmicroservices::ds
