#include "agent/utils/FolderLocations.h"

#include "utils/RegistryBaseFolder.h"

namespace agent::utils {

FolderLocations::FolderLocations(const boost::optional<std::u16string>& userStorageRootOverride,
                                 const boost::optional<std::filesystem::path>& lockRootOverride) {
    // The user storage override is still checked when the lock root override makes it moot,
    // so a bad configuration shows up whichever combination is used.
    auto base = registryBaseFolder(userStorageRootOverride);
    lockRoot_ = lockRootOverride ? *lockRootOverride : base / "korvexdrive" / "agents";
}

}  // namespace agent::utils
