#include "agent/spf/core/Invokable.h"
#include "agent/spf/servicepublisher/InvokableCall.h"
#include "agent/spf/servicepublisher/InvokablePublisher.h"

#include "support/Barrier.h"
#include "support/Gate.h"
#include "support/Thrown.h"
#include "support/WaitFor.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using agent::spf::core::APIVersion;
using agent::spf::core::CompletionHandler;
using agent::spf::core::GenericPayload;
using agent::spf::core::Invokable;
using Publisher = agent::spf::servicepublisher::InvokablePublisher<Invokable>;
using agent::spf::servicepublisher::InvokableFactoryHandle;
using cppmicroservices::AnyMap;
using cppmicroservices::LDAPFilter;

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
                                        const AnyMap& endpoint = {}, const AnyMap& service = {}) {
        return publisher.registerInvokableFactory(getCallback(), ungetCallback(), name,
                                                  boost::uuids::random_generator()(), version, endpoint, service);
    }

    std::atomic<int> gets{0};
    std::atomic<int> ungets{0};
    std::atomic<int> wrongUngets{0};  // of what is not a TestInvokable, or of one given back before
    std::atomic<int> afterWithdrawal{0};  // callbacks run after withdrawalReturned was set
    std::atomic<bool> withdrawalReturned{false};  // set by the test once withdrawInvokableFactory returned
};

auto registering(Publisher& publisher, Publisher::GetCallback get, Publisher::UngetCallback unget, std::string name,
                 AnyMap endpoint, AnyMap service) {
    return [&publisher, get, unget, name, endpoint, service] {
        publisher.registerInvokableFactory(get, unget, name, boost::uuids::uuid(), APIVersion(1), endpoint, service);
    };
}

// Newest first within the major; filters see service and endpoint properties, keys case-insensitive,
// numbers as numbers, and an endpoint property hides a service property of the same key.
TEST(InvokablePublisherTest, FactoriesAreFoundByNameMajorVersionAndFilter) {
    Publisher publisher;
    CountingFactory factory;
    const auto uuid = boost::uuids::random_generator()();
    const auto en21 = publisher.registerInvokableFactory(
        factory.getCallback(), factory.ungetCallback(), "Greeter", uuid, APIVersion(2, 1),
        AnyMap{{"endpointAddress", std::string("inproc://a")}}, AnyMap{{"lang", std::string("en")}, {"port", 1024}});
    factory.registerWith(publisher, "Greeter", APIVersion(2, 4), {{"endpointAddress", std::string("inproc://b")}},
                         {{"lang", std::string("de")}, {"port", 80}, {"EndpointAddress", std::string("inproc://x")}});
    factory.registerWith(publisher, "Greeter", APIVersion(2, 4, 0, 1), {}, {{"lang", std::string("en")}});
    factory.registerWith(publisher, "Greeter", APIVersion(3, 0), {}, {{"lang", std::string("en")}});
    factory.registerWith(publisher, "Farewell", APIVersion(2, 0), {}, {{"lang", std::string("en")}});
    const std::tuple<std::string, std::uint32_t, std::string, std::string> rows[] = {
        {"Greeter", 2, "", "2.4.0.1 2.4.0.0 2.1.0.0"}, {"Greeter", 2, "(lang=en)", "2.4.0.1 2.1.0.0"},
        {"Greeter", 2, "(LANG=de)", "2.4.0.0"},        {"Greeter", 2, "(port>=1000)", "2.1.0.0"},
        {"Greeter", 2, "(endpointaddress=*b)", "2.4.0.0"}, {"Greeter", 2, "(endpointaddress=*x)", ""},
        {"Greeter", 4, "", ""},                        {"greeter", 2, "", ""},
    };
    for (const auto& [name, major, filter, versions] : rows) {
        std::string found;
        for (const auto& f : filter.empty() ? publisher.findInvokableFactories(name, major)
                                            : publisher.findInvokableFactories(name, major, LDAPFilter(filter))) {
            found += (found.empty() ? "" : " ") + f.version.toString();
        }
        EXPECT_EQ(versions, found) << name << " " << major << " " << filter;
    }
    const auto found = publisher.findInvokableFactories("Greeter", 2, LDAPFilter("(port=1024)"));
    ASSERT_EQ(1u, found.size());
    EXPECT_EQ(en21, found[0].handle);
    EXPECT_EQ(uuid, found[0].uuid);
    EXPECT_NE(found[0].uuid, found[0].handle);
    EXPECT_EQ(0, factory.gets) << "finding a factory makes no invokable";
}

