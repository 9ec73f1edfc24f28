#pragma once

#include "agent/spf/core/Invokable.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"

#include <boost/uuid/random_generator.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace publishertest {

using agent::spf::core::APIVersion;
using agent::spf::core::CompletionHandler;
using agent::spf::core::GenericPayload;
using agent::spf::core::Invokable;
using Publisher = agent::spf::servicepublisher::InvokablePublisher<Invokable>;
using agent::spf::servicepublisher::InvokableFactoryHandle;

// Answers "echo" with its first argument and fails "fail" with the text of its first argument.
// Counts how often it was given back to its factory.
class TestInvokable : public Invokable {
public:
    std::vector<std::string> getSupportedNames() const override { return {"echo", "fail"}; }

    void invokeAsync(std::optional<std::chrono::milliseconds>, std::string name, CompletionHandler handler,
                     GenericPayload args) override {
        if (name == "echo") {
            handler(std::move(args));
        } else {
            handler(std::make_exception_ptr(std::runtime_error(name == "fail" ? args.get<std::string>(0) : name)));
        }
    }

    std::atomic<int> givenBack{0};
};

// A factory whose callbacks count their calls and check that none runs after the test has
// seen withdrawInvokableFactory return.
class CountingFactory {
public:
    std::shared_ptr<Invokable> get() {
        checkNotWithdrawn();
        auto invokable = std::make_shared<TestInvokable>();
        {
            std::lock_guard<std::mutex> lock(madeMutex);
            made.push_back(invokable);
        }
        ++gets;
        return invokable;
    }

    void unget(const std::shared_ptr<Invokable>& invokable) {
        checkNotWithdrawn();
        auto* const test = dynamic_cast<TestInvokable*>(invokable.get());
        if (test == nullptr) {
            ++foreignUngets;
            return;
        }
        ++test->givenBack;
        ++ungets;
    }

    Publisher::GetCallback getCallback() {
        return [this] { return get(); };
    }
    Publisher::UngetCallback ungetCallback() {
        return [this](std::shared_ptr<Invokable> invokable) { unget(invokable); };
    }

    InvokableFactoryHandle registerWith(Publisher& publisher, const std::string& name, const APIVersion& version,
                                        const cppmicroservices::AnyMap& endpoint = {},
                                        const cppmicroservices::AnyMap& service = {}) {
        return publisher.registerInvokableFactory(getCallback(), ungetCallback(), name,
                                                  boost::uuids::random_generator()(), version, endpoint, service);
    }

    // Every invokable made was given back at most once, and those given back add up to ungets.
    bool eachGivenBackAtMostOnce() {
        std::lock_guard<std::mutex> lock(madeMutex);
        int total = 0;
        for (const auto& invokable : made) {
            if (invokable->givenBack > 1) {
                return false;
            }
            total += invokable->givenBack;
        }
        return total == ungets;
    }

    void checkNotWithdrawn() {
        if (withdrawalReturned) {
            ++callbacksAfterWithdrawal;
        }
    }

    std::atomic<int> gets{0};
    std::atomic<int> ungets{0};
    std::atomic<int> foreignUngets{0};
    std::atomic<int> callbacksAfterWithdrawal{0};
    // Set by the test once withdrawInvokableFactory has returned.
    std::atomic<bool> withdrawalReturned{false};

    std::mutex madeMutex;  // guards made
    std::vector<std::shared_ptr<TestInvokable>> made;
};

}  // namespace publishertest
