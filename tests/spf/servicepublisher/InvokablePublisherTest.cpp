#include "PublisherTestSupport.h"

#include "agent/spf/servicepublisher/ServicePublisher.h"

#include "foundation/log/CaptureSink.h"
#include "foundation/log/Sink.h"

#include "support/FrameworkFixture.h"

#include <boost/uuid/uuid_io.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace publishertest;
using agent::spf::servicepublisher::InvokableFactoryDescription;
using agent::spf::servicepublisher::InvokableFactoryEventKind;
using cppmicroservices::AnyMap;
using cppmicroservices::LDAPFilter;

// Records every listener call as "Added <name> <version>" / "Removed <name> <version>".
struct EventLog {
    std::mutex eventsMutex;  // guards events
    std::vector<std::string> events;

    agent::spf::servicepublisher::InvokableFactoryListener listener() {
        return [this](InvokableFactoryEventKind kind, const InvokableFactoryDescription& factory) {
            std::lock_guard<std::mutex> lock(eventsMutex);
            events.push_back(std::string(kind == InvokableFactoryEventKind::Added ? "Added " : "Removed ") +
                             factory.name + " " + factory.version.toString());
        };
    }
    std::vector<std::string> taken() {
        std::lock_guard<std::mutex> lock(eventsMutex);
        return std::exchange(events, {});
    }
};

std::vector<std::string> versionsOf(const std::vector<InvokableFactoryDescription>& factories) {
    std::vector<std::string> versions;
    for (const auto& factory : factories) {
        versions.push_back(factory.version.toString());
    }
    return versions;
}

TEST(InvokablePublisherTest, FactoriesAreFoundByNameMajorVersionAndFilter) {
    Publisher publisher;
    CountingFactory factory;
    const auto uuid = boost::uuids::random_generator()();
    const auto en21 = publisher.registerInvokableFactory(
        factory.getCallback(), factory.ungetCallback(), "Greeter", uuid, APIVersion(2, 1),
        AnyMap{{"endpointAddress", std::string("inproc://a")}}, AnyMap{{"lang", std::string("en")}, {"port", 1024}});
    factory.registerWith(publisher, "Greeter", APIVersion(2, 4), {{"endpointAddress", std::string("inproc://b")}},
                         {{"lang", std::string("de")}, {"port", 80}});
    factory.registerWith(publisher, "Greeter", APIVersion(2, 4, 0, 1), {{"endpointAddress", std::string("inproc://c")}},
                         {{"lang", std::string("en")}});
    factory.registerWith(publisher, "Greeter", APIVersion(3, 0), {}, {{"lang", std::string("en")}});
    factory.registerWith(publisher, "Farewell", APIVersion(2, 0), {}, {{"lang", std::string("en")}});

    EXPECT_EQ((std::vector<std::string>{"2.4.0.1", "2.4.0.0", "2.1.0.0"}),
              versionsOf(publisher.findInvokableFactories("Greeter", 2)));
    EXPECT_EQ((std::vector<std::string>{"2.4.0.1", "2.1.0.0"}),
              versionsOf(publisher.findInvokableFactories("Greeter", 2, LDAPFilter("(lang=en)"))));
    EXPECT_EQ((std::vector<std::string>{"2.4.0.0"}),
              versionsOf(publisher.findInvokableFactories("Greeter", 2, LDAPFilter("(LANG=de)"))))
        << "filter keys are case-insensitive";
    EXPECT_EQ((std::vector<std::string>{"2.1.0.0"}),
              versionsOf(publisher.findInvokableFactories("Greeter", 2, LDAPFilter("(port>=1000)"))))
        << "numbers compare as numbers";
    EXPECT_EQ((std::vector<std::string>{"2.4.0.0"}),
              versionsOf(publisher.findInvokableFactories("Greeter", 2, LDAPFilter("(endpointAddress=*b)"))))
        << "endpoint properties are filtered too";
    EXPECT_TRUE(publisher.findInvokableFactories("Greeter", 4).empty());
    EXPECT_TRUE(publisher.findInvokableFactories("greeter", 2).empty()) << "names compare exactly";
    EXPECT_EQ(5u, publisher.getInvokableFactories().size());

    const auto found = publisher.findInvokableFactories("Greeter", 2, LDAPFilter("(port=1024)"));
    ASSERT_EQ(1u, found.size());
    const auto& description = found[0];
    EXPECT_EQ(en21, description.handle);
    EXPECT_EQ(uuid, description.uuid);
    EXPECT_NE(description.uuid, description.handle);
    EXPECT_EQ(16u, description.handle.size());
    EXPECT_EQ(boost::uuids::uuid::version_random_number_based, description.handle.version());
    EXPECT_EQ("Greeter", description.name);
    EXPECT_EQ(APIVersion(2, 1), description.version);
    EXPECT_EQ("inproc://a", cppmicroservices::any_cast<std::string>(description.endpointProperties.at("endpointAddress")));
    EXPECT_EQ(1024, cppmicroservices::any_cast<int>(description.serviceProperties.at("port")));
    EXPECT_EQ(1u, description.endpointProperties.size());
    EXPECT_EQ(0, factory.gets) << "finding a factory makes no invokable";
}