TEST(InvokablePublisherTest, BadRequestsGetClearErrors) {
    Publisher publisher;
    CountingFactory factory;
    const auto withdrawn = factory.registerWith(publisher, "Greeter", APIVersion(1));
    publisher.withdrawInvokableFactory(withdrawn);
    const auto nothing = publisher.registerInvokableFactory([] { return std::shared_ptr<Invokable>(); },
                                                            factory.ungetCallback(), "Nothing",
                                                            boost::uuids::random_generator()(), APIVersion(1), {}, {});
    // A failing factory stays registered; its failure reaches the client as it is.
    const auto failing = publisher.registerInvokableFactory(
        []() -> std::shared_ptr<Invokable> { throw std::runtime_error("Obtaining a valid Context failed"); },
        factory.ungetCallback(), "Failing", boost::uuids::random_generator()(), APIVersion(1), {}, {});
    AnyMap caseVariants(AnyMap::ORDERED_MAP);
    caseVariants["Lang"] = std::string("en");
    caseVariants["lang"] = std::string("de");
    const auto get = factory.getCallback();
    const auto unget = factory.ungetCallback();
    const std::string notOurs = "Not an invokable handed out by an invokable publisher";
    const std::string variants = "Invokable factory properties contain case variants of the key: lang";
    // Each row: the request, its text, and whether it is an invalid argument (or a runtime error).
    const std::vector<std::tuple<std::function<void()>, std::string, bool>> rows = {
        {[&] { publisher.getInvokable(withdrawn); }, "Unknown invokable factory: " + to_string(withdrawn), true},
        {[&] { publisher.withdrawInvokableFactory(withdrawn); }, "Unknown invokable factory: " + to_string(withdrawn), true},
        {[&] { publisher.getInvokable(nothing); }, "Invokable factory returned no invokable: Nothing", false},
        {[&] { publisher.getInvokable(failing); }, "Obtaining a valid Context failed", false},
        {[&] { publisher.getInvokable(failing); }, "Obtaining a valid Context failed", false},
        {[&] { publisher.ungetInvokable(std::make_shared<TestInvokable>()); }, notOurs, true},
        {[&] { publisher.ungetInvokable(nullptr); }, notOurs, true},
        {registering(publisher, nullptr, unget, "Greeter", {}, {}), "An invokable factory needs a get callback", true},
        {registering(publisher, get, nullptr, "Greeter", {}, {}), "An invokable factory needs an unget callback", true},
        {registering(publisher, get, unget, "", {}, {}), "An invokable factory needs a name", true},
        {registering(publisher, get, unget, "Greeter", {}, caseVariants), variants, true},
        {registering(publisher, get, unget, "Greeter", caseVariants, {}), variants, true},
    };
    for (const auto& [request, text, invalidArgument] : rows) {
        // A refusal of the other type escapes and fails the test.
        EXPECT_EQ(text, invalidArgument ? testsupport::ThrownText<std::invalid_argument>(request)
                                        : testsupport::ThrownText<std::runtime_error>(request));
    }
    EXPECT_EQ(2u, publisher.getInvokableFactories().size()) << "no refused registration was kept";
    EXPECT_EQ(0, factory.gets);

    // A client's call through an invokable whose invokeAsync throws fails its future, not the caller.
    struct Throwing : TestInvokable {
        void invokeAsync(std::optional<std::chrono::milliseconds>, std::string, CompletionHandler, GenericPayload) override {
            throw std::logic_error("invokeAsync broke its promise");
        }
    } throwing;
    auto future = agent::spf::servicepublisher::call<int>(throwing, "echo", std::nullopt, 1);
    EXPECT_THROW(future.get(), std::logic_error);
}

