// spf-host: runs the legacy service publisher in a framework of its own with Declarative
// Services, Configuration Admin and the platform bundles, until SIGINT or SIGTERM.

#include "ConfigFolder.h"
#include "Host.h"
#include "HostLogger.h"

#include "apps/common/TerminationSignals.h"

#include "foundation/log/Severity.h"

#include <CLI/CLI.hpp>

#include <cppmicroservices/cm/ConfigurationAdmin.hpp>

#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace {

using foundation::log::severity::info;

// Each level shows its own records and those of the levels before it.
const std::map<std::string, std::uint32_t> kLogLevels = {
    {"error", foundation::log::severity::error | foundation::log::severity::exception},
    {"warning", 0x112},
    {"info", 0x116},
    {"debug", 0x11e},
    {"trace", 0x11f},
};

// An ipc:// socket of this process in the user's runtime folder.
std::string defaultListenUrl() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string folder = runtime != nullptr && runtime[0] == '/' ? runtime : "/tmp";
    return "ipc://" + folder + "/spf-host-" + std::to_string(::getpid()) + ".ipc";
}

std::shared_ptr<cppmicroservices::service::cm::ConfigurationAdmin> configurationAdmin(
    const cppmicroservices::BundleContext& context) {
    auto reference = context.GetServiceReference<cppmicroservices::service::cm::ConfigurationAdmin>();
    if (!reference) {
        throw std::runtime_error("Configuration Admin is not running: is its bundle in the bundle folders?");
    }
    return context.GetService(reference);
}

}  // namespace

int main(int argc, char** argv) {
    const apps::common::TerminationSignals signals;

    CLI::App app("Runs the legacy service publisher with the platform bundles until SIGINT or SIGTERM.", "spf-host");
    std::vector<std::string> bundleFolders;
    std::string configFolder;
    std::string logLevel = "info";
    app.add_option("--bundles", bundleFolders,
                   "A folder whose bundles are installed and started (repeatable; default: " SPF_HOST_BUNDLE_DIR ")");
    app.add_option("--config-dir", configFolder,
                   "A folder of publisher configurations, qz.spf.legacyservicepublisher~<name>.json, kept in force");
    app.add_option("--log-level", logLevel, "error, warning, info, debug or trace (default: info)")
        ->check(CLI::IsMember({"error", "warning", "info", "debug", "trace"}));
    std::string listen = defaultListenUrl();
    std::string name = "spf-host";
    std::string registry;
    bool noListen = false;
    app.add_option("--listen", listen,
                   "Where other processes join the host's exchange; it is entered in the agent registry "
                   "(desktopservices) under --name (default: " + listen + ")");
    app.add_flag("--no-listen", noListen, "The host's exchange stays in the process");
    app.add_option("--name", name, "The host's name in the agent registry (default: spf-host)");
    app.add_option("--registry", registry, "The agent registry folder to use instead of the default");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }
    if (app.count("--log-level") != 0 || std::getenv("FOUNDATION_LOG_MASK") == nullptr) {
        // Read by every logger made from here on, the bundles' included.
        ::setenv("FOUNDATION_LOG_MASK", std::to_string(kLogLevels.at(logLevel)).c_str(), 1);
    }
    if (bundleFolders.empty()) {
        bundleFolders.push_back(SPF_HOST_BUNDLE_DIR);
    }

    std::map<std::string, std::string> properties;
    if (!noListen) {
        properties = {{"agent.spf.serviceHostExchange.listen", listen},
                      {"agent.spf.serviceHostExchange.name", name},
                      {"agent.spf.serviceHostExchange.registry", registry}};
    }

    try {
        spfhost::Host host(std::vector<std::filesystem::path>(bundleFolders.begin(), bundleFolders.end()),
                           properties);
        std::optional<spfhost::ConfigFolder> configurations;
        if (!configFolder.empty()) {
            configurations.emplace(configFolder, configurationAdmin(host.context()));
        }
        std::cout << "ready" << std::endl;
        const int received = signals.wait();
        FOUNDATION_LOG(spfhost::logger(), info) << "Stopping on " << ::strsignal(received);
        configurations.reset();
        host.stop();
        return host.stoppedCleanly() ? 0 : 1;
    } catch (const std::exception& e) {
        std::cerr << "spf-host: " << e.what() << "\n";
        return 1;
    }
}
