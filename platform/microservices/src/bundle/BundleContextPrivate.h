#ifndef CPPMICROSERVICES_SRC_BUNDLE_BUNDLECONTEXTPRIVATE_H
#define CPPMICROSERVICES_SRC_BUNDLE_BUNDLECONTEXTPRIVATE_H

#include <atomic>
#include <memory>

namespace cppmicroservices
{
    class BundlePrivate;
    class CoreBundleContext;

    // One activation of a bundle. Valid from the start of the activation
    // until the bundle stops; public BundleContext handles share it. It refers
    // to its bundle weakly, so a context held by bundle code never keeps the
    // framework alive.
    class BundleContextPrivate : public std::enable_shared_from_this<BundleContextPrivate>
    {
      public:
        explicit BundleContextPrivate(std::weak_ptr<BundlePrivate> bundle);

        bool
        IsValid() const
        {
            return valid.load();
        }
        void
        Invalidate()
        {
            valid.store(false);
        }

        // The bundle and framework, held for the duration of one call.
        struct Pinned
        {
            std::shared_ptr<BundlePrivate> bundle;
            std::shared_ptr<CoreBundleContext> core;
        };

        // Throws std::runtime_error("The bundle context is no longer valid")
        // when invalid or when the framework is gone.
        Pinned Pin() const;
        // As Pin, but returns false instead of throwing.
        bool TryPin(Pinned& out) const;

        std::weak_ptr<BundlePrivate> const bundle;

      private:
        std::atomic<bool> valid{ true };
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_BUNDLE_BUNDLECONTEXTPRIVATE_H
