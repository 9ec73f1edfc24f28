// A service entry is a started service: made, it starts it; destroyed, it stops it before its
// context goes.

#include "ServicePublisherFixture.h"

#include "agent/core/service/StartupConfiguration.h"

#include "foundation/concurrent/threadpool/ThreadPool.h"

#include <boost/uuid/random_generator.hpp>

#include <future>

namespace publishertest {
namespace {

using agent::core::serviceutils::Context;
using ServiceEntry = ServicePublisher::ServiceEntry;

// Records what it is asked to do, and keeps no copy of its context: once started, it leaves a
// task on the context's pool, whose release waits for that task, and the task notes whether
// stop came first.
class RecordingService final : public agent::core::service::ServiceBase {
public:
    explicit RecordingService(bool startSucceeds) : startSucceeds_(startSucceeds) {}
    bool start(const agent::core::service::StartupConfiguration& configuration) override {
        calls.push_back("start " + configuration.properties.get<std::string>("greeting", "-"));
        if (startSucceeds_) {
            configuration.context.getThreadPool().postWork([this, stopped = stopped_.get_future().share()] {
                contextReleasedAfterStop = stopped.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
            });
        }
        return startSucceeds_;
    }
    void stop() override {
        calls.push_back("stop");
        stopped_.set_value();
    }
    std::string name() const override { return "Recorder"; }

    std::vector<std::string> calls;
    bool contextReleasedAfterStop = false;  // read once the context has gone, which waited for the task

private:
    const bool startSucceeds_;
    std::promise<void> stopped_;
};

class ServiceEntryTest : public ::testing::Test {
protected:
    Context validContext() {
        boost::uuids::random_generator generate;
        return Context(generate(), generate(), &pool, nullptr, nullptr);
    }
    ServiceEntry make(Context context, std::shared_ptr<agent::core::service::ServiceBase> service) {
        boost::property_tree::ptree properties;
        properties.put("greeting", "hello");
        return ServiceEntry("inprocess", "demo", "one", boost::uuids::random_generator()(), std::move(context),
                            properties, std::move(service));
    }
    foundation::concurrent::threadpool::ThreadPool pool;
};

TEST_F(ServiceEntryTest, AnEntryStartsItsServiceWithItsPropertiesAndStopsItOnceBeforeItsContextGoes) {
    auto service = std::make_shared<RecordingService>(true);
    make(validContext(), service);
    EXPECT_THAT(service->calls, ElementsAre("start hello", "stop"));
    EXPECT_TRUE(service->contextReleasedAfterStop);
}

TEST_F(ServiceEntryTest, RefusalsNameTheirCauseAndNeverStopWhatDidNotStart) {
    // The service is looked at before the context.
    EXPECT_EQ("Failed to create ServiceBase", failureOf([this] { make(Context(), nullptr); }));
    EXPECT_EQ("Failed to create a valid Context",
              failureOf([this] { make(Context(), std::make_shared<RecordingService>(true)); }));
    auto refusing = std::make_shared<RecordingService>(false);
    EXPECT_EQ("Failed to start service Recorder", failureOf([&] { make(validContext(), refusing); }));
    EXPECT_THAT(refusing->calls, ElementsAre("start hello"));
}

}  // namespace
}  // namespace publishertest
