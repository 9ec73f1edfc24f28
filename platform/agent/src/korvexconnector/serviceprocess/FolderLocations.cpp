#include "korvexconnector/serviceprocess/FolderLocations.h"

#include "utils/RegistryBaseFolder.h"

#include <stdexcept>

namespace korvexconnector::serviceprocess {

FolderLocations::FolderLocations(const boost::optional<std::u16string>& userStorageRootOverride,
                                 const boost::optional<std::filesystem::path>& lockRootOverride,
                                 const std::string& realmName) {
    if (!agent::utils::isSingleFolderName(realmName)) {
        throw std::invalid_argument("Desktop services realm name must be a single folder name");
    }
    auto base = agent::utils::registryBaseFolder(userStorageRootOverride);
    lockRoot_ = lockRootOverride ? *lockRootOverride : base / "desktopservices" / realmName / "agents";
}

}  // namespace korvexconnector::serviceprocess