TEST(InvokablePublisherTest, AnEndpointPropertyWinsOverAServicePropertyOfTheSameKey) {
    Publisher publisher;
    CountingFactory factory;
    factory.registerWith(publisher, "Greeter", APIVersion(1), {{"endpointAddress", std::string("inproc://real")}},
                         {{"EndpointAddress", std::string("inproc://claimed")}});
    EXPECT_EQ(1u, publisher.findInvokableFactories("Greeter", 1, LDAPFilter("(endpointaddress=inproc://real)")).size());
    EXPECT_TRUE(publisher.findInvokableFactories("Greeter", 1, LDAPFilter("(endpointaddress=inproc://claimed)")).empty());
}

TEST(InvokablePublisherTest, TheLastCopyOfAnInvokableGivesItBackOnce) {
    Publisher publisher;
    CountingFactory factory;
    const auto handle = factory.registerWith(publisher, "Greeter", APIVersion(1));

    auto first = publisher.getInvokable(handle);
    auto second = publisher.getInvokable(handle);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first.get(), second.get()) << "every client gets an invokable of its own";
    EXPECT_EQ(2, factory.gets);
    EXPECT_EQ(factory.made[0].get(), first.get()) << "the client holds what the get-callback made";

    auto copy = first;
    first.reset();
    EXPECT_EQ(0, factory.ungets) << "a copy is still out";
    copy.reset();
    EXPECT_EQ(1, factory.ungets);
    EXPECT_EQ(1, factory.made[0]->givenBack);
    EXPECT_EQ(0, factory.made[1]->givenBack);

    std::weak_ptr<Invokable> watcher = second;
    second.reset();
    EXPECT_EQ(2, factory.ungets);
    EXPECT_TRUE(watcher.expired());
    EXPECT_EQ(0, factory.foreignUngets);
}

TEST(InvokablePublisherTest, AnExplicitUngetGivesBackAtOnceAndTheLastCopyGivesNothingMore) {
    Publisher publisher;
    CountingFactory factory;
    const auto handle = factory.registerWith(publisher, "Greeter", APIVersion(1));

    auto invokable = publisher.getInvokable(handle);
    auto copy = invokable;
    EXPECT_TRUE(publisher.ungetInvokable(invokable));
    EXPECT_EQ(1, factory.ungets);
    EXPECT_FALSE(publisher.ungetInvokable(copy)) << "given back already";
    EXPECT_EQ((std::vector<std::string>{"echo", "fail"}), copy->getSupportedNames())
        << "the client's copies stay valid objects";
    invokable.reset();
    copy.reset();
    EXPECT_EQ(1, factory.ungets);
    EXPECT_TRUE(factory.eachGivenBackAtMostOnce());
}

TEST(InvokablePublisherTest, AGetCallbackFailureReachesTheClientAsThatError) {
    struct NoContext : std::runtime_error {
        using std::runtime_error::runtime_error;
    };
    Publisher publisher;
    int ungets = 0;
    const auto handle = publisher.registerInvokableFactory(
        []() -> std::shared_ptr<Invokable> { throw NoContext("Obtaining a valid Context for the Invokable failed"); },
        [&](std::shared_ptr<Invokable>) { ++ungets; }, "Greeter", boost::uuids::random_generator()(), APIVersion(1),
        {}, {});
    try {
        publisher.getInvokable(handle);
        FAIL() << "getInvokable returned";
    } catch (const NoContext& e) {
        EXPECT_STREQ("Obtaining a valid Context for the Invokable failed", e.what());
    }
    EXPECT_EQ(0, ungets);
    EXPECT_TRUE(publisher.isRegistered(handle)) << "a failing factory stays registered";
}