// After a withdrawal, or the publisher's destruction, no callback of the factory runs: what is
// still out belongs to the registrant and goes with the client's last copy. A get-callback may
// withdraw its own factory; a failing unget callback is logged when the last copy goes.
TEST(InvokablePublisherTest, WithdrawalAndDestructionRunNoCallbackAfterwardsAndCallbacksMayFailOrUseThePublisher) {
    CountingFactory factory;
    std::shared_ptr<Invokable> explicitlyReturned, droppedLater, survivor;
    {
        Publisher publisher;
        const auto greeter = factory.registerWith(publisher, "Greeter", APIVersion(2, 1));
        const auto farewell = factory.registerWith(publisher, "Farewell", APIVersion(2));
        explicitlyReturned = publisher.getInvokable(greeter);
        droppedLater = publisher.getInvokable(greeter);
        survivor = publisher.getInvokable(farewell);
        publisher.withdrawInvokableFactory(greeter);
        EXPECT_FALSE(publisher.isRegistered(greeter));
        EXPECT_TRUE(publisher.findInvokableFactories("Greeter", 2).empty());
        EXPECT_FALSE(publisher.ungetInvokable(explicitlyReturned)) << "the registrant owns what is still out";
    }
    factory.withdrawalReturned = true;
    std::weak_ptr<Invokable> watcher = droppedLater;
    explicitlyReturned.reset();
    droppedLater.reset();
    EXPECT_TRUE(watcher.expired());
    EXPECT_EQ(std::vector<std::string>{"echo"}, survivor->getSupportedNames());
    survivor.reset();
    EXPECT_EQ(0, factory.ungets);
    EXPECT_EQ(0, factory.afterWithdrawal);

    Publisher publisher;
    auto capture = std::make_shared<foundation::log::capture_sink>("agent::spf::servicepublisher");
    foundation::log::addSink(capture);
    InvokableFactoryHandle selfWithdrawing;
    CountingFactory inner;
    selfWithdrawing = publisher.registerInvokableFactory(
        [&] {
            publisher.withdrawInvokableFactory(selfWithdrawing);
            return inner.getCallback()();
        },
        inner.ungetCallback(), "Leader", boost::uuids::random_generator()(), APIVersion(3), {}, {});
    auto invokable = publisher.getInvokable(selfWithdrawing);
    ASSERT_TRUE(invokable);
    EXPECT_FALSE(publisher.isRegistered(selfWithdrawing));
    invokable.reset();
    EXPECT_EQ(0, inner.ungets) << "withdrawn before the client gave it back";

    const auto handle = publisher.registerInvokableFactory(
        [] { return std::shared_ptr<Invokable>(std::make_shared<TestInvokable>()); },
        [](std::shared_ptr<Invokable>) { throw std::runtime_error("cleanup failed"); }, "Greeter",
        boost::uuids::random_generator()(), APIVersion(1), {}, {});
    publisher.getInvokable(handle).reset();
    auto explicitOne = publisher.getInvokable(handle);
    EXPECT_THROW(publisher.ungetInvokable(explicitOne), std::runtime_error);
    EXPECT_FALSE(publisher.ungetInvokable(explicitOne)) << "it counts as given back";
    foundation::log::removeSink(capture);
    EXPECT_TRUE(capture->contains("Giving back an invokable of factory Greeter failed"));
    EXPECT_TRUE(capture->contains("Exception caught: cleanup failed"));
}

