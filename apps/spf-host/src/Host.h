#pragma once

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <optional>
#include <vector>

namespace spfhost {

// The framework of the host, running from construction to destruction: Declarative Services
// and Configuration Admin first, then every other bundle of the folders in order (a library
// in them that is no bundle is passed over). Storage lives in a temporary folder of its own.
class Host {
public:
    // `properties` are the framework's. Throws std::runtime_error naming the folder that
    // cannot be read, or the bundle of the host's own set (Declarative Services, Configuration
    // Admin, the platform bundles, the publisher) that is missing or does not start; other
    // bundles that do not start are logged and left.
    Host(const std::vector<std::filesystem::path>& bundleFolders, const std::map<std::string, std::string>& properties);
    // Stops the framework; says on the log which bundles it waits for when that takes more
    // than a second, and gives up after `stopTimeout`.
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    cppmicroservices::BundleContext context() const { return framework_->GetBundleContext(); }
    // True once the framework stopped within its time.
    bool stoppedCleanly() const noexcept { return stoppedCleanly_; }
    void stop();

    static constexpr std::chrono::seconds stopTimeout{30};

private:
    // For the constructor: stops what started and throws std::runtime_error(why).
    [[noreturn]] void giveUp(const std::string& why);

    std::filesystem::path storage_;
    std::optional<cppmicroservices::Framework> framework_;
    std::vector<cppmicroservices::Bundle> bundles_;
    bool stopped_ = false;
    bool stoppedCleanly_ = false;
};

}  // namespace spfhost
