#include "foundation/log/CaptureSink.h"
#include "foundation/log/DiagnosticLogger.h"
#include "foundation/log/StderrSink.h"

#include "ConcurrencyTestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace log = foundation::log;
using foundation::testing::Barrier;
using foundation::testing::deadline;

namespace {

// Captures the records of one logger for the duration of a test.
class DiagnosticLoggerTest : public ::testing::Test {
protected:
    void SetUp() override { log::addSink(capture_); }
    void TearDown() override { log::removeSink(capture_); }

    std::shared_ptr<log::capture_sink> capture_ = std::make_shared<log::capture_sink>("test.logger");
    log::diagnostic_logger logger_{"test.logger", log::defaultSeverityMask};
};

TEST_F(DiagnosticLoggerTest, NewLoggerStartsWithWarningInfoExceptionAndError) {
    if (std::getenv("FOUNDATION_LOG_MASK") != nullptr) {
        GTEST_SKIP() << "FOUNDATION_LOG_MASK overrides the default";
    }
    log::diagnostic_logger fresh("fresh");
    EXPECT_EQ(fresh.mask(), 0x116u);
    EXPECT_EQ(fresh.name(), "fresh");
    EXPECT_FALSE(fresh.isEnabled(log::severity::trace));
    EXPECT_FALSE(fresh.isEnabled(log::severity::debug));
    EXPECT_TRUE(fresh.isEnabled(0x04));
    EXPECT_TRUE(fresh.isEnabled(0x100));
}

TEST_F(DiagnosticLoggerTest, DisabledRecordEvaluatesNothingAfterTheFirstShift) {
    int evaluations = 0;
    auto expensive = [&] {
        ++evaluations;
        return std::string("costly");
    };
    FOUNDATION_LOG(logger_, log::severity::debug) << "value " << expensive();
    EXPECT_EQ(evaluations, 0);
    EXPECT_TRUE(capture_->records().empty());

    logger_.setMask(logger_.mask() | log::severity::debug);
    FOUNDATION_LOG(logger_, log::severity::debug) << "value " << expensive() << ' ' << 7;
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(capture_->texts(), std::vector<std::string>{"value costly 7"});
}

TEST_F(DiagnosticLoggerTest, MacroArgumentsAreEvaluatedOnceAndItNestsInUnbracedIfElse) {
    int loggerLookups = 0;
    auto getLogger = [&]() -> const log::diagnostic_logger& {
        ++loggerLookups;
        return logger_;
    };
    bool elseTaken = false;
    for (bool condition : {true, false}) {
        if (condition)
            FOUNDATION_LOG(getLogger(), 0x04) << "inside";
        else
            elseTaken = true;
    }
    EXPECT_EQ(loggerLookups, 1);
    EXPECT_TRUE(elseTaken);
    EXPECT_EQ(capture_->texts(), std::vector<std::string>{"inside"});
}

TEST_F(DiagnosticLoggerTest, RecordCarriesLoggerNameSeverityThreadAndTime) {
    const auto before = std::chrono::system_clock::now();
    logger_.log(0x100, "failure explained");
    const auto after = std::chrono::system_clock::now();

    const auto records = capture_->records();
    ASSERT_EQ(records.size(), 1u);
    const auto& rec = records.front();
    EXPECT_EQ(rec.loggerName, "test.logger");
    EXPECT_EQ(rec.severity, 0x100u);
    EXPECT_EQ(rec.text, "failure explained");
    EXPECT_EQ(rec.threadId, std::this_thread::get_id());
    EXPECT_GE(rec.timestamp, before);
    EXPECT_LE(rec.timestamp, after);
    EXPECT_TRUE(rec.function.empty());
}

TEST_F(DiagnosticLoggerTest, MaskChangesTakeEffectForTheNextRecord) {
    logger_.log(0x04, "shown");
    logger_.setMask(0x100);
    logger_.log(0x04, "hidden");
    logger_.log(0x100, "error shown");
    logger_.setMask(0);
    logger_.log(0x100, "hidden too");
    EXPECT_EQ(capture_->texts(), (std::vector<std::string>{"shown", "error shown"}));
}

void tracedFunction(const log::diagnostic_logger& logger, log::capture_sink& capture, std::size_t& inside) {
    FOUNDATION_LOG_FUNCTION(logger);
    inside = capture.records().size();
}

TEST_F(DiagnosticLoggerTest, FunctionTraceWritesEnterAndLeaveWithFunctionFileAndLine) {
    std::size_t inside = 0;
    tracedFunction(logger_, *capture_, inside);
    EXPECT_TRUE(capture_->records().empty()) << "trace is off by default";

    logger_.setMask(log::severity::trace);
    tracedFunction(logger_, *capture_, inside);
    EXPECT_EQ(inside, 1u) << "enter is written on construction";
    const auto records = capture_->records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text, "enter");
    EXPECT_EQ(records[1].text, "leave");
    for (const auto& rec : records) {
        EXPECT_EQ(rec.severity, log::severity::trace);
        EXPECT_NE(rec.function.find("tracedFunction"), std::string::npos) << rec.function;
        EXPECT_NE(rec.file.find("DiagnosticLoggerTest.cpp"), std::string::npos);
        EXPECT_GT(rec.line, 0);
    }

