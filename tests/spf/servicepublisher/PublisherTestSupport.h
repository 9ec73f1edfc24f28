#pragma once

#include "agent/spf/core/Invokable.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"

#include <boost/uuid/random_generator.hpp>

#include <atomic>
#include <memory>
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

// Answers every call with its arguments; counts how often it was given back to its factory.
class TestInvokable : public Invokable {
public:
    std::vector<std::string> getSupportedNames() const override { return {"echo"}; }
    void invokeAsync(std::optional<std::chrono::milliseconds>, std::string, CompletionHandler handler,
                     GenericPayload args) override {
        handler(std::move(args));
    }
    std::atomic<int> givenBack{0};
};

// A factory whose callbacks count their calls and those that run after the test has seen
// withdrawInvokableFactory return.
class CountingFactory {
public:
    Publisher::GetCallback getCallback() {
        return [this] {
            afterWithdrawal += withdrawalReturned.load();
            ++gets;
            return std::make_shared<TestInvokable>();
        };
    }
    Publisher::UngetCallback ungetCallback() {
        return [this](std::shared_ptr<Invokable> invokable) {
            afterWithdrawal += withdrawalReturned.load();
            auto* const test = dynamic_cast<TestInvokable*>(invokable.get());
            wrongUngets += test == nullptr || ++test->givenBack > 1;
            ++ungets;
        };
    }
    InvokableFactoryHandle registerWith(Publisher& publisher, const std::string& name, const APIVersion& version,
                                        const cppmicroservices::AnyMap& endpoint = {},
                                        const cppmicroservices::AnyMap& service = {}) {
        return publisher.registerInvokableFactory(getCallback(), ungetCallback(), name,
                                                  boost::uuids::random_generator()(), version, endpoint, service);
    }

    std::atomic<int> gets{0};
    std::atomic<int> ungets{0};
    std::atomic<int> wrongUngets{0};  // of what is not a TestInvokable, or of one given back before
    std::atomic<int> afterWithdrawal{0};  // callbacks run after withdrawalReturned was set
    std::atomic<bool> withdrawalReturned{false};  // set by the test once withdrawInvokableFactory returned
};

}  // namespace publishertest
