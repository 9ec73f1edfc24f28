// The whole road on the in-process exchange: the publisher bundle in a framework with
// Declarative Services, Configuration Admin and the platform bundles; a configuration through
// Configuration Admin, an interface through publishService, and an SPF client calling the
// legacy service through the invokable it finds.

#include "CallbackService.h"
#include "EndToEndFixture.h"

#include "support/NotificationLog.h"
#include "support/Thrown.h"

#include "agent/spf/core/ExportedCallback.h"
#include "agent/spf/core/ExportedDataSink.h"
#include "agent/spf/core/ExportedDataSource.h"
#include "agent/spf/streambuf/StreamRequest.h"

#include "foundation/log/CaptureSink.h"

#include <gmock/gmock.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <boost/uuid/random_generator.hpp>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <future>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace publishertest {
namespace {

using agent::spf::core::APIVersion;
using agent::spf::core::ServiceInterface;
using agent::spf::servicepublisher::call;
using testsupport::Thrown;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

// Answers each of its typed methods with its argument, so that every value crosses the wire twice.
ServiceInterface echoInterface(std::shared_ptr<Gate> gate) {
    ServiceInterface echo("e2e.Echo", APIVersion(1, 2, 3, 4));
    echo.addMethod("bool", [](bool v) { return v; })
        .addMethod("int32", [](std::int32_t v) { return v; })
        .addMethod("int64", [](std::int64_t v) { return v; })
        .addMethod("float", [](float v) { return v; })
        .addMethod("double", [](double v) { return v; })
        .addMethod("string", [](std::string v) { return v; })
        .addMethod("bytes", [](std::vector<std::uint8_t> v) { return v; })
        .addMethod("uuid", [](boost::uuids::uuid v) { return v; })
        .addMethod("array", [](std::vector<std::int32_t> v) { return v; })
        .addMethod("map", [](std::map<std::string, double> v) { return v; })
        .addMethod("optional", [](std::optional<std::string> v) { return v; })
        .addMethod("add", [](std::int32_t a, std::int64_t b) { return a + b; })
        .addMethod("nothing", [] {})
        .addMethod("fail", []() -> std::int32_t { throw std::runtime_error("refused by the service"); })
        .addMethod("wait", [gate]() -> std::int32_t {
            gate->pass();
            return 7;
        });
    return echo;
}

class InProcessEndToEndTest : public EndToEndFixture {
protected:
    void SetUp() override {
        EndToEndFixture::SetUp();
        configure("e2e", {"inprocess"}, {{"e2e.Echo", 1, "echo"}});
        publisherService()->publishService(echoInterface(gate));
        ASSERT_TRUE(waitForFactories("e2e.Echo", 1, 1));
        invokable = getInvokable("e2e.Echo", 1);
    }

    void TearDown() override {
        gate->open();
        invokable.reset();
        if (callbackService) callbackService->stop();
        callbackClient.reset();
        EndToEndFixture::TearDown();
    }

    template <class T>
    void expectEcho(const std::string& method, T value) {
        auto result = call<T>(*invokable, method, kCallTimeout, value);
        ASSERT_EQ(std::future_status::ready, result.wait_for(kDeadline)) << method;
        EXPECT_EQ(value, result.get()) << method;
    }

