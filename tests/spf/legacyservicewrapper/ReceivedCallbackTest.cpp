#include "support/Thrown.h"
#include "agent/spf/legacyservicewrapper/ReceivedCallbacks.h"

#include "support/Barrier.h"
#include "support/ServiceExchangeFixture.h"

#include "agent/core/service/NativeLegacyServiceBase.h"
#include "agent/spf/core/ExportedCallback.h"
#include "agent/spf/legacyservicewrapper/LegacyServiceBuilder.h"
#include "agent/spf/legacyservicewrapper/MultipartFraming.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include <gtest/gtest.h>

#include <thread>

namespace agent::spf::legacyservicewrapper {
namespace {

using agent::core::transport::Message;
using core::ExportedCallback;
using core::ExportedCallbackReference;
using namespace serialisation;
using namespace testsupport;

const auto kCatalogue = [] {
    auto catalogue = std::make_shared<SerialisationCatalogue>();
    registerAvroTypes(*catalogue);
    return catalogue;
}();

Message onePart(const ByteBuffer& bytes) {
    Message message;
    const std::size_t sizeField = MultipartFraming::beginPart(message);
    message.append(bytes.data(), bytes.size());
    MultipartFraming::endPart(message, sizeField);
    return message;
}

// A legacy service written natively: "step" takes a callback, keeps it and answers what the
// callback returns for (7, "step").
struct SteppingService : agent::core::service::NativeLegacyServiceBase {
    SteppingService() : NativeLegacyServiceBase("Stepping", agent::core::serviceutils::APIVersion(1), {}) {
        addMethod(core::kCallbackRemovalMethodUUID, callbacks.removalMethod());
        addMethod("step", [this](const Message& m) {
            const auto part = MultipartFraming::splitParts(m, 1).at(0);
            const auto reference = avroDecode<ExportedCallbackReference>(m.data() + part.offset, part.size);
            held = callbacks.adopt(*getTransport(), reference);
            return onePart(avroEncode(held->invoke<std::string>(7, "step")));
        });
    }
    ReceivedCallbacks callbacks{kCatalogue};
    std::shared_ptr<ReceivedCallback> held;  // one request at a time
};

// The stepping service, and the bridge's side of each callback served as a wrapped service on
// the client's container: "invoke" runs the client's callback, "remove" is the service's removal.
class ReceivedCallbackTest : public ServiceExchangeFixture {
protected:
    ReceivedCallbackTest() : ServiceExchangeFixture("spf-receivedcallback-") {}
    void SetUp() override {
        ServiceExchangeFixture::SetUp();
        methods = start(service, *serviceContainer_);
    }
    std::map<std::string, agent::core::transport::Address> start(
        std::shared_ptr<agent::core::service::ServiceBase> started, agent::core::container::ServiceContainer& on) {
        const auto instance = on.generateServiceInstance();
        EXPECT_TRUE(started->start({{}, on.createContext(instance)}));
        started_.push_back(started);
        return directory_->lookupServiceInstance(instance, agent::core::serviceutils::APIVersion(0)).getMethods();
    }
    ExportedCallbackReference bridge(const ExportedCallback& callback) {
        const auto state = callback.getSharedState();
        core::ServiceInterface bridge("Bridge", core::APIVersion(1));
        const auto& typed = state->getImplementation();
        bridge.addMethod("invoke",
                         core::MethodImplementation(typed.argumentTypes(), typed.returnType(),
                                                    [state](auto&& args) { return state->invoke(std::move(args)); }));
        bridge.addMethod("remove", [this, state](const boost::uuids::uuid& id) {
            state->serviceSideHasRemovedCallback();
            std::lock_guard<std::mutex> lock(removalsMutex);
            removals.push_back(id);
        });
        const auto served = start(LegacyServiceBuilder::make_shared(bridge, kCatalogue)->create(), *clientContainer_);
        return {served.at("invoke").getUUID(), served.at("remove").getUUID()};
    }
    // What the stepping service's method answers a client.
    std::string send(const std::string& method, const Message& request) {
        return outcome(clientContainer_->getTransport()->sendRequest(methods.at(method), request));
    }

    ExportedCallback steps =
        ExportedCallback::make([](std::int32_t i, std::string s) { return s + std::to_string(i); });
    std::shared_ptr<SteppingService> service = std::make_shared<SteppingService>();
    std::map<std::string, agent::core::transport::Address> methods;  // the stepping service's
    std::mutex removalsMutex;  // guards removals
    std::vector<boost::uuids::uuid> removals;
};

// A call and a removal from either side run end to end; here the client's removal races the
// service's calls, and the failures a service meets.
TEST_F(ReceivedCallbackTest, TheClientsRemovalReachesTheServiceThroughItsRemovalMethodWhileItCalls) {
    const auto reference = bridge(steps);
    ASSERT_EQ(send("step", onePart(avroEncode(reference))), onePart(avroEncode(std::string("step7"))).asStringView());
    ASSERT_TRUE(service->held->isActive() && !service->held->wasRemovedByClient());
    Barrier barrier(3);
    std::vector<std::string> ends(2, "still calling");
    std::vector<std::thread> callers;  // each calls until refused
    for (auto& end : ends) {
        callers.emplace_back([&, until = deadline()] {
            barrier.ArriveAndWait();
            try {
                while (Clock::now() < until) service->held->invoke<std::string>(1, "x");
            } catch (const std::runtime_error& e) {
                end = e.what();
            }
        });
    }
    barrier.ArriveAndWait();
    // As the bridge tells a service; an unknown callback is no fault.
    for (const auto& id : {reference.callbackUUID, randomId()})
        EXPECT_EQ(send(core::kCallbackRemovalMethodUUID, onePart(avroEncode(id))), std::string(8, '\0'));
    for (auto& caller : callers) caller.join();
    EXPECT_EQ(ends, std::vector<std::string>(2, "Exported callback is no longer active"));
    EXPECT_TRUE(service->held->wasRemovedByClient());
    service->held->remove();  // the bridge knows already
    EXPECT_TRUE(removals.empty());
    EXPECT_EQ(send(core::kCallbackRemovalMethodUUID, Message(std::string_view("abc"))),
              "error: Invalid callback removal request: Invalid message - cannot determine buffer size: 3 bytes "
              "left at offset 0, 8 needed");
}

// Each row fails in the service with exactly its text, found by the bridge; the first call of
// a callback used up after one shows that a void result is read as nothing. The bridge is a
// wrapped service: its refusal of a wrong argument count is LegacyServiceBuilderTest's.
TEST_F(ReceivedCallbackTest, FailuresReachTheServiceWithTheirTexts) {
    const std::vector<std::tuple<ExportedCallback, std::function<void(ReceivedCallback&)>, std::string>> rows = {
        {ExportedCallback::make([](std::string why) -> bool { throw std::runtime_error(why); }),
         [](ReceivedCallback& r) { r.invoke<bool>("disk full"); }, "disk full"},
        {ExportedCallback::make([] {}, 1), [](ReceivedCallback& r) { r.invoke<void>(), r.invoke<void>(); },
         "Exported callback is no longer active"},  // used up
    };
    for (const auto& [callback, call, failure] : rows) {
        ReceivedCallback received(*serviceContainer_->getTransport(), bridge(callback), kCatalogue);
        EXPECT_EQ(testsupport::ThrownText<std::runtime_error>([&] { call(received); }), failure);
    }
}

}  // namespace
}  // namespace agent::spf::legacyservicewrapper
