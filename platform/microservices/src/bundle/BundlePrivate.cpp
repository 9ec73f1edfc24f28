#include "bundle/BundlePrivate.h"

#include "bundle/BundleContextPrivate.h"

#include <stdexcept>

namespace cppmicroservices
{
    BundlePrivate::BundlePrivate(std::weak_ptr<CoreBundleContext> core,
                                 long id,
                                 std::string location,
                                 std::string symbolicName,
                                 BundleVersion version,
                                 AnyMap headers)
        : core(std::move(core))
        , id(id)
        , location(std::move(location))
        , symbolicName(std::move(symbolicName))
        , version(std::move(version))
        , headers(std::move(headers))
        , installTime(std::chrono::steady_clock::now())
        , state(Bundle::STATE_INSTALLED)
    {
    }

    BundlePrivate::~BundlePrivate() = default;

    std::string
    BundlePrivate::Describe() const
    {
        return "Bundle " + symbolicName + " (location=" + location + ")";
    }

    std::shared_ptr<BundleContextPrivate>
    BundlePrivate::CurrentContext() const
    {
        std::lock_guard<std::mutex> lock(contextMutex);
        return context;
    }

    std::shared_ptr<BundleContextPrivate>
    BundlePrivate::NewContext()
    {
        auto fresh = std::make_shared<BundleContextPrivate>(weak_from_this());
        std::lock_guard<std::mutex> lock(contextMutex);
        if (context)
        {
            context->Invalidate();
            retiredContexts.push_back(std::move(context));
        }
        context = fresh;
        return fresh;
    }

    void
    BundlePrivate::RetireContext()
    {
        std::lock_guard<std::mutex> lock(contextMutex);
        if (context)
        {
            context->Invalidate();
            retiredContexts.push_back(std::move(context));
            context.reset();
        }
    }

    BundlePrivate::Operation::Operation(BundlePrivate& bundle) : bundle(bundle)
    {
        std::unique_lock<std::mutex> lock(bundle.operationMutex);
        auto const self = std::this_thread::get_id();
        if (bundle.operationOwner == self)
        {
            throw std::logic_error(bundle.Describe()
                                   + ": cannot be started or stopped from within its own start or stop");
        }
        bundle.operationDone.wait(lock, [&] { return bundle.operationOwner == std::thread::id(); });
        bundle.operationOwner = self;
    }

    BundlePrivate::Operation::~Operation()
    {
        {
            std::lock_guard<std::mutex> lock(bundle.operationMutex);
            bundle.operationOwner = std::thread::id();
        }
        bundle.operationDone.notify_all();
    }
} // namespace cppmicroservices