TEST(InvokablePublisherConcurrencyTest, ClientsGetAndGiveBackWhileFactoriesComeAndGo) {
    constexpr int clients = 4;
    constexpr int churners = 2;
    constexpr int clientRounds = 400;
    constexpr int churnRounds = 60;

    Publisher publisher;
    std::vector<std::unique_ptr<CountingFactory>> stable;
    for (int i = 0; i < 3; ++i) {
        stable.push_back(std::make_unique<CountingFactory>());
        stable.back()->registerWith(publisher, "Greeter", APIVersion(1, i));
    }
    std::vector<std::list<CountingFactory>> churned(churners);
    std::atomic<int> gotten{0};

    testsupport::RunConcurrently(clients + churners, [&](int t) {
        if (t >= clients) {
            const int c = t - clients;
            for (int round = 0; round < churnRounds; ++round) {
                auto& factory = churned[c].emplace_back();
                const auto handle = factory.registerWith(publisher, "Greeter", APIVersion(1, 100 + c, round));
                auto own = publisher.getInvokable(handle);
                std::this_thread::yield();
                publisher.withdrawInvokableFactory(handle);
                factory.withdrawalReturned = true;
            }
            return;
        }
        std::deque<std::shared_ptr<Invokable>> held;
        for (int round = 0; round < clientRounds; ++round) {
            const auto factories = publisher.findInvokableFactories("Greeter", 1);
            if (factories.empty()) continue;
            try {
                held.push_back(publisher.getInvokable(factories[(round + t) % factories.size()].handle));
                ++gotten;
            } catch (const std::exception&) {
                continue;  // withdrawn between the lookup and the get
            }
            // Given back by an explicit unget, once, or else with its last copy.
            if (round % 3 == 0 && publisher.ungetInvokable(held.back())) {
                EXPECT_FALSE(publisher.ungetInvokable(held.back()));
            }
            if (held.size() > 4) held.pop_front();
        }
    });

    EXPECT_GT(gotten, 0);
    for (const auto& factory : stable) {
        EXPECT_EQ(factory->gets, factory->ungets) << "every invokable of a registered factory came back";
        EXPECT_EQ(0, factory->wrongUngets) << "each came back once";
    }
    for (auto& perChurner : churned) {
        for (auto& factory : perChurner) {
            EXPECT_EQ(0, factory.afterWithdrawal);
            EXPECT_LE(factory.ungets, factory.gets);
            EXPECT_GE(factory.gets, 1);
            EXPECT_EQ(0, factory.wrongUngets);
        }
    }
}

// Withdrawing a factory waits for its get-callback running on another thread: it does not return
// while the callback runs, and the get that started first completes.
TEST(InvokablePublisherConcurrencyTest, WithdrawalWaitsForAGetCallbackInFlight) {
    CountingFactory factory;
    Publisher publisher;
    testsupport::Gate gate;  // holds the first get-callback
    std::atomic<bool> returned{false};
    std::atomic<bool> returnedWhileCallbackRan{false};
    std::atomic<int> calls{0};
    const auto handle = publisher.registerInvokableFactory(
        [&] {
            if (++calls == 1) {
                gate.pass();
                returnedWhileCallbackRan = returned.load();
            }
            return factory.getCallback()();
        },
        factory.ungetCallback(), "Greeter", boost::uuids::random_generator()(), APIVersion(1), {}, {});
    auto first = std::async(std::launch::async, [&] { return publisher.getInvokable(handle) != nullptr; });
    ASSERT_TRUE(gate.waitForPassers(1));
    std::thread actor([&] {
        publisher.withdrawInvokableFactory(handle);
        returned = true;
    });
    // A withdrawal that did not wait would return within this bound and be caught below.
    EXPECT_FALSE(testsupport::WaitFor([&] { return returned.load(); }, std::chrono::milliseconds(200)));
    gate.open();
    actor.join();
    EXPECT_TRUE(first.get());
    EXPECT_FALSE(returnedWhileCallbackRan);
    EXPECT_EQ(1, calls.load());
    EXPECT_FALSE(publisher.isRegistered(handle));
}

}  // namespace
