#include "bundle/BundleLifecycle.h"

#include "bundle/BundleContextPrivate.h"
#include "bundle/BundleLibrary.h"
#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"
#include "framework/PrivateAccess.h"
#include "service/ServiceRegistrationBasePrivate.h"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/SharedLibraryException.h"

#include <stdexcept>

namespace cppmicroservices
{
    namespace
    {
        using CreateActivatorFn = BundleActivator* (*)();
        using DestroyActivatorFn = void (*)(BundleActivator*);

        std::string
        WhatOf(std::exception_ptr const& error)
        {
            try
            {
                std::rethrow_exception(error);
            }
            catch (std::exception const& e)
            {
                return e.what();
            }
            catch (...)
            {
                return "unknown exception";
            }
        }

        // True when the manifest asks for an activator. A value that is not a
        // bool counts as false, with a warning.
        bool
        WantsActivator(std::shared_ptr<BundlePrivate> const& bundle, CoreBundleContext& core)
        {
            auto it = bundle->headers.find(Constants::BUNDLE_ACTIVATOR);
            if (it == bundle->headers.end())
            {
                return false;
            }
            if (it->second.Type() != typeid(bool))
            {
                core.ReportWarning(bundle,
                                   bundle->Describe() + ": bundle.activator is not a bool; no activator is used");
                return false;
            }
            return any_cast<bool>(it->second);
        }

        // Loads the library and creates and starts the activator.
        void
        StartActivator(std::shared_ptr<BundlePrivate> const& bundle,
                       std::shared_ptr<CoreBundleContext> const& core,
                       std::shared_ptr<BundleContextPrivate> const& context)
        {
            auto library = BundleLibrary::Load(bundle, core);
            std::string const createName = "_us_create_activator_" + bundle->symbolicName;
            std::string const destroyName = "_us_destroy_activator_" + bundle->symbolicName;
            auto create = reinterpret_cast<CreateActivatorFn>(library.findSymbol(createName));
            auto destroy = reinterpret_cast<DestroyActivatorFn>(library.findSymbol(destroyName));
            if (create == nullptr || destroy == nullptr)
            {
                throw std::runtime_error("the library has no " + (create == nullptr ? createName : destroyName)
                                         + " symbol");
            }
            BundleActivator* activator = create();
            if (activator == nullptr)
            {
                throw std::runtime_error(createName + " returned no activator");
            }
            {
                std::lock_guard<std::mutex> lock(bundle->libraryMutex);
                bundle->activator = activator;
                bundle->destroyActivator = destroy;
            }
            activator->Start(detail::PrivateAccess::MakeContext(context));
        }

        // Destroys the activator, if any.
        void
        DropActivator(BundlePrivate& bundle) noexcept
        {
            BundleActivator* activator = nullptr;
            std::function<void(BundleActivator*)> destroy;
            {
                std::lock_guard<std::mutex> lock(bundle.libraryMutex);
                std::swap(activator, bundle.activator);
                std::swap(destroy, bundle.destroyActivator);
            }
            if (activator != nullptr && destroy)
            {
                try
                {
                    destroy(activator);
                }
                catch (...)
                {
                    // A throwing destructor in bundle code must not stop the framework.
                }
            }
        }
    } // namespace

    void
    BundleLifecycle::FireBundleEvent(CoreBundleContext& core,
                                     BundleEvent::Type type,
                                     std::shared_ptr<BundlePrivate> const& bundle)
    {
        core.listeners.BundleChanged(BundleEvent(type, core.MakeBundle(bundle)));
    }

    void
    BundleLifecycle::Start(std::shared_ptr<BundlePrivate> const& bundle, std::shared_ptr<CoreBundleContext> const& core)
    {
        if (bundle->GetState() == Bundle::STATE_UNINSTALLED)
        {
            throw std::logic_error(bundle->Describe() + " is uninstalled");
        }
        if (!core->IsRunning())
        {
            throw std::logic_error(bundle->Describe() + " cannot start: the framework is not running");
        }
        BundlePrivate::Operation operation(*bundle);
        auto const state = bundle->GetState();
        if (state == Bundle::STATE_ACTIVE || state == Bundle::STATE_UNINSTALLED)
        {
            return;
        }
        if (state == Bundle::STATE_INSTALLED)
        {
            bundle->SetState(Bundle::STATE_RESOLVED);
            FireBundleEvent(*core, BundleEvent::BUNDLE_RESOLVED, bundle);
        }

        auto context = bundle->NewContext();
        bundle->SetState(Bundle::STATE_STARTING);
        FireBundleEvent(*core, BundleEvent::BUNDLE_STARTING, bundle);

        std::exception_ptr failure;
        try
        {
            if (WantsActivator(bundle, *core))
            {
                StartActivator(bundle, core, context);
            }
        }
        catch (...)
        {
            failure = std::current_exception();
        }

        if (failure)
        {
            DropActivator(*bundle);
            bundle->SetState(Bundle::STATE_STOPPING);
            FireBundleEvent(*core, BundleEvent::BUNDLE_STOPPING, bundle);
            ReleaseResources(*bundle, *core);
            bundle->SetState(Bundle::STATE_RESOLVED);
            FireBundleEvent(*core, BundleEvent::BUNDLE_STOPPED, bundle);
            try
            {
                std::rethrow_exception(failure);
            }
            catch (SharedLibraryException const&)
            {
                throw;
            }
            catch (...)
            {
                throw std::runtime_error(bundle->Describe() + " start failed: " + WhatOf(failure));
            }
        }

        bundle->startOrder.store(++core->startCounter);
        bundle->SetState(Bundle::STATE_ACTIVE);
        core->log.Info(bundle->Describe() + " started");
        FireBundleEvent(*core, BundleEvent::BUNDLE_STARTED, bundle);
    }

