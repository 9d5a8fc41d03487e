// The trace line: timestamp, thread, module, level, function and text.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KivTrace.h"
#include "PlatformHost/TraceHost.h"
#include "TraceCapture.h"
#include "TraceLine.h"
#include "ZynSupport/MonotonicClock.h"

namespace {

const KivTraceHeader kHeader{"PlatformServices/TickScheduler/private/Example.cpp", 42, "exampleFunction"};

long kernelThreadId() { return static_cast<long>(::syscall(SYS_gettid)); }

double monotonicSeconds() {
    return static_cast<double>(zyn_support::monotonicNowNs()) / static_cast<double>(zyn_support::kNanosecondsPerSecond);
}

TEST(TraceLineTest, MessageCarriesTimestampThreadModuleLevelFunctionAndText) {
    TraceCapture capture;
    KivTrace trace("LINE.MSG", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    const double before = monotonicSeconds();
    trace.logMsg(KIV_TRACE_INFO, kHeader, "Tick Handler Audio unregistered successfully");
    const double after = monotonicSeconds();

    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    const std::regex format(R"(^(\d+\.\d{6}) (\d+) LINE\.MSG L5 exampleFunction: (.*)$)");
    std::smatch fields;
    ASSERT_TRUE(std::regex_match(lines[0], fields, format)) << lines[0];
    const double stamp = std::stod(fields[1].str());
    EXPECT_GE(stamp, before - 1e-6);
    EXPECT_LE(stamp, after + 1e-6);
    EXPECT_EQ(std::stol(fields[2].str()), kernelThreadId());
    EXPECT_EQ(fields[3].str(), "Tick Handler Audio unregistered successfully");
}

TEST(TraceLineTest, ThreadIdIsTheWritingThreads) {
    TraceCapture capture;
    KivTrace trace("LINE.THREAD", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    long writer = 0;
    std::thread thread([&] {
        writer = kernelThreadId();
        trace.logMsg(KIV_TRACE_ERROR, kHeader, "from another thread");
    });
    thread.join();
    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(writer, kernelThreadId());
    EXPECT_NE(lines[0].find(" " + std::to_string(writer) + " LINE.THREAD L1 "), std::string::npos) << lines[0];
}

TEST(TraceLineTest, EntryRecordIsMarkedAsEntry) {
    TraceCapture capture;
    KivTrace trace("LINE.ENTRY", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    trace.logEnterMsg(KIV_TRACE_ENTER, kHeader);
    trace.logEnterMsg(KIV_TRACE_ENTER, kHeader, "eDelay=6, ePriority=0");

    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    const std::regex plainEntry(R"(^\d+\.\d{6} \d+ LINE\.ENTRY L6 -> exampleFunction$)");
    const std::regex entryWithText(R"(^\d+\.\d{6} \d+ LINE\.ENTRY L6 -> exampleFunction: eDelay=6, ePriority=0$)");
    EXPECT_TRUE(std::regex_match(lines[0], plainEntry)) << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], entryWithText)) << lines[1];
}

TEST(TraceLineTest, FileLineOptionAddsTheSourcePosition) {
    TraceCapture capture;
    KivTrace trace("LINE.FILE", KIV_TRACE_DETAIL,
                   static_cast<KivTraceHdrOption>(KIV_TRACE_HDR_FILE_LINE | KIV_TRACE_HDR_FUNCTION));
    trace.logMsg(KIV_TRACE_WARNING, kHeader, "text");
    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(
        lines[0].find(" LINE.FILE L2 PlatformServices/TickScheduler/private/Example.cpp:42 exampleFunction: text"),
        std::string::npos)
        << lines[0];
}

TEST(TraceLineTest, WithoutFunctionOptionAMessageShowsOnlyItsText) {
    TraceCapture capture;
    KivTrace trace("LINE.BARE", KIV_TRACE_DETAIL, KIV_TRACE_HDR_NONE);
    trace.logMsg(KIV_TRACE_WARNING, kHeader, "text");
    trace.logEnterMsg(KIV_TRACE_ENTER, kHeader);
    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(^\d+\.\d{6} \d+ LINE\.BARE L2 text$)"))) << lines[0];
    // An entry record names its function whatever the option.
    EXPECT_NE(lines[1].find("L6 -> exampleFunction"), std::string::npos) << lines[1];
}

TEST(TraceLineTest, LineBreaksInTextKeepOneMessageOnOneLine) {
    TraceCapture capture;
    KivTrace trace("LINE.BREAK", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    trace.logMsg(KIV_TRACE_WARNING, kHeader, "first\nsecond\r");
    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("exampleFunction: first\\nsecond\\r"), std::string::npos) << lines[0];
    EXPECT_EQ(lines[0].find('\n'), std::string::npos);
}

TEST(TraceLineTest, MissingHeaderNamesShowAPlaceholder) {
    TraceCapture capture;
    KivTrace trace("LINE.NULLS", KIV_TRACE_DETAIL,
                   static_cast<KivTraceHdrOption>(KIV_TRACE_HDR_FILE_LINE | KIV_TRACE_HDR_FUNCTION));
    const KivTraceHeader empty{nullptr, 7, nullptr};
    trace.logMsg(KIV_TRACE_WARNING, empty, "text");
    const std::vector<std::string> lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("L2 ?:7 ?: text"), std::string::npos) << lines[0];
}

