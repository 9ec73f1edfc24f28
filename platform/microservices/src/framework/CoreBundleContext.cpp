#include "framework/CoreBundleContext.h"

#include "bundle/BundlePrivate.h"
#include "bundle/DlopenLoader.h"
#include "framework/PrivateAccess.h"

#include "cppmicroservices/Constants.h"
#include "cppmicroservices/FrameworkConfig.h"
#include "cppmicroservices/FrameworkEvent.h"

namespace cppmicroservices
{
    namespace
    {
        AnyMap
        MakeProperties(FrameworkConfiguration const& configuration)
        {
            AnyMap props(AnyMap::UNORDERED_MAP);
            for (auto const& [key, value] : configuration)
            {
                props.emplace(key, value);
            }
            // Facts about this framework; the application cannot override them.
            props.erase(Constants::FRAMEWORK_THREADING_SUPPORT);
            props.emplace(Constants::FRAMEWORK_THREADING_SUPPORT, Any(Constants::FRAMEWORK_THREADING_MULTI));
            props.erase(Constants::FRAMEWORK_VERSION);
            props.emplace(Constants::FRAMEWORK_VERSION, Any(std::string(US_FRAMEWORK_VERSION_STR)));
            props.erase(Constants::FRAMEWORK_VENDOR);
            props.emplace(Constants::FRAMEWORK_VENDOR, Any(std::string("cppmicroservices")));
            if (props.count(Constants::FRAMEWORK_STORAGE) == 0)
            {
                props.emplace(Constants::FRAMEWORK_STORAGE, Any(std::string("fwdir")));
            }
            return props;
        }

        template <class T>
        T
        ConfigValue(FrameworkConfiguration const& configuration, std::string const& key, T fallback)
        {
            auto it = configuration.find(key);
            if (it != configuration.end() && it->second.Type() == typeid(T))
            {
                return any_cast<T>(it->second);
            }
            return fallback;
        }

        std::string
        StoragePath(AnyMap const& props)
        {
            auto it = props.find(Constants::FRAMEWORK_STORAGE);
            if (it != props.end() && it->second.Type() == typeid(std::string))
            {
                return any_cast<std::string>(it->second);
            }
            return "fwdir";
        }

        std::shared_ptr<storage::sharedlib::Loader>
        MakeLoader(FrameworkConfiguration const& configuration)
        {
            auto it = configuration.find(Constants::LIBRARY_LOAD_OPTIONS);
            if (it != configuration.end() && it->second.Type() == typeid(int))
            {
                return std::make_shared<DlopenLoader>(any_cast<int>(it->second));
            }
            return storage::sharedlib::defaultLoader();
        }
    } // namespace

    std::shared_ptr<CoreBundleContext>
    CoreBundleContext::Create(FrameworkConfiguration const& configuration, std::ostream* logStream)
    {
        auto core = std::make_shared<CoreBundleContext>(configuration, logStream);
        AnyMap headers(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
        headers.emplace(Constants::BUNDLE_SYMBOLICNAME, Any(Constants::SYSTEM_BUNDLE_SYMBOLICNAME));
        headers.emplace(Constants::BUNDLE_NAME, Any(std::string("System Bundle")));
        headers.emplace(Constants::BUNDLE_VERSION, Any(std::string(US_FRAMEWORK_VERSION_STR)));
        headers.emplace(Constants::BUNDLE_ACTIVATOR, Any(false));
        core->systemBundle = std::make_shared<BundlePrivate>(core,
                                                             0,
                                                             Constants::SYSTEM_BUNDLE_LOCATION,
                                                             Constants::SYSTEM_BUNDLE_SYMBOLICNAME,
                                                             BundleVersion(US_FRAMEWORK_VERSION_STR),
                                                             std::move(headers));
        core->bundles.AddSystemBundle(core->systemBundle);
        return core;
    }

    CoreBundleContext::CoreBundleContext(FrameworkConfiguration const& configuration, std::ostream* logStream)
        : properties(MakeProperties(configuration))
        , log(logStream, ConfigValue<bool>(configuration, Constants::FRAMEWORK_LOG, false))
        , storagePath(StoragePath(properties))
        , libraryLoader(MakeLoader(configuration))
        , validationFunc(ConfigValue<std::function<bool(Bundle const&)>>(configuration,
                                                                         Constants::FRAMEWORK_BUNDLE_VALIDATION_FUNC,
                                                                         {}))
        , services()
        , listeners(*this)
        , bundles(*this)
        , lifecycle()
    {
    }

    CoreBundleContext::~CoreBundleContext()
    {
        if (IsRunning() && systemBundle->GetState() != Bundle::STATE_STOPPING)
        {
            // Activators cannot be stopped any more: their contexts need the
            // framework that is going away.
            log.Warning("A running framework was destroyed without Stop(); bundle activators were not stopped");
        }
    }

    Bundle
    CoreBundleContext::MakeBundle(std::shared_ptr<BundlePrivate> const& bundle)
    {
        return detail::PrivateAccess::MakeBundle(bundle, shared_from_this());
    }

    bool
    CoreBundleContext::IsRunning() const
    {
        auto const state = systemBundle->GetState();
        return state == Bundle::STATE_STARTING || state == Bundle::STATE_ACTIVE || state == Bundle::STATE_STOPPING;
    }

    void
    CoreBundleContext::ReportError(std::shared_ptr<BundlePrivate> const& bundle,
                                   std::string const& message,
                                   std::exception_ptr exception)
    {
        std::string text = message;
        if (exception)
        {
            try
            {
                std::rethrow_exception(exception);
            }
            catch (std::exception const& e)
            {
                if (message != e.what())
                {
                    text += ": ";
                    text += e.what();
                }
            }
            catch (...)
            {
                text += ": unknown exception";
            }
        }
        log.Error(text);
        listeners.FrameworkChanged(
            FrameworkEvent(FrameworkEvent::FRAMEWORK_ERROR, MakeBundle(bundle ? bundle : systemBundle), message, exception));
    }

    void
    CoreBundleContext::ReportWarning(std::shared_ptr<BundlePrivate> const& bundle, std::string const& message)
    {
        log.Warning(message);
        listeners.FrameworkChanged(
            FrameworkEvent(FrameworkEvent::FRAMEWORK_WARNING, MakeBundle(bundle ? bundle : systemBundle), message));
    }
} // namespace cppmicroservices