TEST(InvokablePublisherTest, BadRequestsGetClearErrors) {
    Publisher publisher;
    CountingFactory factory;
    const auto withdrawn = factory.registerWith(publisher, "Greeter", APIVersion(1));
    publisher.withdrawInvokableFactory(withdrawn);
    const auto nullMaker = publisher.registerInvokableFactory([] { return std::shared_ptr<Invokable>(); },
                                                              factory.ungetCallback(), "Nothing",
                                                              boost::uuids::random_generator()(), APIVersion(1), {}, {});
    const auto never = boost::uuids::random_generator()();
    const auto withdrawnText = boost::uuids::to_string(withdrawn);
    const auto neverText = boost::uuids::to_string(never);

    struct Row {
        std::string what;
        std::function<void()> request;
        std::string expectedText;
        bool invalidArgument;
    };
    AnyMap caseVariants(AnyMap::ORDERED_MAP);
    caseVariants["Lang"] = std::string("en");
    caseVariants["lang"] = std::string("de");
    auto registering = [&](Publisher::GetCallback get, Publisher::UngetCallback unget, std::string name,
                            AnyMap endpoint, AnyMap service) {
        return [&publisher, get, unget, name, endpoint, service] {
            publisher.registerInvokableFactory(get, unget, name, boost::uuids::uuid(), APIVersion(1), endpoint,
                                               service);
        };
    };
    const std::vector<Row> rows = {
        {"get, never registered", [&] { publisher.getInvokable(never); }, "Unknown invokable factory: " + neverText,
         true},
        {"get, withdrawn", [&] { publisher.getInvokable(withdrawn); }, "Unknown invokable factory: " + withdrawnText,
         true},
        {"withdraw, never registered", [&] { publisher.withdrawInvokableFactory(never); },
         "Unknown invokable factory: " + neverText, true},
        {"withdraw twice", [&] { publisher.withdrawInvokableFactory(withdrawn); },
         "Unknown invokable factory: " + withdrawnText, true},
        {"null invokable", [&] { publisher.getInvokable(nullMaker); }, "Invokable factory returned no invokable: Nothing",
         false},
        {"unget foreign", [&] { publisher.ungetInvokable(std::make_shared<TestInvokable>()); },
         "Not an invokable handed out by an invokable publisher", true},
        {"unget null", [&] { publisher.ungetInvokable(nullptr); },
         "Not an invokable handed out by an invokable publisher", true},
        {"no get callback", registering(nullptr, factory.ungetCallback(), "Greeter", {}, {}),
         "An invokable factory needs a get callback", true},
        {"no unget callback", registering(factory.getCallback(), nullptr, "Greeter", {}, {}),
         "An invokable factory needs an unget callback", true},
        {"no name", registering(factory.getCallback(), factory.ungetCallback(), "", {}, {}),
         "An invokable factory needs a name", true},
        {"case variants, service", registering(factory.getCallback(), factory.ungetCallback(), "Greeter", {}, caseVariants),
         "Invokable factory properties contain case variants of the key: lang", true},
        {"case variants, endpoint",
         registering(factory.getCallback(), factory.ungetCallback(), "Greeter", caseVariants, {}),
         "Invokable factory properties contain case variants of the key: lang", true},
        {"add empty listener", [&] { publisher.addInvokableFactoryListener(nullptr); },
         "An invokable factory listener needs a function", true},
    };
    for (const auto& row : rows) {
        try {
            row.request();
            ADD_FAILURE() << row.what << ": no exception";
        } catch (const std::invalid_argument& e) {
            EXPECT_TRUE(row.invalidArgument) << row.what;
            EXPECT_EQ(row.expectedText, e.what()) << row.what;
        } catch (const std::runtime_error& e) {
            EXPECT_FALSE(row.invalidArgument) << row.what;
            EXPECT_EQ(row.expectedText, e.what()) << row.what;
        }
    }
    EXPECT_EQ(1u, publisher.getInvokableFactories().size()) << "no refused registration was kept";
    EXPECT_EQ(0, factory.gets);
}