TEST(TraceLineTest, TimestampShowsMicroseconds) {
    platform_host::detail::TraceLineFields fields{};
    fields.timestamp = timespec{12345, 678901999};
    fields.threadId = 4711;
    const std::string module = "ZYN.TS";
    const std::string text = "Thread is already running";
    fields.moduleName = &module;
    fields.level = 2;
    fields.headerOption = KIV_TRACE_HDR_FUNCTION;
    fields.header = &kHeader;
    fields.text = &text;
    EXPECT_EQ(platform_host::detail::formatTraceLine(fields),
              "12345.678901 4711 ZYN.TS L2 exampleFunction: Thread is already running");
    fields.timestamp = timespec{3, 5000};
    EXPECT_EQ(platform_host::detail::formatTraceLine(fields),
              "3.000005 4711 ZYN.TS L2 exampleFunction: Thread is already running");
}

TEST(TraceLineTest, WithoutSinkLinesGoToStderrWithNewline) {
    platform_host::setTraceSink({});
    KivTrace trace("LINE.STDERR", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    ::testing::internal::CaptureStderr();
    trace.logMsg(KIV_TRACE_ERROR, kHeader, "to stderr");
    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(
        std::regex_match(written, std::regex(R"(^\d+\.\d{6} \d+ LINE\.STDERR L1 exampleFunction: to stderr\n$)")))
        << written;
}

TEST(TraceLineTest, TracingKeepsErrno) {
    TraceCapture capture;
    KivTrace trace("LINE.ERRNO", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    errno = EAGAIN;
    trace.logMsg(KIV_TRACE_ERROR, kHeader, "text");
    EXPECT_EQ(errno, EAGAIN);
    errno = EINTR;
    trace.logEnterMsg(KIV_TRACE_ENTER, kHeader, "text");
    EXPECT_EQ(errno, EINTR);
}

TEST(TraceLineTest, ThrowingSinkDoesNotReachTheTracedCode) {
    platform_host::setTraceSink([](const std::string&) { throw std::runtime_error("sink failed"); });
    KivTrace trace("LINE.THROW", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    EXPECT_NO_THROW(trace.logMsg(KIV_TRACE_ERROR, kHeader, "text"));
    platform_host::setTraceSink({});
}

TEST(TraceLineTest, LinesFromManyThreadsArriveWholeAndOneAtATime) {
    constexpr int kThreads = 4;
    constexpr int kLinesPerThread = 300;
    // Deliberately unsynchronised: the service calls the sink one line at a time.
    std::vector<std::string> lines;
    platform_host::setTraceSink([&lines](const std::string& line) { lines.push_back(line); });
    KivTrace trace("LINE.MANY", KIV_TRACE_DETAIL, KIV_TRACE_HDR_FUNCTION);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&trace, t] {
            for (int i = 0; i < kLinesPerThread; ++i) {
                trace.logMsg(KIV_TRACE_INFO, kHeader, "thread " + std::to_string(t) + " line " + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    platform_host::setTraceSink({});

    ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLinesPerThread));
    const std::regex format(R"(^\d+\.\d{6} \d+ LINE\.MANY L5 exampleFunction: thread \d line \d+$)");
    for (const std::string& line : lines) {
        ASSERT_TRUE(std::regex_match(line, format)) << line;
    }
}

}  // namespace
