// spf-host: runs the legacy service publisher in a framework of its own with Declarative
// Services, Configuration Admin and the platform bundles, until SIGINT or SIGTERM; or, as
// `spf-host ctl`, sends one console command to a running host.

#include "Console.h"
#include "ControlSocket.h"
#include "Host.h"
#include "HostLogger.h"
#include "LineEditor.h"

#include "apps/common/TerminationSignals.h"

#include "foundation/log/Severity.h"

#include <CLI/CLI.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
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

// The user's runtime folder, or a folder of the user's own under /tmp.
std::filesystem::path runtimeFolder() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && runtime[0] == '/') {
        return runtime;
    }
    const auto folder = std::filesystem::temp_directory_path() / ("spf-host-" + std::to_string(::getuid()));
    ::mkdir(folder.c_str(), 0700);
    return folder;
}

// The bundles installed beside the program: the same relative path leads there from bin/ in the
// build tree and in an installation, wherever either was moved.
std::filesystem::path defaultBundleFolder() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return (program.parent_path() / SPF_HOST_BUNDLE_DIR_FROM_BIN).lexically_normal();
}

std::filesystem::path defaultControlPath(const std::string& name) {
    return runtimeFolder() / (name + ".control");
}

struct Options {
    std::vector<std::string> bundleFolders;
    std::string configFolder;
    std::string logLevel = "info";
    std::string listen;
    bool noListen = false;
    std::string name = "spf-host";
    std::string registry;
    std::string control;
    std::vector<std::string> exec;
};

// Runs the console on the terminal until end of input or a termination signal.
void runInteractively(const spfhost::Console& console, const apps::common::TerminationSignals& signals) {
    int wake[2];
    if (::pipe(wake) != 0) {
        throw std::runtime_error("Cannot make a pipe for the console");
    }
    std::atomic<bool> consoleEnded{false};
    std::thread waiter([&signals, &wake, &consoleEnded] {
        const int received = signals.wait();
        if (consoleEnded) {
            FOUNDATION_LOG(spfhost::logger(), info) << "Stopping: the console ended";
        } else {
            FOUNDATION_LOG(spfhost::logger(), info) << "Stopping on " << ::strsignal(received);
        }
        const char byte = 0;
        [[maybe_unused]] const auto ignored = ::write(wake[1], &byte, 1);
    });
    {
        spfhost::LineEditor editor("spf-host", wake[0]);
        std::cout << "Type help for the commands, Ctrl-D to stop the host." << std::endl;
        while (const auto line = editor.readLine()) {
            if (*line == "quit" || *line == "exit") {
                break;
            }
            console.execute(*line, std::cout);
            std::cout.flush();
        }
    }
    // Ended by the user: the waiter is released the way a signal would.
    std::cout << std::endl;
    consoleEnded = true;
    ::kill(::getpid(), SIGTERM);
    waiter.join();
    ::close(wake[0]);
    ::close(wake[1]);
}