    capture_->clear();
    {
        log::function_trace trace(logger_, "void Publisher::threadProc()", "src/ServicePublisher", 891);
    }
    const auto explicitRecords = capture_->records();
    ASSERT_EQ(explicitRecords.size(), 2u);
    EXPECT_EQ(explicitRecords[1].function, "void Publisher::threadProc()");
    EXPECT_EQ(explicitRecords[1].file, "src/ServicePublisher");
    EXPECT_EQ(explicitRecords[1].line, 891);
}

// A sink that logs from inside consume() must not deadlock the logger core.
class ReentrantSink : public log::sink {
public:
    explicit ReentrantSink(const log::diagnostic_logger& inner) : inner_(inner) {}
    void consume(const log::record& rec) override {
        if (rec.loggerName == "test.logger") {
            inner_.log(0x04, "echo: " + rec.text);
            log::addSink(nullptr);  // touches the sink list too
        }
    }

private:
    const log::diagnostic_logger& inner_;
};

TEST_F(DiagnosticLoggerTest, SinkThatLogsItselfDoesNotDeadlock) {
    log::diagnostic_logger inner("test.inner", log::defaultSeverityMask);
    auto innerCapture = std::make_shared<log::capture_sink>("test.inner");
    auto reentrant = std::make_shared<ReentrantSink>(inner);
    log::addSink(innerCapture);
    log::addSink(reentrant);
    logger_.log(0x04, "hello");
    log::removeSink(reentrant);
    log::removeSink(innerCapture);
    EXPECT_TRUE(innerCapture->contains("echo: hello"));
}

class ThrowingSink : public log::sink {
public:
    void consume(const log::record&) override { throw std::runtime_error("sink failed"); }
};

TEST_F(DiagnosticLoggerTest, ThrowingSinkNeitherFailsTheCallerNorStarvesOtherSinks) {
    auto throwing = std::make_shared<ThrowingSink>();
    log::addSink(throwing);
    // Installed after the capture: the capture gets the record either way.
    EXPECT_NO_THROW(logger_.log(0x04, "still delivered"));
    log::removeSink(throwing);
    EXPECT_TRUE(capture_->contains("still delivered"));
}

TEST_F(DiagnosticLoggerTest, RemovedSinkReceivesNothingAndSinksAreInstalledOnce) {
    log::addSink(capture_);  // already installed: no duplicate delivery
    logger_.log(0x04, "one");
    EXPECT_EQ(capture_->records().size(), 1u);
    EXPECT_TRUE(log::removeSink(capture_));
    EXPECT_FALSE(log::removeSink(capture_));
    logger_.log(0x04, "two");
    EXPECT_EQ(capture_->texts(), std::vector<std::string>{"one"});
    log::addSink(capture_);
}

TEST_F(DiagnosticLoggerTest, ConcurrentLoggingWhileSinksChangeDeliversEveryRecord) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 200;
    Barrier start(kThreads + 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.arriveAndWait();
            for (int i = 0; i < kRecords; ++i) {
                FOUNDATION_LOG(logger_, 0x04) << "thread " << t << " record " << i;
            }
        });
    }
    start.arriveAndWait();
    for (int i = 0; i < 100; ++i) {  // churn the sink list meanwhile
        auto other = std::make_shared<log::capture_sink>("nobody");
        log::addSink(other);
        log::removeSink(other);
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(capture_->records().size(), static_cast<std::size_t>(kThreads * kRecords));
    for (int t = 0; t < kThreads; ++t) {
        const std::string prefix = "thread " + std::to_string(t) + " ";
        EXPECT_EQ(capture_->count([&](const log::record& r) { return r.text.rfind(prefix, 0) == 0; }),
                  static_cast<std::size_t>(kRecords));
    }
}

