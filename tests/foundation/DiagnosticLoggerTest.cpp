#include "foundation/log/CaptureSink.h"
#include "foundation/log/DiagnosticLogger.h"
#include "foundation/log/StderrSink.h"

#include "ConcurrencyTestSupport.h"
#include "support/Barrier.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace log = foundation::log;

namespace {

// Captures the records of one logger for the duration of a test.
class DiagnosticLoggerTest : public ::testing::Test {
protected:
    void SetUp() override { log::addSink(capture_); }
    void TearDown() override { log::removeSink(capture_); }

    std::shared_ptr<log::capture_sink> capture_ = std::make_shared<log::capture_sink>("test.logger");
    log::diagnostic_logger logger_{"test.logger", log::defaultSeverityMask};
};

TEST_F(DiagnosticLoggerTest, MacroEvaluatesItsOperandsOnlyWhenEnabledAndItsArgumentsOnce) {
    int evaluations = 0, loggerLookups = 0;
    auto expensive = [&] { return std::to_string(++evaluations); };
    auto getLogger = [&]() -> const log::diagnostic_logger& {
        ++loggerLookups;
        return logger_;
    };
    FOUNDATION_LOG(logger_, log::severity::debug) << "hidden " << expensive();
    logger_.setMask(logger_.mask() | log::severity::debug);
    bool elseTaken = false;
    for (bool condition : {true, false}) {
        if (condition)
            FOUNDATION_LOG(getLogger(), log::severity::debug) << "value " << expensive() << ' ' << 7;
        else
            elseTaken = true;  // the macro must not swallow the else
    }
    logger_.setMask(0);
    logger_.log(0x100, "hidden too");
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(loggerLookups, 1);
    EXPECT_TRUE(elseTaken);
    const auto records = capture_->records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "value 1 7");
    EXPECT_EQ(records[0].severity, log::severity::debug);
    EXPECT_EQ(records[0].threadId, std::this_thread::get_id());
}

void tracedFunction(const log::diagnostic_logger& logger, log::capture_sink& capture, std::size_t& inside) {
    FOUNDATION_LOG_FUNCTION(logger);
    inside = capture.records().size();
}

// A trace line on stderr names the function, file and line it came from.
TEST_F(DiagnosticLoggerTest, FunctionTraceWritesEnterAndLeaveWithFunctionFileAndLine) {
    logger_.setMask(log::severity::trace);
    std::size_t inside = 0;
    tracedFunction(logger_, *capture_, inside);
    EXPECT_EQ(inside, 1u) << "enter is written on construction";
    const auto records = capture_->records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text + " " + records[1].text, "enter leave");
    for (const auto& rec : records) {
        EXPECT_EQ(rec.severity, log::severity::trace);
        EXPECT_NE(rec.function.find("tracedFunction"), std::string::npos) << rec.function;
        EXPECT_NE(rec.file.find("DiagnosticLoggerTest.cpp"), std::string::npos);
        EXPECT_GT(rec.line, 0);
        const auto line = log::stderr_sink::format(rec);  // as a trace line reads on stderr
        EXPECT_NE(line.find(" trace: " + rec.text + " " + rec.function + " (" + rec.file + ":" +
                            std::to_string(rec.line) + ")"),
                  std::string::npos)
            << line;
    }
}

// A sink that logs, changes the sinks or throws in consume() must neither deadlock nor
// fail the caller nor starve the other sinks; a sink is installed once.
TEST_F(DiagnosticLoggerTest, MisbehavingSinksDoNotHurtTheCallerOrTheOtherSinks) {
    struct Misbehaving : log::sink {
        std::function<void(const log::record&)> act;
        void consume(const log::record& rec) override { rec.loggerName == "test.logger" ? act(rec) : void(); }
    };
    log::diagnostic_logger inner("test.inner", log::defaultSeverityMask);
    auto innerCapture = std::make_shared<log::capture_sink>("test.inner");
    for (const auto& act : std::vector<std::function<void(const log::record&)>>{
             [&](const log::record& rec) {
                 log::addSink(innerCapture);
                 inner.log(0x04, "echo: " + rec.text);
             },
             [](const log::record&) { throw std::runtime_error("sink failed"); }}) {
        auto sink = std::make_shared<Misbehaving>();
        sink->act = act;
        log::addSink(sink);
        log::addSink(capture_);  // already installed: no second delivery
        EXPECT_NO_THROW(logger_.log(0x04, "hello"));
        EXPECT_TRUE(log::removeSink(sink));
        EXPECT_FALSE(log::removeSink(sink));
    }
    logger_.log(0x04, "after");
    EXPECT_EQ(capture_->texts(), (std::vector<std::string>{"hello", "hello", "after"}));
    log::removeSink(innerCapture);
    EXPECT_TRUE(innerCapture->contains("echo: hello"));
    EXPECT_FALSE(innerCapture->contains("echo: after")) << "a removed sink heard a record";
    EXPECT_TRUE(log::removeSink(log::defaultStderrSink())) << "installed from the start";
    log::addSink(log::defaultStderrSink());
}

TEST_F(DiagnosticLoggerTest, ConcurrentLoggingWhileSinksChangeDeliversEveryRecord) {
    constexpr int kThreads = 8, kRecords = 200;
    testsupport::RunConcurrently(kThreads + 1, [&](int t) {
        for (int i = 0; i < kRecords; ++i) {
            if (t == kThreads) {  // churns the sink list meanwhile
                auto other = std::make_shared<log::capture_sink>("nobody");
                log::addSink(other);
                log::removeSink(other);
            } else {
                FOUNDATION_LOG(logger_, 0x04) << "thread " << t << " record " << i;
            }
        }
    });
    for (int t = 0; t < kThreads; ++t) {
        const std::string prefix = "thread " + std::to_string(t) + " ";
        EXPECT_EQ(capture_->count([&](const log::record& r) { return r.text.rfind(prefix, 0) == 0; }),
                  static_cast<std::size_t>(kRecords));
    }
}

TEST(StderrSinkTest, LineHasUtcMillisecondTimestampThreadNameSeverityAndText) {
    log::record rec;
    rec.timestamp = std::chrono::system_clock::time_point(std::chrono::milliseconds(1'700'000'000'123));
    rec.threadId = std::this_thread::get_id();
    rec.loggerName = "agent::spf::legacyservicepublisher";
    rec.severity = 0x104;
    rec.text = "Creating new Agent Connection";
    std::ostringstream thread;
    thread << rec.threadId;
    EXPECT_EQ(log::stderr_sink::format(rec), "2023-11-14T22:13:20.123Z [" + thread.str() +
                                                 "] agent::spf::legacyservicepublisher 0x104: "
                                                 "Creating new Agent Connection");
}

// The mask variable is read once per process, so it is checked in a child process:
// this test runs itself again with the variable set.
TEST(LoggerEnvironmentTest, MaskVariableSetsTheMaskOfNewLoggers) {
    if (const char* expected = std::getenv("FOUNDATION_LOG_MASK_EXPECTED")) {
        EXPECT_EQ(log::diagnostic_logger("child").mask(), std::strtoul(expected, nullptr, 0));
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
    if (std::getenv("FOUNDATION_LOG_MASK") == nullptr) {  // and without it, the default
        EXPECT_EQ(log::diagnostic_logger("fresh").mask(), 0x116u);
    }
}

}  // namespace
