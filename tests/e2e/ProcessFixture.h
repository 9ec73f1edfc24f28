#pragma once

#include "support/ChildProcess.h"
#include "support/ContainerSupport.h"
#include "support/NotificationLog.h"

#include "agent/core/container/ServiceContainer.h"
#include "agent/core/transport/ReplyFuture.h"
#include "agent/directory/DirectoryServiceClient.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

namespace e2e {

using testsupport::ChildProcess;
using testsupport::Clock;
using testsupport::NotificationLog;
using testsupport::deadline;
using testsupport::outcome;
using namespace std::chrono_literals;

// Runs a program to its end and returns {wait status, stdout, stderr}.
inline std::tuple<int, std::string, std::string> runToEnd(const std::string& program,
                                                          const std::vector<std::string>& arguments) {
    ChildProcess child(program, arguments, ChildProcess::Stderr::Capture);
    auto out = child.readRemainingStdout(deadline());
    auto err = child.readRemainingStderr(deadline());
    const auto status = child.waitForExit(deadline());
    return {status.value_or(-1), out, err};
}

// agent-exchange and legacy-agent as real processes on ipc:// paths in a temporary folder of their
// own. The destructor ends them, agents before exchanges so that each agent can take leave of its
// exchange (ChildProcesses::endAll fails the test when one does not exit cleanly), and removes the
// folder. Also what the publisher's end-to-end tests start their exchanges with.
class Processes {
public:
    Processes() {
        char pattern[] = "/tmp/lsp-e2e-XXXXXX";
        if (::mkdtemp(pattern) == nullptr) throw std::runtime_error("Cannot make a temporary folder");
        folder_ = pattern;
    }
    ~Processes() {
        agents_.endAll(deadline(15s));
        exchanges_.endAll(deadline(15s));
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string endpoint(const std::string& name = "exchange") const {
        return "ipc://" + folder_ + "/" + name + ".sock";
    }
    std::string registry() const { return folder_ + "/registry"; }

    // Starts agent-exchange entered in registry() and returns the URL it printed. Throws when it
    // does not say "listening <url>" in time.
    std::string startExchange(const std::string& name, const std::string& requested,
                              std::vector<std::string> extra = {}) {
        extra.insert(extra.begin(), {"--name", name, "--endpoint", requested, "--registry", registry()});
        return exchanges_.start(AGENT_EXCHANGE_PATH, extra, "listening ").second.substr(10);
    }
    ChildProcess& exchange(std::size_t index = 0) { return exchanges_.at(index); }

    // Starts legacy-agent and waits for "ready" (its services are in the directory).
    ChildProcess& startLegacyAgent(const std::string& url, std::vector<std::string> extra = {}) {
        extra.insert(extra.begin(), {"--exchange", url});
        return *agents_.start(LEGACY_AGENT_PATH, extra, "ready").first;
    }

protected:
    std::string folder_;

private:
    testsupport::ChildProcesses exchanges_;
    testsupport::ChildProcesses agents_;
};

// The processes, and a client of the test process (a container and its directory client) on an
// exchange; members go before the processes.
class ProcessFixture : public ::testing::Test, protected Processes {
protected:
    // A directory client of the test process on the exchange at `url` (made on first use).
    agent::directory::DirectoryServiceClient& client(const std::string& url) {
        if (!client_) {
            container_ = testsupport::makeContainer(url);
            client_ = std::make_unique<agent::directory::DirectoryServiceClient>(
                container_->createContext(container_->generateServiceInstance()), 5000ms);
        }
        return *client_;
    }
    // Subscribes a new log through client(url); the fixture keeps the log until the
    // client is gone, so no callback outlives it.
    NotificationLog& subscribe(const std::string& url, agent::directory::DirectoryServiceClient::CallbackMode mode) {
        client(url).registerForCallbacks(logs_.emplace_back(std::make_unique<NotificationLog>())->callback(), mode,
                                         boost::none, boost::none);
        return *logs_.back();
    }
    void endClient() {
        client_.reset();
        container_.reset();
    }

private:
    // Before the client: members go in reverse order, and callbacks write to these.
    std::vector<std::unique_ptr<NotificationLog>> logs_;
    std::shared_ptr<agent::core::container::ServiceContainer> container_;
    std::unique_ptr<agent::directory::DirectoryServiceClient> client_;
};

}  // namespace e2e
