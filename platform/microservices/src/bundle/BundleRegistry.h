#ifndef CPPMICROSERVICES_SRC_BUNDLE_BUNDLEREGISTRY_H
#define CPPMICROSERVICES_SRC_BUNDLE_BUNDLEREGISTRY_H

#include "cppmicroservices/AnyMap.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cppmicroservices
{
    class BundlePrivate;
    class CoreBundleContext;

    // The installed bundles of one framework, by id. Any thread; reads the
    // bundle file and parses its manifest without a lock held.
    class BundleRegistry
    {
      public:
        explicit BundleRegistry(CoreBundleContext& core);

        void AddSystemBundle(std::shared_ptr<BundlePrivate> const& system);

        // Installs the bundle at location, or returns the bundle already
        // installed from there. newlyInstalled receives the bundles this call
        // added, for the caller's BUNDLE_INSTALLED events. manifests, when not
        // empty, maps symbolic names to manifests used instead of the file's.
        // Throws as BundleContext::InstallBundles documents.
        std::vector<std::shared_ptr<BundlePrivate>> Install(std::string const& location,
                                                            AnyMap const& manifests,
                                                            std::vector<std::shared_ptr<BundlePrivate>>& newlyInstalled);

        std::shared_ptr<BundlePrivate> Get(long id) const;
        // All bundles, ordered by id (the system bundle first).
        std::vector<std::shared_ptr<BundlePrivate>> GetAll() const;
        std::vector<std::shared_ptr<BundlePrivate>> GetByLocation(std::string const& location) const;
        void Remove(long id);

      private:
        // Needs bundlesMutex held.
        std::vector<std::shared_ptr<BundlePrivate>> ByLocationLocked(std::string const& location) const;

        CoreBundleContext& core;
        mutable std::mutex bundlesMutex; // guards bundles and nextId
        std::map<long, std::shared_ptr<BundlePrivate>> bundles;
        long nextId = 1;
    };
} // namespace cppmicroservices

#endif // CPPMICROSERVICES_SRC_BUNDLE_BUNDLEREGISTRY_H
