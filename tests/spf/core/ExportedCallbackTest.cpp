#include "agent/spf/core/ExportedCallback.h"
#include "agent/spf/core/ExportedDataSink.h"
#include "agent/spf/core/ExportedDataSource.h"

#include "support/Barrier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using agent::spf::core::ExportedCallback;
using agent::spf::core::ExportedDataSink;
using agent::spf::core::ExportedDataSource;
using agent::spf::core::GenericPayload;

TEST(ExportedCallbackTest, TheLastAllowedInvokeTellsItsHandlerAndLaterInvokesAreRefused) {
    std::vector<std::string> seen;
    ExportedCallback callback = ExportedCallback::make([&seen](std::string progress) { seen.push_back(progress); }, 2);
    auto state = callback.getSharedState();
    EXPECT_EQ(state->getMaximumInvokeCount(), 2u);
    EXPECT_EQ(state->getImplementation().argumentTypes(), (std::vector<std::type_index>{typeid(std::string)}));
    int lastInvokes = 0;
    state->setLastInvokeHandler([&lastInvokes] { ++lastInvokes; });

    state->invoke(GenericPayload::make("half"));
    EXPECT_EQ(lastInvokes, 0);
    state->invoke(GenericPayload::make("done"));
    EXPECT_EQ(lastInvokes, 1);
    EXPECT_FALSE(state->isActive());
    try {
        state->invoke(GenericPayload::make("again"));
        FAIL() << "expected a refusal";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Exported callback is no longer active");
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"half", "done"}));
    EXPECT_EQ(lastInvokes, 1);
}

TEST(ExportedCallbackTest, ClientRemovalTellsItsHandlerOnceAndServiceRemovalTellsNobody) {
    ExportedCallback callback = ExportedCallback::make([](std::int32_t) {});
    int clientRemovals = 0;
    callback.getSharedState()->setClientSideRemovedHandler([&clientRemovals] { ++clientRemovals; });
    ExportedCallback copy = callback;
    copy.remove();
    callback.remove();
    EXPECT_EQ(clientRemovals, 1);
    EXPECT_EQ(copy.getCallbackUUID(), callback.getCallbackUUID());
    EXPECT_THROW(callback.getSharedState()->invoke(GenericPayload::make(std::int32_t{1})), std::runtime_error);

    ExportedCallback other = ExportedCallback::make([](std::int32_t) {});
    int otherRemovals = 0;
    other.getSharedState()->setClientSideRemovedHandler([&otherRemovals] { ++otherRemovals; });
    other.getSharedState()->serviceSideHasRemovedCallback();
    other.remove();
    EXPECT_EQ(otherRemovals, 0);
    EXPECT_NE(other.getCallbackUUID(), callback.getCallbackUUID());
}

TEST(ExportedCallbackTest, ConcurrentInvokesNeverExceedTheMaximumCount) {
    constexpr int threadCount = 8;
    constexpr std::uint64_t maximum = 5;
    std::atomic<int> runs{0};
    std::atomic<int> lastInvokes{0};
    ExportedCallback callback = ExportedCallback::make([&runs] { ++runs; }, maximum);
    callback.getSharedState()->setLastInvokeHandler([&lastInvokes] { ++lastInvokes; });
    testsupport::Barrier start(threadCount);
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&] {
            start.ArriveAndWait();
            try {
                callback.getSharedState()->invoke(GenericPayload());
            } catch (const std::runtime_error&) {
                ++refused;
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(runs.load(), static_cast<int>(maximum));
    EXPECT_EQ(refused.load(), threadCount - static_cast<int>(maximum));
    EXPECT_EQ(lastInvokes.load(), 1);
}

TEST(ExportedCallbackTest, DataSinksAndSourcesShareTheirStreams) {
    auto out = std::make_shared<std::stringstream>();
    ExportedDataSink sink(out);
    GenericPayload args = GenericPayload::make(sink, ExportedDataSource(std::make_shared<std::istringstream>("in")));
    *args.get<ExportedDataSink>(0).getExportedOutputStream() << "written";
    EXPECT_EQ(out->str(), "written");
    std::string read;
    *args.get<ExportedDataSource>(1).getExportedInputStream() >> read;
    EXPECT_EQ(read, "in");
    EXPECT_THROW(ExportedDataSink(nullptr), std::invalid_argument);
    EXPECT_THROW(ExportedDataSource(nullptr), std::invalid_argument);
}
