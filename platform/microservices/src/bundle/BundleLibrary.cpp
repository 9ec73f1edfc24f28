#include "bundle/BundleLibrary.h"

#include "bundle/BundleContextPrivate.h"
#include "bundle/BundlePrivate.h"
#include "framework/CoreBundleContext.h"
#include "framework/PrivateAccess.h"

#include "cppmicroservices/SharedLibraryException.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace cppmicroservices
{
    namespace
    {
        using SetContextFn = void (*)(BundleContextPrivate*);

        std::string
        SetterName(BundlePrivate const& bundle)
        {
            return "_us_set_bundle_context_instance_" + bundle.symbolicName;
        }

        std::error_code
        LoadErrorCode(std::string const& location)
        {
            std::error_code ignored;
            return std::filesystem::exists(location, ignored) ? std::make_error_code(std::errc::executable_format_error)
                                                               : std::make_error_code(std::errc::no_such_file_or_directory);
        }
    } // namespace

    storage::sharedlib::SharedLibrary
    BundleLibrary::Load(Bundle const& bundle)
    {
        auto const& d = detail::PrivateAccess::Get(bundle);
        auto const& core = detail::PrivateAccess::Core(bundle);
        if (!d || !core)
        {
            throw std::logic_error("Cannot load the library of an invalid bundle");
        }
        return Load(d, core);
    }

    storage::sharedlib::SharedLibrary
    BundleLibrary::Load(std::shared_ptr<BundlePrivate> const& bundle, std::shared_ptr<CoreBundleContext> const& core)
    {
        auto const state = bundle->GetState();
        auto context = bundle->CurrentContext();
        if (!(state == Bundle::STATE_STARTING || state == Bundle::STATE_ACTIVE || state == Bundle::STATE_STOPPING)
            || !context || !context->IsValid())
        {
            throw std::logic_error(bundle->Describe() + " is not started");
        }

        storage::sharedlib::SharedLibrary library;
        {
            std::lock_guard<std::mutex> lock(bundle->libraryMutex);
            library = bundle->library;
        }
        if (!library)
        {
            Bundle const handle = core->MakeBundle(bundle);
            if (core->validationFunc)
            {
                bool valid = false;
                try
                {
                    valid = core->validationFunc(handle);
                }
                catch (std::exception const& e)
                {
                    throw SharedLibraryException(std::make_error_code(std::errc::operation_not_permitted),
                                                 "Bundle validation function threw for " + bundle->location + ": "
                                                     + e.what(),
                                                 handle);
                }
                if (!valid)
                {
                    throw SharedLibraryException(std::make_error_code(std::errc::operation_not_permitted),
                                                 "Bundle at " + bundle->location + " failed validation",
                                                 handle);
                }
            }
            try
            {
                library = storage::sharedlib::SharedLibrary::load(bundle->location, core->libraryLoader);
            }
            catch (std::exception const& e)
            {
                throw SharedLibraryException(LoadErrorCode(bundle->location), e.what(), handle);
            }
            // Objects made by the library may outlive the bundle's activation.
            library.detach();
            std::lock_guard<std::mutex> lock(bundle->libraryMutex);
            if (bundle->library)
            {
                library = bundle->library; // another thread loaded it first
            }
            else
            {
                bundle->library = library;
            }
        }

        bool bind = false;
        {
            std::lock_guard<std::mutex> lock(bundle->libraryMutex);
            if (bundle->boundContext != context.get())
            {
                bundle->boundContext = context.get();
                bind = true;
            }
        }
        if (bind)
        {
            auto setter = reinterpret_cast<SetContextFn>(library.findSymbol(SetterName(*bundle)));
            if (setter == nullptr)
            {
                core->ReportWarning(bundle,
                                    bundle->Describe() + " has no " + SetterName(*bundle)
                                        + " symbol; GetBundleContext() will not work in it");
            }
            else
            {
                setter(context.get());
            }
        }
        return library;
    }

    void
    BundleLibrary::Unbind(BundlePrivate& bundle)
    {
        storage::sharedlib::SharedLibrary library;
        {
            std::lock_guard<std::mutex> lock(bundle.libraryMutex);
            if (!bundle.library || bundle.boundContext == nullptr)
            {
                return;
            }
            bundle.boundContext = nullptr;
            library = bundle.library;
        }
        if (auto setter = reinterpret_cast<SetContextFn>(library.findSymbol(SetterName(bundle))))
        {
            setter(nullptr);
        }
    }
} // namespace cppmicroservices