    void
    BundleLifecycle::Stop(std::shared_ptr<BundlePrivate> const& bundle, std::shared_ptr<CoreBundleContext> const& core)
    {
        if (bundle->GetState() == Bundle::STATE_UNINSTALLED)
        {
            throw std::logic_error(bundle->Describe() + " is uninstalled");
        }
        BundlePrivate::Operation operation(*bundle);
        if (bundle->GetState() != Bundle::STATE_ACTIVE)
        {
            return;
        }
        bundle->SetState(Bundle::STATE_STOPPING);
        FireBundleEvent(*core, BundleEvent::BUNDLE_STOPPING, bundle);

        std::exception_ptr failure;
        BundleActivator* activator = nullptr;
        {
            std::lock_guard<std::mutex> lock(bundle->libraryMutex);
            activator = bundle->activator;
        }
        if (activator != nullptr)
        {
            try
            {
                activator->Stop(detail::PrivateAccess::MakeContext(bundle->CurrentContext()));
            }
            catch (...)
            {
                failure = std::current_exception();
            }
            DropActivator(*bundle);
        }

        ReleaseResources(*bundle, *core);
        bundle->startOrder.store(0);
        bundle->SetState(Bundle::STATE_RESOLVED);
        core->log.Info(bundle->Describe() + " stopped");
        FireBundleEvent(*core, BundleEvent::BUNDLE_STOPPED, bundle);

        if (failure)
        {
            throw std::runtime_error(bundle->Describe() + " stop failed: " + WhatOf(failure));
        }
    }

    void
    BundleLifecycle::Uninstall(std::shared_ptr<BundlePrivate> const& bundle,
                               std::shared_ptr<CoreBundleContext> const& core)
    {
        if (bundle->GetState() == Bundle::STATE_UNINSTALLED)
        {
            throw std::logic_error(bundle->Describe() + " is already uninstalled");
        }
        std::exception_ptr stopFailure;
        try
        {
            Stop(bundle, core);
        }
        catch (...)
        {
            stopFailure = std::current_exception();
        }
        {
            BundlePrivate::Operation operation(*bundle);
            if (bundle->GetState() == Bundle::STATE_UNINSTALLED)
            {
                return;
            }
            bundle->SetState(Bundle::STATE_UNINSTALLED);
            core->bundles.Remove(bundle->id);
        }
        FireBundleEvent(*core, BundleEvent::BUNDLE_UNINSTALLED, bundle);
        if (stopFailure)
        {
            core->ReportError(bundle, bundle->Describe() + " failed to stop while uninstalling", stopFailure);
        }
    }

    void
    BundleLifecycle::ReleaseResources(BundlePrivate& bundle, CoreBundleContext& core) noexcept
    {
        auto unregisterAll = [&]
        {
            for (auto const& reg : core.services.RegisteredBy(&bundle))
            {
                try
                {
                    detail::PrivateAccess::MakeRegistration(reg).Unregister();
                }
                catch (...)
                {
                    // Unregistered meanwhile by another thread.
                }
            }
        };
        try
        {
            unregisterAll();
            if (auto context = bundle.CurrentContext())
            {
                core.listeners.RemoveAllListeners(context.get());
            }
            for (auto const& reg : core.services.All())
            {
                reg->usage.ReleaseBundle(*reg, &bundle);
            }
            bundle.RetireContext();
            // Registrations that raced with the context going invalid.
            unregisterAll();
            BundleLibrary::Unbind(bundle);
        }
        catch (std::exception const& e)
        {
            core.log.Error(bundle.Describe() + ": error while releasing its resources: " + e.what());
        }
    }
} // namespace cppmicroservices