TEST_F(DiagnosticLoggerTest, CaptureWaitsForRecordsFromOtherThreadsUntilItsDeadline) {
    std::thread writer([&] {
        for (int i = 0; i < 3; ++i) {
            logger_.log(0x100, "late " + std::to_string(i));
        }
    });
    EXPECT_TRUE(capture_->waitFor([](const log::record& r) { return r.text == "late 2"; }, deadline()));
    EXPECT_TRUE(capture_->waitForCount([](const log::record& r) { return r.severity == 0x100; }, 3, deadline()));
    writer.join();
    EXPECT_FALSE(capture_->waitFor([](const log::record& r) { return r.text == "never"; },
                                   std::chrono::steady_clock::now() + std::chrono::milliseconds(20)));
    capture_->clear();
    EXPECT_FALSE(capture_->contains("late"));
}

TEST(StderrSinkTest, LineHasUtcMillisecondTimestampThreadNameSeverityAndText) {
    log::record rec;
    rec.timestamp = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'700'000'000'123));
    rec.threadId = std::this_thread::get_id();
    rec.loggerName = "agent::spf::legacyservicepublisher";
    rec.severity = 0x04;
    rec.text = "Creating new Agent Connection";
    std::ostringstream thread;
    thread << rec.threadId;
    EXPECT_EQ(log::stderr_sink::format(rec), "2023-11-14T22:13:20.123Z [" + thread.str() +
                                                 "] agent::spf::legacyservicepublisher info: "
                                                 "Creating new Agent Connection");

    rec.severity = log::severity::trace;
    rec.text = "enter";
    rec.function = "void f()";
    rec.file = "src/F.cpp";
    rec.line = 12;
    const auto line = log::stderr_sink::format(rec);
    EXPECT_NE(line.find(" trace: enter void f() (src/F.cpp:12)"), std::string::npos) << line;
}

TEST(StderrSinkTest, DefaultStderrSinkIsInstalledAndRemovable) {
    auto stderrSink = log::defaultStderrSink();
    auto installed = log::installedSinks();
    EXPECT_NE(std::find(installed.begin(), installed.end(), stderrSink), installed.end());
    EXPECT_TRUE(log::removeSink(stderrSink));
    installed = log::installedSinks();
    EXPECT_EQ(std::find(installed.begin(), installed.end(), stderrSink), installed.end());
    log::addSink(stderrSink);
}

TEST(SeverityTest, NamesOfTheFlags) {
    const std::pair<std::uint32_t, const char*> names[] = {
        {0x01, "trace"}, {0x02, "warning"},   {0x04, "info"},  {0x08, "debug"},
        {0x10, "exception"}, {0x100, "error"}, {0x200, "0x200"}, {0x104, "0x104"},
    };
    for (const auto& [flag, name] : names) {
        EXPECT_EQ(log::severityName(flag), name);
    }
}

// The mask variable is read once per process, so it is checked in a child process:
// this test runs itself again with the variable set.
TEST(LoggerEnvironmentTest, MaskVariableSetsTheMaskOfNewLoggers) {
    const char* expected = std::getenv("FOUNDATION_LOG_MASK_EXPECTED");
    if (expected != nullptr) {
        log::diagnostic_logger logger("child");
        EXPECT_EQ(logger.mask(), std::strtoul(expected, nullptr, 0));
        return;
    }
    const std::pair<const char*, const char*> cases[] = {
        {"0x11f", "0x11f"}, {"287", "287"}, {"0X1", "1"}, {"junk", "0x116"}, {"0x", "0x116"}, {"12a", "0x116"},
    };
    for (const auto& [value, mask] : cases) {
        SCOPED_TRACE(value);
        const std::string command = std::string("FOUNDATION_LOG_MASK='") + value + "' FOUNDATION_LOG_MASK_EXPECTED=" +
                                    mask + " /proc/" + std::to_string(::getpid()) +
                                    "/exe --gtest_filter=LoggerEnvironmentTest.* > /dev/null 2>&1";
        EXPECT_EQ(std::system(command.c_str()), 0);
    }
}

}  // namespace
