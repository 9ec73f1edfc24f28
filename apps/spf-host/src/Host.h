#pragma once

#include <cppmicroservices/Bundle.h>
#include <cppmicroservices/BundleContext.h>
#include <cppmicroservices/Framework.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <vector>

namespace spfhost {

// The framework of the host, running from construction to destruction: Declarative Services
// and Configuration Admin first, then every other bundle of the folders in order (a library
// in them that is no bundle is passed over). Storage lives in a temporary folder of its own.
class Host {
public:
    // Throws std::runtime_error naming the folder or bundle that cannot be used.
    explicit Host(const std::vector<std::filesystem::path>& bundleFolders);
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
    std::filesystem::path storage_;
    std::optional<cppmicroservices::Framework> framework_;
    std::vector<cppmicroservices::Bundle> bundles_;
    bool stopped_ = false;
    bool stoppedCleanly_ = false;
};

}  // namespace spfhost
