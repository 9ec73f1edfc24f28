#include "agent/core/service/NativeLegacyServiceBase.h"

#include "agent/directory/DirectoryFixture.h"

#include <gtest/gtest.h>

namespace agent::core::service {
namespace {

using directory::DirectoryServiceClient;
using serviceutils::APIVersion;
using transport::Message;
using namespace directory::testing;
using NativeLegacyServiceBaseTest = DirectoryFixture;

class Counter : public NativeLegacyServiceBase {
public:
    Counter()
        : NativeLegacyServiceBase("Counter", APIVersion(1, 2), {{"spf.wireFormat", "text"}, {"spf::servicemajor", "1"}}) {
        addMethod("next", [this](const Message&) { return Message(std::to_string(++count_)); });
        addMethod("echo", [](const Message& m) { return m; });
    }

private:
    std::atomic<int> count_{0};
};

std::string call(const serviceutils::ServiceStub& stub, const std::string& method) {
    auto reply = stub.getMethod(method)(Message(std::string_view("x")));
    if (reply.wait_until(deadline()) != std::future_status::ready) {
        return "no answer";
    }
    try {
        return std::string(reply.get().asStringView());
    } catch (const std::exception& e) {
        return std::string("error: ") + e.what();
    }
}

TEST_F(NativeLegacyServiceBaseTest, StartEntersMethodsAndEntryStopWithdrawsBoth) {
    auto& watcher = client();
    Events events;
    watcher.registerForCallbacks(events.callback(), DirectoryServiceClient::OnlyNewChanges, std::string("Counter"),
                                 boost::none);
    auto container = makeContainer(endpoint_);
    Counter counter;
    ASSERT_TRUE(counter.start({{}, container->createContext(container->generateServiceInstance())}));
    const auto id = counter.serviceInstance();
    EXPECT_EQ(watcher.queryDirectoryForServicesMatchingMetadata("Counter", {{"spf::servicemajor", "1"}}),
              std::vector<boost::uuids::uuid>{id});
    auto stub = watcher.lookupServiceInstance(id, APIVersion(1));
    ASSERT_TRUE(stub.isFound());
    EXPECT_EQ(stub.getVersion(), APIVersion(1, 2));
    EXPECT_EQ(stub.getMethods().size(), 2u);
    EXPECT_EQ(call(stub, "next"), "1");
    EXPECT_EQ(call(stub, "next"), "2");
    EXPECT_EQ(call(stub, "echo"), "x");

    counter.stop();
    EXPECT_EQ(events.waitFor(2), (std::vector<std::string>{"started Counter", "stopped Counter"}));
    EXPECT_FALSE(watcher.lookupServiceInstance(id, APIVersion(0)).isFound());
    EXPECT_NE(call(stub, "next").rfind("error: ", 0), std::string::npos);
    counter.stop();  // idempotent
}

TEST_F(NativeLegacyServiceBaseTest, StartWithoutADirectoryFailsAndLeavesNothingBehind) {
    DirectorylessExchange refusing(DirectorylessExchange::Refusing);
    auto container = makeContainer(refusing.url());
    Counter counter;
    EXPECT_FALSE(counter.start({{}, container->createContext(container->generateServiceInstance())}));
    EXPECT_TRUE(counter.serviceInstance().is_nil());
    EXPECT_FALSE(Counter().start({}));  // an empty context has no transport
}

}  // namespace
}  // namespace agent::core::service
