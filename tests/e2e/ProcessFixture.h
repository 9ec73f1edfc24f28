#pragma once

#include "ChildProcess.h"
#include "NotificationLog.h"

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

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Generous: a deadline only exists so that a fault fails the test instead of hanging it.
inline Clock::time_point deadline(std::chrono::milliseconds in = 20s) {
    return Clock::now() + in;
}

// The outcome of a call: the reply's bytes, "error: <what>", or "no answer".
inline std::string outcome(agent::core::transport::ReplyFuture future, Clock::time_point until = deadline()) {
    if (future.wait_until(until) != std::future_status::ready) {
        return "no answer";
    }
    try {
        return std::string(future.get().asStringView());
    } catch (const std::exception& e) {
        return std::string("error: ") + e.what();
    }
}

// Runs a program to its end and returns {wait status, stdout, stderr}.
inline std::tuple<int, std::string, std::string> runToEnd(const std::string& program,
                                                          const std::vector<std::string>& arguments) {
    ChildProcess child(program, arguments, ChildProcess::Stderr::Capture);
    auto out = child.readRemainingStdout(deadline());
    auto err = child.readRemainingStderr(deadline());
    const auto status = child.waitForExit(deadline());
    return {status.value_or(-1), out, err};
}

// Runs agent-exchange and legacy-agent as real processes on ipc:// paths in a temporary
// folder of the test's own, with a client (a container of the test process and its
// directory client) on the exchange.
//
// TearDown ends every child still running with SIGTERM and expects it to exit 0 in time: a
// child that hangs on the way out, crashes, or has a sanitizer report fails the test.
class ProcessFixture : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/lsp-e2e-XXXXXX";
        if (::mkdtemp(pattern) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        folder_ = pattern;
    }

    void TearDown() override {
        endClient();
        // Agents before exchanges, so that each agent can take leave of its exchange.
        for (auto* children : {&agents_, &exchanges_}) {
            for (auto& child : *children) {
                if (!child->hasExited()) {
                    child->signal(SIGTERM);
                    const auto status = child->waitForExit(deadline(15s));
                    ASSERT_TRUE(status) << "child " << child->pid() << " did not end on SIGTERM";
                    EXPECT_EQ(ChildProcess::describe(*status), "exit status 0") << "child " << child->pid();
                }
            }
        }
        agents_.clear();
        exchanges_.clear();
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    std::string endpoint(const std::string& name = "exchange") const {
        return "ipc://" + folder_ + "/" + name + ".sock";
    }
    std::string registry() const { return folder_ + "/registry"; }

    // Starts agent-exchange and returns the URL it printed. Throws when it does not say
    // "listening <url>" in time.
    std::string startExchange(const std::string& name, const std::string& requested,
                              std::vector<std::string> extra = {}) {
        std::vector<std::string> arguments{"--name", name, "--endpoint", requested, "--registry", registry()};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        exchanges_.push_back(std::make_unique<ChildProcess>(AGENT_EXCHANGE_PATH, arguments));
        const auto line = exchanges_.back()->readLine(deadline());
        if (!line || line->rfind("listening ", 0) != 0) {
            throw std::runtime_error("agent-exchange said '" + line.value_or("<nothing>") + "'");
        }
        return line->substr(10);
    }
    ChildProcess& exchange(std::size_t index = 0) { return *exchanges_.at(index); }

    // Starts legacy-agent and waits for "ready" (its services are in the directory).
    ChildProcess& startLegacyAgent(const std::string& url, std::vector<std::string> extra = {}) {
        std::vector<std::string> arguments{"--exchange", url};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        agents_.push_back(std::make_unique<ChildProcess>(LEGACY_AGENT_PATH, arguments));
        const auto line = agents_.back()->readLine(deadline());
        if (line != "ready") {
            throw std::runtime_error("legacy-agent said '" + line.value_or("<nothing>") + "'");
        }
        return *agents_.back();
    }

    // A directory client of the test process on the exchange at `url` (made on first use).
    agent::directory::DirectoryServiceClient& client(const std::string& url) {
        if (!client_) {
            container_ = std::make_shared<agent::core::container::ServiceContainer>();
            container_->setNewMaximumPoolSize(8);
            container_->createTransport(agent::nanomsgtransport::getTransport(*container_, 5000ms, 5000ms));
            container_->connectTransport(url);
            client_ = std::make_unique<agent::directory::DirectoryServiceClient>(
                container_->createContext(container_->generateServiceInstance()), 5000ms);
        }
        return *client_;
    }
    // Subscribes a new log through client(url); the fixture keeps the log until the
    // client is gone, so no callback outlives it.
    NotificationLog& subscribe(const std::string& url, agent::directory::DirectoryServiceClient::CallbackMode mode,
                               const boost::optional<std::string>& serviceName = boost::none,
                               const boost::optional<std::map<std::string, std::string>>& metadata = boost::none) {
        logs_.push_back(std::make_unique<NotificationLog>());
        client(url).registerForCallbacks(logs_.back()->callback(), mode, serviceName, metadata);
        return *logs_.back();
    }
    void endClient() {
        client_.reset();
        container_.reset();
    }

    std::string folder_;

private:
    std::vector<std::unique_ptr<ChildProcess>> exchanges_;
    std::vector<std::unique_ptr<ChildProcess>> agents_;
    // Before the client: members go in reverse order, and callbacks write to these.
    std::vector<std::unique_ptr<NotificationLog>> logs_;
    std::shared_ptr<agent::core::container::ServiceContainer> container_;
    std::unique_ptr<agent::directory::DirectoryServiceClient> client_;
};

}  // namespace e2e