TEST(InvokablePublisherTest, AfterWithdrawalNoCallbackRunsAndListenersAreTold) {
    EventLog log;  // outlives the publisher, whose destruction tells its listeners
    Publisher publisher;
    const auto token = publisher.addInvokableFactoryListener(log.listener());
    CountingFactory factory;
    const auto handle = factory.registerWith(publisher, "Greeter", APIVersion(2, 1));
    auto explicitlyReturned = publisher.getInvokable(handle);
    auto droppedLater = publisher.getInvokable(handle);
    std::weak_ptr<Invokable> watcher = droppedLater;

    publisher.withdrawInvokableFactory(handle);
    factory.withdrawalReturned = true;
    EXPECT_FALSE(publisher.isRegistered(handle));
    EXPECT_TRUE(publisher.findInvokableFactories("Greeter", 2).empty());
    EXPECT_EQ((std::vector<std::string>{"Added Greeter 2.1.0.0", "Removed Greeter 2.1.0.0"}), log.taken());

    EXPECT_FALSE(publisher.ungetInvokable(explicitlyReturned)) << "the registrant owns what is still out";
    droppedLater.reset();
    explicitlyReturned.reset();
    EXPECT_TRUE(watcher.expired()) << "the invokable goes with the client's last copy";
    EXPECT_EQ(0, factory.ungets);
    EXPECT_EQ(0, factory.callbacksAfterWithdrawal);
    EXPECT_TRUE(publisher.removeInvokableFactoryListener(token));
}

TEST(InvokablePublisherTest, AListenerCanBeToldOfTheFactoriesAlreadyThere) {
    EventLog told;
    EventLog notTold;
    Publisher publisher;
    CountingFactory factory;
    factory.registerWith(publisher, "Greeter", APIVersion(1));
    const auto second = factory.registerWith(publisher, "Farewell", APIVersion(2));

    publisher.addInvokableFactoryListener(told.listener(), true);
    publisher.addInvokableFactoryListener(notTold.listener());
    EXPECT_EQ((std::vector<std::string>{"Added Greeter 1.0.0.0", "Added Farewell 2.0.0.0"}), told.taken())
        << "in registration order";
    EXPECT_TRUE(notTold.taken().empty());

    publisher.withdrawInvokableFactory(second);
    EXPECT_EQ((std::vector<std::string>{"Removed Farewell 2.0.0.0"}), told.taken());
    EXPECT_EQ((std::vector<std::string>{"Removed Farewell 2.0.0.0"}), notTold.taken());
}

TEST(InvokablePublisherTest, RemovedAndFailingListenersDoNotDisturbTheOthers) {
    EventLog kept;
    EventLog removed;
    Publisher publisher;
    auto capture = std::make_shared<foundation::log::capture_sink>("agent::spf::servicepublisher");
    foundation::log::addSink(capture);

    int selfRemovingCalls = 0;
    agent::spf::servicepublisher::InvokableFactoryListenerToken selfRemoving;
    publisher.addInvokableFactoryListener(
        [](InvokableFactoryEventKind, const InvokableFactoryDescription&) { throw std::runtime_error("listener broke"); });
    const auto removedToken = publisher.addInvokableFactoryListener(removed.listener());
    selfRemoving = publisher.addInvokableFactoryListener([&](InvokableFactoryEventKind, const InvokableFactoryDescription&) {
        ++selfRemovingCalls;
        EXPECT_TRUE(publisher.removeInvokableFactoryListener(selfRemoving));
    });
    publisher.addInvokableFactoryListener(kept.listener());

    CountingFactory factory;
    factory.registerWith(publisher, "Greeter", APIVersion(1));
    EXPECT_TRUE(publisher.removeInvokableFactoryListener(removedToken));
    EXPECT_FALSE(publisher.removeInvokableFactoryListener(removedToken));
    EXPECT_FALSE(publisher.removeInvokableFactoryListener({}));
    factory.registerWith(publisher, "Farewell", APIVersion(1));
    foundation::log::removeSink(capture);

    EXPECT_EQ((std::vector<std::string>{"Added Greeter 1.0.0.0", "Added Farewell 1.0.0.0"}), kept.taken());
    EXPECT_EQ((std::vector<std::string>{"Added Greeter 1.0.0.0"}), removed.taken());
    EXPECT_EQ(1, selfRemovingCalls);
    EXPECT_EQ(2u, capture->count([](const auto& r) { return r.text == "An invokable factory listener failed"; }));
    EXPECT_EQ(2u, capture->count([](const auto& r) { return r.text == "Exception caught: listener broke"; }));
}

