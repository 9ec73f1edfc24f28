// A service entry is a started service: made, it starts it; destroyed, it stops it.

#include "agent/spf/legacyservicepublisher/ServicePublisher.h"

#include "agent/core/service/ServiceBase.h"
#include "agent/core/service/StartupConfiguration.h"
#include "agent/core/serviceutils/Context.h"

#include "foundation/concurrent/threadpool/ThreadPool.h"

#include <boost/property_tree/ptree.hpp>
#include <boost/uuid/random_generator.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace publishertest {
namespace {

using agent::core::serviceutils::Context;
using ServiceEntry = agent::spf::legacyservicepublisher::ServicePublisher::ServiceEntry;
using ::testing::ElementsAre;

// Records what it is asked to do, and whether its context was still usable at stop.
class RecordingService final : public agent::core::service::ServiceBase {
public:
    explicit RecordingService(bool startSucceeds) : startSucceeds_(startSucceeds) {}

    bool start(const agent::core::service::StartupConfiguration& configuration) override {
        calls.push_back("start " + configuration.properties.get<std::string>("greeting", "-"));
        startedWith = configuration.context;
        return startSucceeds_;
    }
    void stop() override { calls.push_back(startedWith.isValid() ? "stop" : "stop without context"); }
    std::string name() const override { return "Recorder"; }

    std::vector<std::string> calls;

private:
    const bool startSucceeds_;
    Context startedWith;
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

TEST_F(ServiceEntryTest, AnEntryStartsItsServiceWithItsPropertiesAndStopsItOnceWhileTheContextLives) {
    auto service = std::make_shared<RecordingService>(true);
    {
        const auto entry = make(validContext(), service);
        EXPECT_THAT(service->calls, ElementsAre("start hello"));
    }
    EXPECT_THAT(service->calls, ElementsAre("start hello", "stop"));
}

TEST_F(ServiceEntryTest, RefusalsNameTheirCauseAndNeverStopWhatDidNotStart) {
    const auto failureOf = [this](Context context, std::shared_ptr<agent::core::service::ServiceBase> service) {
        try {
            make(std::move(context), std::move(service));
        } catch (const std::runtime_error& e) {
            return std::string(e.what());
        }
        return std::string("no failure");
    };
    // The service is looked at before the context.
    EXPECT_EQ("Failed to create ServiceBase", failureOf(Context(), nullptr));
    EXPECT_EQ("Failed to create a valid Context", failureOf(Context(), std::make_shared<RecordingService>(true)));

    auto refusing = std::make_shared<RecordingService>(false);
    EXPECT_EQ("Failed to start service Recorder", failureOf(validContext(), refusing));
    EXPECT_THAT(refusing->calls, ElementsAre("start hello"));
}

}  // namespace
}  // namespace publishertest