    std::shared_ptr<Gate> gate = std::make_shared<Gate>();
    std::shared_ptr<agent::spf::core::Invokable> invokable;
    // A native service the test starts itself on the in-process exchange; the publisher makes its invokable.
    std::unique_ptr<agent::directory::DirectoryServiceClient> callbackClient;
    std::shared_ptr<CallbackService> callbackService;
};

// The factory carries the interface's whole version (its endpoint and metadata show in spf-host's
// wait and describe answers, spfhost suite). Failures reach the handler with their texts: the
// service's, a timeout (none left, or one that passes), an unknown method; wrong argument types
// are refused and the invokable goes on.
TEST_F(InProcessEndToEndTest, TheFactoryHasTheVersionEveryAvroTypeTravelsBothWaysAndFailuresKeepTheirTexts) {
    EXPECT_EQ(APIVersion(1, 2, 3, 4), invokablePublisher()->findInvokableFactories("e2e.Echo", 1).at(0).version);
    expectEcho("bool", true);
    expectEcho("int32", std::int32_t{-2147483647 - 1});
    expectEcho("int64", std::int64_t{1} << 62);
    expectEcho("float", 1.5f);
    expectEcho("double", -0.125);
    expectEcho("string", std::string("grüße\0x", 9));
    expectEcho("bytes", std::vector<std::uint8_t>{0, 255, 7});
    expectEcho("uuid", boost::uuids::random_generator()());
    expectEcho("array", std::vector<std::int32_t>{3, -1, 0});
    expectEcho("map", std::map<std::string, double>{{"a", 1.0}, {"", -2.5}});
    expectEcho("optional", std::optional<std::string>("present"));
    expectEcho("optional", std::optional<std::string>());
    EXPECT_EQ((std::int64_t{1} << 40) - 3,
              call<std::int64_t>(*invokable, "add", kCallTimeout, std::int32_t{-3}, std::int64_t{1} << 40).get());
    EXPECT_NO_THROW(call<void>(*invokable, "nothing", kCallTimeout).get());

    const std::tuple<const char*, std::optional<std::chrono::milliseconds>, const char*> failures[] = {
        {"fail", kCallTimeout, "refused by the service"},
        {"wait", std::chrono::milliseconds(0), "Timeout"},
        {"wait", std::chrono::milliseconds(50), "Timeout"},
        {"no such method", kCallTimeout, "bad_function_call"}};
    for (const auto& [method, timeout, text] : failures) {
        auto result = call<std::int32_t>(*invokable, method, timeout);
        ASSERT_EQ(std::future_status::ready, result.wait_for(kDeadline)) << method;
        EXPECT_THAT([&] { result.get(); }, ThrowsMessage<std::exception>(HasSubstr(text))) << method;
    }
    EXPECT_ANY_THROW(call<std::int32_t>(*invokable, "int32", kCallTimeout, std::string("x")).get());
    expectEcho("int32", std::int32_t{5});
}

TEST_F(InProcessEndToEndTest, RemovingTheConfigurationStopsTheServiceAndEveryCallCompletesOnce) {
    constexpr int kCalls = 64;
    // Keeps the in-process connection when "e2e" goes, so that only the instance stops.
    configure("keep", {"inprocess"}, {});
    // Shared with the handlers, which a fault could leave running past the test.
    const auto completions = std::make_shared<std::vector<std::atomic<int>>>(kCalls);
    testsupport::Barrier start(kCalls + 1);
    std::vector<std::thread> callers;
    for (int i = 0; i < kCalls; ++i) {
        callers.emplace_back([&, i] {
            const auto once = [completions, i] { ++(*completions)[i]; };
            start.ArriveAndWait();
            invokable->invokeAsync(kCallTimeout, "wait",
                                   {[once](agent::spf::core::GenericPayload) { once(); },
                                    [once](std::exception_ptr) { once(); }, typeid(std::int32_t)},
                                   {});
        });
    }
    start.ArriveAndWait();
    ASSERT_TRUE(gate->waitForPassers(1));
    removeConfiguration("e2e");
    // The instance leaves the directory while calls are still inside it.
    ASSERT_TRUE(testsupport::WaitFor([this] { return directoryLists("e2e.Echo").empty(); }, kDeadline));
    gate->open();
    for (auto& caller : callers) caller.join();

    ASSERT_TRUE(waitForFactories("e2e.Echo", 1, 0));
    // The withdrawn factory's invokables are cleaned up next: a late call is refused.
    ASSERT_TRUE(testsupport::WaitFor(
        [this] { return Thrown<std::runtime_error>([&] { invokable->getSupportedNames(); }).has_value(); }, kDeadline));
    auto late = call<std::int32_t>(*invokable, "int32", kCallTimeout, std::int32_t{1});
    ASSERT_EQ(std::future_status::ready, late.wait_for(kDeadline));
    EXPECT_THAT([&] { late.get(); }, ThrowsMessage<std::runtime_error>("Service is no longer valid"));
    EXPECT_TRUE(testsupport::WaitFor(
        [&] { return std::all_of(completions->begin(), completions->end(), [](const auto& c) { return c > 0; }); },
        kDeadline));
    for (int i = 0; i < kCalls; ++i) EXPECT_EQ(1, (*completions)[i].load()) << "call " << i;
}

// The service calls an exported callback; the client removes it (the service hears of it and its
// next call finds it gone), or the service removes another (the client sees it inactive). The
// service reads a source of more than one read's worth and writes a sink it closes; a sink it
// keeps open takes its writes until the invokable is cleaned up (here because the service stopped
// and its factory went), though the client still holds it.
TEST_F(InProcessEndToEndTest, AServiceCallsExportedCallbacksAndUsesExportedStreamsUntilEitherSideEndsThem) {
    callbackClient = service<agent::spf::inprocessdiscovery::InProcessDiscovery>()->getFrameworkDiscoveryService(0);
    callbackService = std::make_shared<CallbackService>(service<agent::spf::serialisation::SerialisationCatalogue>());
    ASSERT_TRUE(callbackService->start({{}, callbackClient->getAssociatedContext()}));
    ASSERT_TRUE(waitForFactories("e2e.Callbacks", 1, 1));
    const auto callbacks = getInvokable("e2e.Callbacks", 1);
    std::vector<std::string> seen;
    std::mutex seenMutex;  // guards seen
    auto progress = agent::spf::core::ExportedCallback::make([&](std::string step, std::int32_t percent) {
        std::lock_guard<std::mutex> lock(seenMutex);
        seen.push_back(step + ":" + std::to_string(percent));
        return percent * 2;
    });
    EXPECT_EQ(3, call<std::int32_t>(*callbacks, "report", kCallTimeout, progress, std::int32_t{3}).get());
    {
        std::lock_guard<std::mutex> lock(seenMutex);
        EXPECT_EQ((std::vector<std::string>{"step:0", "step:1", "step:2"}), seen);
    }
    progress.remove();
    ASSERT_TRUE(testsupport::WaitFor([&] { return !callbackService->lastCallback()->isActive(); }, kDeadline));
    EXPECT_ANY_THROW(callbackService->lastCallback()->invoke<std::int32_t>(std::string("late"), std::int32_t{9}));

    auto second = agent::spf::core::ExportedCallback::make([](std::string, std::int32_t p) { return p; });
    EXPECT_EQ(1, call<std::int32_t>(*callbacks, "report", kCallTimeout, second, std::int32_t{1}).get());
    callbackService->lastCallback()->remove();
    EXPECT_TRUE(testsupport::WaitFor([&] { return !second.getSharedState()->isActive(); }, kDeadline));

    using agent::spf::core::ExportedDataSink;
    using agent::spf::core::ExportedDataSource;
    std::string text;
    for (std::uint32_t i = 0; text.size() <= agent::spf::streambuf::kLargestRead; ++i) text += std::to_string(i) + ' ';
    auto in = std::make_shared<std::istringstream>(text);
    auto out = std::make_shared<std::ostringstream>();
    EXPECT_EQ(static_cast<std::int64_t>(text.size()),
              call<std::int64_t>(*callbacks, "copy", kCallTimeout, ExportedDataSource(in), ExportedDataSink(out)).get());
    EXPECT_TRUE(text == out->str());
    EXPECT_EQ(1, out.use_count()) << "the closed sink is still held";
    EXPECT_THROW(callbackService->lastStream()->write("closed"), std::runtime_error);

    auto kept = std::make_shared<std::ostringstream>();
    EXPECT_TRUE(call<bool>(*callbacks, "keep", kCallTimeout, ExportedDataSink(kept)).get());
    callbackService->lastStream()->write("later");
    EXPECT_EQ("later", kept->str());
    callbackService->stop();
    ASSERT_TRUE(waitForFactories("e2e.Callbacks", 1, 0));
    EXPECT_TRUE(testsupport::WaitFor([&] { return kept.use_count() == 1 && in.use_count() == 1; }, kDeadline))
        << "the cleaned-up invokable still holds the client's streams";
    EXPECT_THROW(callbackService->lastStream()->write("gone"), std::runtime_error);
}

// Of the published interfaces, the highest of the requested major whose metadata has every
// requested property starts, once the directory entry it replaces (same replaceMatchingKey mark,
// same major) has left; an entry of another major stays. A major with none is logged once,
// though every pass since found nothing again.
TEST_F(InProcessEndToEndTest, TheHighestFittingInterfaceOfTheMajorVersionStartsOnceTheInstanceItReplacesHasGone) {
    const std::string replaceKey = "spf::legacyservicepublisher::replaceMatchingKey";
    const std::string replaceValue = "spf::legacyservicepublisher::replaceMatchingValue";
    for (const auto& [version, colour] : std::vector<std::pair<APIVersion, std::string>>{
             {APIVersion(1, 9), "red"}, {APIVersion(2, 1), "red"}, {APIVersion(2, 3), "red"},
             {APIVersion(2, 7), "blue"}, {APIVersion(3, 0), "red"}}) {
        ServiceInterface pick("e2e.Pick", version, {{"colour", colour}, {replaceKey, "site"}, {replaceValue, "a"}});
        pick.addMethod("version", [version = version] { return version.toString(); });
        publisherService()->publishService(pick);
    }
    const auto entered = [this](std::uint32_t major) {
        agent::directoryinterfaces::ServiceInstanceInfo info;
        info.name = "e2e.Pick";
        info.instance = boost::uuids::random_generator()();
        info.version = agent::core::serviceutils::APIVersion(major, 0);
        info.metadata = {{"site", "a"}, {"spf::servicemajor", std::to_string(major)}};
        lister->registerServiceInstance(info);
        return info.instance;
    };
    const auto stale = entered(2);
    const auto otherMajor = entered(3);
    // Shared with the subscription's callback, which may outlive a failed test.
    const auto events = std::make_shared<testsupport::NotificationLog>();
    const auto subscription = lister->registerForCallbacks(
        [events, note = events->callback()](const agent::directoryinterfaces::ServiceNotification& n) { note(n); },
        agent::directory::DirectoryServiceClient::OnlyNewChanges, std::string("e2e.Pick"), boost::none);
    const auto log = std::make_shared<foundation::log::capture_sink>("agent::spf::servicepublisher");
    foundation::log::addSink(log);

    const cppmicroservices::AnyMap requested{{"colour", cppmicroservices::Any(std::string("red"))},
                                             {replaceKey, cppmicroservices::Any(std::string("site"))},
                                             {replaceValue, cppmicroservices::Any(std::string("a"))}};
    configure("pick", {"inprocess"}, {{"e2e.Pick", 2, "pick", requested, 5}, {"e2e.Pick", 4, "none"}});
    const auto changes = events->waitFor(2);
    ASSERT_EQ(2u, changes.size());
    EXPECT_EQ(std::make_pair(std::string("stopped e2e.Pick"), stale), std::make_pair(changes[0].line, changes[0].instance));
    EXPECT_EQ("started e2e.Pick", changes[1].line);
    const auto started = changes[1].instance;
    EXPECT_THAT(directoryLists("e2e.Pick"), ::testing::UnorderedElementsAre(otherMajor, started));
    // The stale entry's own factory may linger a moment after the entry left.
    ASSERT_TRUE(testsupport::WaitFor(
        [&] {
            const auto factories = invokablePublisher()->findInvokableFactories("e2e.Pick", 2);
            return factories.size() == 1 && factories[0].uuid == started;
        },
        kDeadline));
    EXPECT_EQ("2.3.0.0", call<std::string>(*getInvokable("e2e.Pick", 2), "version", kCallTimeout).get());
    const auto texts = log->texts();
    EXPECT_EQ(1, std::count(texts.begin(), texts.end(),
                            "Unable to find a ServiceInterface for e2e.Pick with version compatible to requested "
                            "version 4.0.0.0"));
    foundation::log::removeSink(log);
    lister->deregisterFromCallbacks(subscription);
}

// Publishers wait for the publisher's first configuration; stopping the publisher refuses them.
TEST_F(EndToEndFixture, PublishServiceWaitsForAConfigurationAndStoppingThePublisherRefusesTheWaiters) {
    auto publisher = publisherService();
    auto first = std::async(std::launch::async,
                            [publisher] { return publisher->publishService(echoInterface(std::make_shared<Gate>())); });
    configure("e2e", {"inprocess"}, {{"e2e.Echo", 1, "echo"}});
    ASSERT_EQ(std::future_status::ready, first.wait_for(kDeadline));
    EXPECT_FALSE(first.get().is_nil());
    ASSERT_TRUE(waitForFactories("e2e.Echo", 1, 1));

    // With no configuration left, the next publisher waits until the publisher stops.
    removeConfiguration("e2e");
    auto second = std::async(std::launch::async, [publisher] {
        ServiceInterface other("e2e.Other", APIVersion(1, 0));
        other.addMethod("nothing", [] {});
        return publisher->publishService(other);
    });
    stopThePublisher();
    ASSERT_EQ(std::future_status::ready, second.wait_for(kDeadline));
    EXPECT_THAT([&] { second.get(); }, ThrowsMessage<std::runtime_error>("Unable to publish service"));
}

// An endpoint that takes connections into its backlog and never answers: dialling it neither
// fails nor connects until the dialler gives up. Deactivation waits for the call in flight (which
// times out behind the shut gate) and for the pending connection, returns, and leaves no thread.
TEST_F(InProcessEndToEndTest, StoppingWithACallInFlightAndAConnectionPendingReturnsAndLeavesNoThreadBehind) {
    const std::string path = "/tmp/publisher-end-to-end-silent-" + std::to_string(::getpid()) + ".sock";
    const std::unique_ptr<int, void (*)(int*)> silent(new int(::socket(AF_UNIX, SOCK_STREAM, 0)), [](int* fd) {
        ::close(*fd);
        delete fd;
    });
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ::unlink(path.c_str());
    ASSERT_EQ(0, ::bind(*silent, reinterpret_cast<sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, ::listen(*silent, 16));
    configure("pending", {"ipc://" + path}, {});
    auto inFlight = call<std::int32_t>(*invokable, "wait", kCallTimeout);
    ASSERT_TRUE(gate->waitForPassers(1));

    stopThePublisher();
    EXPECT_EQ(std::future_status::ready, inFlight.wait_for(std::chrono::seconds(0)));
    gate->open();
    invokable.reset();
    lister.reset();
    StopFramework();
    framework.reset();
    EXPECT_TRUE(testsupport::WaitFor([this] { return threadCount() <= threadsBeforeTheFramework; }, kDeadline))
        << threadCount() << " threads against " << threadsBeforeTheFramework << " before the framework started";
    ::unlink(path.c_str());
}

}  // namespace
}  // namespace publishertest