int runHost(const Options& options, const apps::common::TerminationSignals& signals) {
    std::vector<std::filesystem::path> folders{defaultBundleFolder()};
    folders.insert(folders.end(), options.bundleFolders.begin(), options.bundleFolders.end());
    std::map<std::string, std::string> properties;
    std::optional<std::filesystem::path> configurationFolder;
    if (!options.configFolder.empty()) {
        // Configuration Admin keeps the folder's files in force from its start.
        configurationFolder = std::filesystem::absolute(options.configFolder);
        std::filesystem::create_directories(*configurationFolder);
        properties["org.cppmicroservices.cm.configuration.directory"] = configurationFolder->string();
    }
    if (!options.noListen) {
        properties["agent.spf.serviceHostExchange.listen"] =
            options.listen.empty() ? "ipc://" + (runtimeFolder() / (options.name + ".ipc")).string() : options.listen;
        properties["agent.spf.serviceHostExchange.name"] = options.name;
        properties["agent.spf.serviceHostExchange.registry"] = options.registry;
    }

    spfhost::Host host(folders, properties);
    const spfhost::Console console(host.context(), configurationFolder);
    int status = 0;
    {
        // Without its control socket the host still runs; only spf-host ctl cannot reach it.
        std::optional<spfhost::ControlSocket> control;
        try {
            control.emplace(options.control.empty() ? defaultControlPath(options.name)
                                                    : std::filesystem::path(options.control),
                            console);
        } catch (const std::exception& e) {
            FOUNDATION_LOG(spfhost::logger(), foundation::log::severity::warning) << e.what();
        }
        if (!options.exec.empty()) {
            for (const auto& command : options.exec) {
                if (!console.execute(command, std::cout)) {
                    status = 1;
                }
            }
        } else if (::isatty(STDIN_FILENO)) {
            runInteractively(console, signals);
        } else {
            std::cout << "ready" << std::endl;
            const int received = signals.wait();
            FOUNDATION_LOG(spfhost::logger(), info) << "Stopping on " << ::strsignal(received);
        }
    }
    host.stop();
    return host.stoppedCleanly() ? status : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const apps::common::TerminationSignals signals;

    CLI::App app("Runs the legacy service publisher with the platform bundles until SIGINT or SIGTERM.\n"
                 "On a terminal it takes console commands; `spf-host ctl COMMAND` sends one to a running host.",
                 "spf-host");
    Options options;
    app.add_option("--bundles", options.bundleFolders,
                   "A folder whose bundles are installed and started after those of " +
                       defaultBundleFolder().string() + " (repeatable)");
    app.add_option("--config-dir", options.configFolder,
                   "A folder of publisher configurations, qz.spf.legacyservicepublisher~<name>.json, kept in force");
    app.add_option("--log-level", options.logLevel, "error, warning, info, debug or trace (default: info)")
        ->check(CLI::IsMember({"error", "warning", "info", "debug", "trace"}));
    app.add_option("--listen", options.listen,
                   "Where other processes join the host's exchange, entered in the agent registry "
                   "(desktopservices) under --name (default: ipc://<runtime folder>/<name>.ipc)");
    app.add_flag("--no-listen", options.noListen, "The host's exchange stays in the process");
    app.add_option("--name", options.name, "The host's name in the agent registry and of its control socket "
                                           "(default: spf-host)");
    app.add_option("--registry", options.registry, "The agent registry folder to use instead of the default");
    app.add_option("--control", options.control,
                   "The control socket (default: <runtime folder>/<name>.control)");
    app.add_option("--exec", options.exec,
                   "Runs a console command once the host is up (repeatable), then stops; the exit status says "
                   "whether every command succeeded");
    auto* ctl = app.add_subcommand("ctl", "Sends COMMAND to the host at --control (or of --name) and prints its answer");
    std::string ctlControl;
    std::string ctlName = "spf-host";
    ctl->add_option("--control", ctlControl, "The host's control socket");
    ctl->add_option("--name", ctlName, "The host's name, when --control is not given (default: spf-host)");
    ctl->prefix_command();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }

    if (ctl->parsed()) {
        const auto words = ctl->remaining();
        if (words.empty()) {
            std::cerr << "spf-host ctl: a COMMAND is needed\n";
            return 2;
        }
        std::string command;
        for (const auto& word : words) {
            // Each word was one argument of the shell: quoted again so that the console splits it the
            // same (a word that holds a single quote cannot be, and goes as it is).
            const bool plain = word.find_first_of(" \t'\"") == std::string::npos || word.find('\'') != std::string::npos;
            command += (command.empty() ? "" : " ") + (plain ? word : "'" + word + "'");
        }
        try {
            const auto path = ctlControl.empty() ? defaultControlPath(ctlName) : std::filesystem::path(ctlControl);
            return spfhost::ControlSocket::send(path,
                                                command, std::cout)
                       ? 0
                       : 1;
        } catch (const std::exception& e) {
            std::cerr << "spf-host ctl: " << e.what() << "\n";
            return 1;
        }
    }

#ifdef SPF_HOST_WITHOUT_CONFIGURATION_FOLDER
    // Built against an installed CppMicroServices: its Configuration Admin watches no folder, and a
    // folder nobody reads would leave the host running unconfigured without a word.
    if (!options.configFolder.empty()) {
        std::cerr << "spf-host: --config-dir needs the Configuration Admin of this repository's runtime; this host "
                     "runs an installed CppMicroServices, whose Configuration Admin reads no configuration folder\n";
        return 2;
    }
#endif
    if (app.count("--log-level") != 0 || std::getenv("FOUNDATION_LOG_MASK") == nullptr) {
        // Read by every logger made from here on, the bundles' included.
        ::setenv("FOUNDATION_LOG_MASK", std::to_string(kLogLevels.at(options.logLevel)).c_str(), 1);
    }
    try {
        return runHost(options, signals);
    } catch (const std::exception& e) {
        std::cerr << "spf-host: " << e.what() << "\n";
        return 1;
    }
}
