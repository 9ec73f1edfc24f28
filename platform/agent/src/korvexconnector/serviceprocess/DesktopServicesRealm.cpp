#include "korvexconnector/serviceprocess/DesktopServicesRealm.h"

#include "control/ControlLogger.h"
#include "utils/RegistryBaseFolder.h"

#include <cstdlib>
#include <utility>

namespace korvexconnector::serviceprocess {

namespace {

// The realm every process uses; instance() hands out references to it.
class ProcessRealm final : public DesktopServicesRealm {
public:
    explicit ProcessRealm(std::string name) : DesktopServicesRealm(std::move(name)) {}
};

}  // namespace

DesktopServicesRealm::DesktopServicesRealm(std::string name) : name_(std::move(name)) {}

std::string DesktopServicesRealm::name() const {
    return name_;
}

DesktopServicesRealm& DesktopServicesRealm::instance() {
    // Never destroyed: agents may still ask for it from static destructors and late threads.
    static auto* realm = new ProcessRealm(nameFromEnvironment());
    return *realm;
}

std::string DesktopServicesRealm::nameFromEnvironment() {
    const char* value = std::getenv(kEnvironmentVariable);
    if (value == nullptr) {
        return kDefaultName;
    }
    if (!agent::utils::isSingleFolderName(value)) {
        FOUNDATION_LOG(agent::control::controlLogger(), foundation::log::severity::warning)
            << kEnvironmentVariable << " \"" << value << "\" is not a single folder name; using the realm \""
            << kDefaultName << "\"";
        return kDefaultName;
    }
    return value;
}

}  // namespace korvexconnector::serviceprocess
