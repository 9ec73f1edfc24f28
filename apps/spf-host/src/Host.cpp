#include "Host.h"

#include "HostLogger.h"

#include "foundation/log/Severity.h"

#include <cppmicroservices/Constants.h>
#include <cppmicroservices/FrameworkEvent.h>
#include <cppmicroservices/FrameworkFactory.h>

#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>

namespace spfhost {

using foundation::log::severity::debug;
using foundation::log::severity::error;
using foundation::log::severity::info;
using foundation::log::severity::warning;

namespace {

// The shared libraries of the folders, each once, folder by folder in name order.
std::vector<std::filesystem::path> librariesIn(const std::vector<std::filesystem::path>& folders) {
    std::vector<std::filesystem::path> libraries;
    std::set<std::filesystem::path> seen;
    for (const auto& folder : folders) {
        if (!std::filesystem::is_directory(folder)) {
            throw std::runtime_error("Bundle folder " + folder.string() + " does not exist");
        }
        std::vector<std::filesystem::path> here;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (entry.path().extension() == ".so" && entry.is_regular_file()) {
                here.push_back(entry.path());
            }
        }
        std::sort(here.begin(), here.end());
        for (const auto& library : here) {
            if (seen.insert(std::filesystem::canonical(library)).second) {
                libraries.push_back(library);
            }
        }
    }
    return libraries;
}

// Declarative Services and Configuration Admin start first, so that every other bundle's
// components and configurations are handled from its start; the publisher starts last, so that
// it stops first and releases the bundles that wait in publishService for a configuration.
int startRank(const cppmicroservices::Bundle& bundle) {
    const auto name = bundle.GetSymbolicName();
    if (name == "declarative_services" || name == "configuration_admin") {
        return 0;
    }
    return name == "com_norbridge_agentspflegacyservicepublisher" ? 2 : 1;
}

const std::set<std::string> kHostBundles = {
    "declarative_services",       "configuration_admin",     "spf_invokablepublisher",
    "spf_serialisationcatalogue", "spf_threadpoolprovider",  "spf_inprocessdiscovery",
    "com_norbridge_agentspflegacyservicepublisher"};

std::string stillRunning(const std::vector<cppmicroservices::Bundle>& bundles) {
    std::ostringstream names;
    for (const auto& bundle : bundles) {
        const auto state = bundle.GetState();
        if (state == cppmicroservices::Bundle::STATE_STOPPING || state == cppmicroservices::Bundle::STATE_ACTIVE) {
            names << (names.tellp() > 0 ? ", " : "") << bundle.GetSymbolicName();
        }
    }
    return names.str();
}

}  // namespace

Host::Host(const std::vector<std::filesystem::path>& bundleFolders,
           const std::map<std::string, std::string>& properties) {
    const auto libraries = librariesIn(bundleFolders);
    storage_ = std::filesystem::temp_directory_path() /
               ("spf-host-" + std::to_string(::getpid()) + "-" + std::to_string(std::random_device()()));
    cppmicroservices::FrameworkConfiguration configuration{
        {cppmicroservices::Constants::FRAMEWORK_STORAGE, storage_.string()}};
    for (const auto& [key, value] : properties) {
        configuration[key] = value;
    }
    framework_.emplace(cppmicroservices::FrameworkFactory().NewFramework(configuration));
    framework_->Start();
    auto context = framework_->GetBundleContext();
    for (const auto& library : libraries) {
        try {
            for (auto& bundle : context.InstallBundles(library.string())) {
                bundles_.push_back(bundle);
            }
        } catch (const std::exception& e) {
            FOUNDATION_LOG(logger(), debug) << "Passing over " << library.string() << ": " << e.what();
        }
    }
    std::stable_sort(bundles_.begin(), bundles_.end(),
                     [](const auto& a, const auto& b) { return startRank(a) < startRank(b); });
    auto missing = kHostBundles;
    for (auto& bundle : bundles_) {
        const auto name = bundle.GetSymbolicName();
        try {
            bundle.Start();
            missing.erase(name);
            FOUNDATION_LOG(logger(), debug) << "Started bundle " << name;
        } catch (const std::exception& e) {
            if (kHostBundles.count(name) != 0) {
                giveUp("Bundle " + name + " did not start: " + e.what());
            }
            FOUNDATION_LOG(logger(), error) << "Bundle " << name << " did not start: " << e.what();
        }
    }
    if (!missing.empty()) {
        giveUp("The bundle folders lack the bundle " + *missing.begin());
    }
}

void Host::giveUp(const std::string& why) {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(storage_, ignored);
    throw std::runtime_error(why);
}

Host::~Host() {
    stop();
    std::error_code ignored;
    std::filesystem::remove_all(storage_, ignored);
}

void Host::stop() {
    if (stopped_) {
        return;
    }
    stopped_ = true;
    framework_->Stop();
    auto event = framework_->WaitForStop(std::chrono::seconds(1));
    if (event.GetType() == cppmicroservices::FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT) {
        FOUNDATION_LOG(logger(), warning) << "Waiting for bundles to stop: " << stillRunning(bundles_);
        event = framework_->WaitForStop(stopTimeout - std::chrono::seconds(1));
    }
    stoppedCleanly_ = event.GetType() != cppmicroservices::FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT;
    if (!stoppedCleanly_) {
        FOUNDATION_LOG(logger(), error) << "Gave up waiting for bundles to stop: " << stillRunning(bundles_);
    }
}

}  // namespace spfhost
