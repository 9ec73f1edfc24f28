#include "bundle/BundleRegistry.h"

#include "bundle/BundlePrivate.h"
#include "bundle/EmbeddedManifest.h"
#include "bundle/ManifestParser.h"
#include "framework/CoreBundleContext.h"

#include "cppmicroservices/Constants.h"

#include <stdexcept>

namespace cppmicroservices
{
    BundleRegistry::BundleRegistry(CoreBundleContext& core) : core(core) {}

    void
    BundleRegistry::AddSystemBundle(std::shared_ptr<BundlePrivate> const& system)
    {
        std::lock_guard<std::mutex> lock(bundlesMutex);
        bundles.emplace(system->id, system);
    }

    std::vector<std::shared_ptr<BundlePrivate>>
    BundleRegistry::Install(std::string const& location,
                            AnyMap const& manifests,
                            std::vector<std::shared_ptr<BundlePrivate>>& newlyInstalled)
    {
        {
            std::lock_guard<std::mutex> lock(bundlesMutex);
            auto existing = ByLocationLocked(location);
            if (!existing.empty())
            {
                return existing;
            }
        }

        // Read and check every manifest before installing any bundle.
        std::vector<AnyMap> headerSets;
        if (manifests.empty())
        {
            headerSets.push_back(ManifestParser::Parse(EmbeddedManifest::Read(location), location));
        }
        else
        {
            for (auto const& [bsn, manifest] : manifests)
            {
                if (manifest.Type() != typeid(AnyMap))
                {
                    throw std::invalid_argument("Failed to install bundle library at location " + location
                                                + ": the manifest given for '" + bsn + "' is not an AnyMap");
                }
                AnyMap headers(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS);
                for (auto const& [key, value] : ref_any_cast<AnyMap>(manifest))
                {
                    headers.emplace(key, value);
                }
                if (headers.count(Constants::BUNDLE_SYMBOLICNAME) == 0)
                {
                    headers.emplace(Constants::BUNDLE_SYMBOLICNAME, Any(bsn));
                }
                headerSets.push_back(std::move(headers));
            }
        }
        std::vector<ManifestParser::Identity> identities;
        for (auto const& headers : headerSets)
        {
            identities.push_back(ManifestParser::Validate(headers, location));
        }

        std::lock_guard<std::mutex> lock(bundlesMutex);
        auto existing = ByLocationLocked(location);
        if (!existing.empty())
        {
            return existing; // installed by another thread meanwhile
        }
        for (std::size_t i = 0; i < identities.size(); ++i)
        {
            for (auto const& [id, bundle] : bundles)
            {
                if (bundle->symbolicName == identities[i].symbolicName)
                {
                    throw std::invalid_argument("Failed to install bundle library at location " + location
                                                + ": a bundle with symbolic name '" + bundle->symbolicName
                                                + "' is already installed from " + bundle->location);
                }
            }
            for (std::size_t j = 0; j < i; ++j)
            {
                if (identities[j].symbolicName == identities[i].symbolicName)
                {
                    throw std::invalid_argument("Failed to install bundle library at location " + location
                                                + ": the symbolic name '" + identities[i].symbolicName
                                                + "' is given twice");
                }
            }
        }
        std::vector<std::shared_ptr<BundlePrivate>> result;
        for (std::size_t i = 0; i < identities.size(); ++i)
        {
            auto bundle = std::make_shared<BundlePrivate>(core.weak_from_this(),
                                                          nextId++,
                                                          location,
                                                          identities[i].symbolicName,
                                                          identities[i].version,
                                                          std::move(headerSets[i]));
            bundles.emplace(bundle->id, bundle);
            result.push_back(bundle);
        }
        newlyInstalled = result;
        return result;
    }

    std::shared_ptr<BundlePrivate>
    BundleRegistry::Get(long id) const
    {
        std::lock_guard<std::mutex> lock(bundlesMutex);
        auto it = bundles.find(id);
        return it == bundles.end() ? nullptr : it->second;
    }

    std::vector<std::shared_ptr<BundlePrivate>>
    BundleRegistry::GetAll() const
    {
        std::vector<std::shared_ptr<BundlePrivate>> result;
        std::lock_guard<std::mutex> lock(bundlesMutex);
        result.reserve(bundles.size());
        for (auto const& [id, bundle] : bundles)
        {
            result.push_back(bundle);
        }
        return result;
    }

    std::vector<std::shared_ptr<BundlePrivate>>
    BundleRegistry::GetByLocation(std::string const& location) const
    {
        std::lock_guard<std::mutex> lock(bundlesMutex);
        return ByLocationLocked(location);
    }

    void
    BundleRegistry::Remove(long id)
    {
        std::lock_guard<std::mutex> lock(bundlesMutex);
        bundles.erase(id);
    }

    std::vector<std::shared_ptr<BundlePrivate>>
    BundleRegistry::ByLocationLocked(std::string const& location) const
    {
        std::vector<std::shared_ptr<BundlePrivate>> result;
        for (auto const& [id, bundle] : bundles)
        {
            if (bundle->location == location)
            {
                result.push_back(bundle);
            }
        }
        return result;
    }
} // namespace cppmicroservices