TEST(InvokablePublisherTest, CallbacksAndListenersMayUseThePublisher) {
    EventLog log;
    CountingFactory follower;
    Publisher publisher;
    publisher.addInvokableFactoryListener(log.listener());

    // A listener that registers a follower for each new "Leader": its event comes after the
    // leader's, not nested inside the leader's delivery.
    publisher.addInvokableFactoryListener([&](InvokableFactoryEventKind kind, const InvokableFactoryDescription& f) {
        if (kind == InvokableFactoryEventKind::Added && f.name == "Leader") {
            follower.registerWith(publisher, "Follower", f.version);
        }
    });

    // A factory whose get-callback withdraws its own factory.
    InvokableFactoryHandle selfWithdrawing;
    CountingFactory inner;
    selfWithdrawing = publisher.registerInvokableFactory(
        [&] {
            publisher.withdrawInvokableFactory(selfWithdrawing);
            return inner.get();
        },
        inner.ungetCallback(), "Leader", boost::uuids::random_generator()(), APIVersion(3), {}, {});
    EXPECT_EQ((std::vector<std::string>{"Added Leader 3.0.0.0", "Added Follower 3.0.0.0"}), log.taken());

    auto invokable = publisher.getInvokable(selfWithdrawing);
    ASSERT_TRUE(invokable);
    EXPECT_FALSE(publisher.isRegistered(selfWithdrawing));
    EXPECT_EQ((std::vector<std::string>{"Removed Leader 3.0.0.0"}), log.taken());
    invokable.reset();
    EXPECT_EQ(0, inner.ungets) << "withdrawn before the client gave it back";
}

TEST(InvokablePublisherTest, DestroyingThePublisherWithdrawsEveryFactory) {
    EventLog log;
    CountingFactory factory;
    std::shared_ptr<Invokable> survivor;
    {
        Publisher publisher;
        publisher.addInvokableFactoryListener(log.listener());
        const auto handle = factory.registerWith(publisher, "Greeter", APIVersion(1));
        factory.registerWith(publisher, "Farewell", APIVersion(1));
        survivor = publisher.getInvokable(handle);
    }
    factory.withdrawalReturned = true;
    EXPECT_EQ((std::vector<std::string>{"Added Greeter 1.0.0.0", "Added Farewell 1.0.0.0", "Removed Greeter 1.0.0.0",
                                        "Removed Farewell 1.0.0.0"}),
              log.taken());
    EXPECT_EQ((std::vector<std::string>{"echo", "fail"}), survivor->getSupportedNames());
    survivor.reset();
    EXPECT_EQ(0, factory.ungets);
    EXPECT_EQ(0, factory.callbacksAfterWithdrawal);
}

TEST(InvokablePublisherTest, AFailingUngetCallbackIsLoggedWhenTheLastCopyGoes) {
    Publisher publisher;
    auto capture = std::make_shared<foundation::log::capture_sink>("agent::spf::servicepublisher");
    foundation::log::addSink(capture);
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

class TestServicePublisher : public agent::spf::servicepublisher::ServicePublisher {
public:
    boost::uuids::uuid publishService(agent::spf::core::ServiceInterface) override { return {}; }
    bool unpublishService(const boost::uuids::uuid&) override { return false; }
};

class InvokablePublisherServiceTest : public testsupport::FrameworkFixture {};

TEST_F(InvokablePublisherServiceTest, OtherBundlesFindTheServicesByTheirInterfaceNames) {
    const std::string publisherName = "agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>";
    const std::string servicePublisherName = "agent::spf::servicepublisher::ServicePublisher";
    EXPECT_EQ(publisherName, us_service_interface_iid<Publisher>());
    EXPECT_EQ(servicePublisherName, us_service_interface_iid<agent::spf::servicepublisher::ServicePublisher>());

    auto publisher = std::make_shared<Publisher>();
    auto registration = context.RegisterService<Publisher>(publisher);
    auto servicePublisherRegistration =
        context.RegisterService<agent::spf::servicepublisher::ServicePublisher>(std::make_shared<TestServicePublisher>());

    const auto references = context.GetServiceReferences(publisherName);
    ASSERT_EQ(1u, references.size());
    auto found = context.GetService(cppmicroservices::ServiceReference<Publisher>(references[0]));
    EXPECT_EQ(publisher, found);
    EXPECT_EQ(1u, context.GetServiceReferences(servicePublisherName).size());
    registration.Unregister();
    servicePublisherRegistration.Unregister();
}

}  // namespace
