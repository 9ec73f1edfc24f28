#pragma once

#include "agent/directory/DirectoryCore.h"
#include "agent/directory/DirectoryServiceClient.h"

#include "agent/directory/DirectoryTestSupport.h"

#include <gtest/gtest.h>

namespace agent::directory::testing {

using core::transport::Address;
using core::transport::Message;
using directoryinterfaces::ServiceNotification;

// Collects a subscription's notifications as "started X" / "stopped X".
class Events {
public:
    DirectoryCallback callback() {
        return [this](const ServiceNotification& n) {
            std::lock_guard<std::mutex> lock(eventsMutex_);
            events_.push_back(describe(n));
        };
    }
    std::vector<std::string> waitFor(std::size_t count) {
        eventually([&] { return snapshot().size() >= count; });
        return snapshot();
    }
    std::vector<std::string> snapshot() {
        std::lock_guard<std::mutex> lock(eventsMutex_);
        return events_;
    }

private:
    std::mutex eventsMutex_;
    std::vector<std::string> events_;
};

// An exchange on inproc:// (which hosts the directory) and containers dialling it, each
// with a directory client of its own.
class DirectoryFixture : public ::testing::Test {
protected:
    void SetUp() override { endpoint_ = exchange_.listen(inprocUrl()); }
    void TearDown() override {
        clients_.clear();
        containers_.clear();
        exchange_.close();
    }

    // A client on a container of its own.
    DirectoryServiceClient& client(std::chrono::milliseconds timeout = 5000ms) {
        auto container = makeContainer(endpoint_);
        containers_.push_back(container);
        clients_.push_back(std::make_unique<DirectoryServiceClient>(
            container->createContext(container->generateServiceInstance()), timeout));
        return *clients_.back();
    }

    // Serves "echo" on `container` and returns the entry naming it.
    directoryinterfaces::ServiceInstanceInfo serveEcho(core::container::ServiceContainer& container,
                                                       const std::string& name,
                                                       std::map<std::string, std::string> metadata = {}) {
        auto entry = instance(name, std::move(metadata), container.getNodeID());
        const Address address(randomId());
        container.getTransport()->registerHandler(
            address, [name](const Message& m) { return Message(name + ":" + std::string(m.asStringView())); },
            entry.instance);
        entry.methods["echo"] = address;
        return entry;
    }

    nanomsgtransport::Exchange exchange_;
    std::string endpoint_;
    std::shared_ptr<DirectoryCore> directory_ = exchange_.directory();
    std::vector<std::shared_ptr<core::container::ServiceContainer>> containers_;
    std::vector<std::unique_ptr<DirectoryServiceClient>> clients_;
};

}  // namespace agent::directory::testing
