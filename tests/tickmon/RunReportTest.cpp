#include "RunReport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "SyntheticTicks.h"
#include "TextChecks.h"

namespace tickmon {
namespace {

RunReport sampleReport() {
    RunReport report;
    report.options.durationNs = 1000000000;
    report.options.handlerCount = 2;
    report.options.intervals = {1, 3};
    report.options.workNs = 50000;
    report.stopReason = StopReason::Duration;
    report.elapsedNs = 1002000000;
    report.passes = 6;
    report.ticks =
        analyzeTicks(synthetic::timestamps({{1, 2000}, {2, 4000}, {3, 2000}, {5, 12000}, {6, 2000}, {7, 3000}}),
                     PublishedGrid{synthetic::kOriginNs, synthetic::kPeriodNs, 4});
    report.handlers = checkHandlers(6, {{"tickmon-handler-0", 1, 6}, {"tickmon-handler-1", 3, 1}});
    report.thread.found = true;
    report.thread.tid = 4321;
    report.thread.name = "zyn-ts-osc6";
    report.thread.policy = 2;
    report.thread.policyName = "SCHED_RR";
    report.thread.priority = 79;
    report.thread.cpuMeasured = true;
    report.thread.cpuNsPerSecond = 1234567.0;
    report.thread.cpuSource = "schedstat";
    report.passed = allHandlersOk(report.handlers);
    return report;
}

TEST(RunReport, TextShowsEveryFigure) {
    const std::string text = formatReport(sampleReport());
    EXPECT_TRUE(containsAll(
        text, {"zyn-tickmon: 1.002 s run, stopped after the requested duration",
               "2 handlers beside the probe, intervals 1,3, 50.000 us work per call", "  periods              5\n",
               "  expected      6000.000 us\n", "  min           5990.000 us\n", "  max          12010.000 us\n",
               "  p99             12.000 us\n", "  max             12.000 us\n", "  recorded             6\n",
               "  expected             7  (grid points", "  missed               1  (grid points without a tick)\n"}));
    EXPECT_FALSE(contains(text, "drift")) << text;
    EXPECT_TRUE(
        containsAll(text, {"  origin    123456.789012 s", "  period        6000.000 us\n", "  generation           4\n",
                           "  no tick before its grid point              ok   (0 early)",
                           "  no grid point with more than one tick      ok   (0 extra)",
                           "  every handler called as its interval says  FAIL\n",
                           "tickmon-handler-1    interval 3               1 / 2          WRONG",
                           "tickmon-handler-0    interval 1               6 / 6          ok",
                           "  name      zyn-ts-osc6 (tid 4321)\n", "  policy    SCHED_RR, priority 79\n",
                           "  CPU time  1.235 ms per second (0.123 %), from schedstat\n", "Self-test: FAIL"}));
}

TEST(RunReport, TextSaysPassWhenEveryHandlerIsRight) {
    RunReport report = sampleReport();
    report.handlers = checkHandlers(6, {{"tickmon-handler-0", 1, 6}, {"tickmon-handler-1", 3, 2}});
    report.passed = true;
    EXPECT_TRUE(contains(formatReport(report), "Self-test: PASS"));
}

TEST(RunReport, TextNamesTheGridItemThatFailed) {
    RunReport report = sampleReport();
    report.ticks = analyzeTicks(synthetic::timestamps({{1, 2000}, {1, 5000000}, {2, 2000}}),
                                PublishedGrid{synthetic::kOriginNs, synthetic::kPeriodNs, 1});
    report.passed = false;
    const std::string text = formatReport(report);
    EXPECT_TRUE(containsAll(text, {"  no tick before its grid point              ok   (0 early)",
                                   "  no grid point with more than one tick      FAIL (1 extra)", "Self-test: FAIL"}));
}

TEST(RunReport, HeadingAndJsonNameTheMeasuredScheduler) {
    RunReport report = sampleReport();
    EXPECT_TRUE(contains(formatReport(report), "  CTickScheduler, 6 ms grid, ETickPriority 2;"))
        << formatReport(report);
    EXPECT_EQ(nlohmann::json::parse(formatJson(report)).at("settings").at("grid").get<std::string>(), "scheduler");

    report.options.grid = MonitoredGrid::Fast;
    report.options.priority = 1;
    report.options.intervals = {1};
    report.ticks = analyzeTicks(synthetic::timestamps({{1, 2000}, {2, 4000}}, 1000000),
                                PublishedGrid{synthetic::kOriginNs, 1000000, 1});
    const std::string text = formatReport(report);
    EXPECT_TRUE(contains(text,
                         "  CTickSchedulerFast, 1 ms grid, ETickPriority 1; 2 handlers beside the probe, "
                         "intervals 1,"))
        << text;
    const nlohmann::json doc = nlohmann::json::parse(formatJson(report));
    EXPECT_EQ(doc.at("settings").at("grid").get<std::string>(), "fast");
    EXPECT_EQ(doc.at("settings").at("scheduler").get<std::string>(), "CTickSchedulerFast");
}

TEST(RunReport, JsonHoldsEveryFigureAndTheSettings) {
    const nlohmann::json doc = nlohmann::json::parse(formatJson(sampleReport()));
    EXPECT_EQ(doc.at("tool").get<std::string>(), "zyn-tickmon");
    EXPECT_EQ(doc.at("version").get<double>(), 2);
    EXPECT_EQ(doc.at("settings").at("duration_ns").get<double>(), 1e9);
    EXPECT_TRUE(doc.at("settings").at("ticks").is_null());
    EXPECT_EQ(doc.at("settings").at("priority").get<double>(), 2);
    EXPECT_EQ(doc.at("settings").at("handlers").get<double>(), 2);
    EXPECT_EQ(doc.at("settings").at("intervals").size(), 2u);
    EXPECT_EQ(doc.at("settings").at("work_ns").get<double>(), 50000);
    EXPECT_EQ(doc.at("stop_reason").get<std::string>(), "duration");
    EXPECT_EQ(doc.at("passes").get<double>(), 6);
    EXPECT_EQ(doc.at("period_ns").at("count").get<double>(), 5);
    EXPECT_EQ(doc.at("period_ns").at("expected").get<double>(), 6e6);
    EXPECT_EQ(doc.at("period_ns").at("min").get<double>(), 5.99e6);
    for (const char* field : {"min", "mean", "p50", "p99", "p99_9", "max"}) {
        EXPECT_TRUE(doc.at("latency_ns").contains(field)) << field;
    }
    EXPECT_EQ(doc.at("latency_ns").at("min").get<double>(), 2000);
    EXPECT_EQ(doc.at("latency_ns").at("max").get<double>(), 12000);
    EXPECT_EQ(doc.at("ticks").at("recorded").get<double>(), 6);
    EXPECT_EQ(doc.at("ticks").at("expected").get<double>(), 7);
    EXPECT_EQ(doc.at("ticks").at("missed").get<double>(), 1);
    EXPECT_EQ(doc.at("ticks").at("before_their_grid_point").get<double>(), 0);
    EXPECT_EQ(doc.at("ticks").at("on_a_grid_point_already_ticked").get<double>(), 0);
    EXPECT_FALSE(doc.at("ticks").contains("drift_ns"));
    EXPECT_EQ(doc.at("grid").at("origin_ns").get<double>(), static_cast<double>(synthetic::kOriginNs));
    EXPECT_EQ(doc.at("grid").at("period_ns").get<double>(), 6e6);
    EXPECT_EQ(doc.at("grid").at("generation").get<double>(), 4);
    ASSERT_EQ(doc.at("handlers").size(), 2u);
    EXPECT_EQ(doc.at("handlers").at(1).at("name").get<std::string>(), "tickmon-handler-1");
    EXPECT_EQ(doc.at("handlers").at(1).at("expected").get<double>(), 2);
    EXPECT_FALSE(doc.at("handlers").at(1).at("ok").get<bool>());
    EXPECT_EQ(doc.at("oscillator_thread").at("policy").get<std::string>(), "SCHED_RR");
    EXPECT_EQ(doc.at("oscillator_thread").at("priority").get<double>(), 79);
    EXPECT_EQ(doc.at("oscillator_thread").at("cpu_ns_per_second").get<double>(), 1234567.0);
    EXPECT_FALSE(doc.at("passed").get<bool>());
}

TEST(RunReport, MissingThreadAndCpuAreSaidSo) {
    RunReport report = sampleReport();
    report.thread = OscillatorThreadReport{};
    EXPECT_TRUE(contains(formatReport(report), "Oscillator thread (from /proc)\n  not found\n"));
    const nlohmann::json doc = nlohmann::json::parse(formatJson(report));
    EXPECT_FALSE(doc.at("oscillator_thread").at("found").get<bool>());
    EXPECT_TRUE(doc.at("oscillator_thread").at("cpu_ns_per_second").is_null());
}

TEST(RunReport, ARefusedRealTimePriorityIsPointedOut) {
    RunReport report = sampleReport();
    EXPECT_FALSE(contains(formatReport(report), "not SCHED_RR"));
    report.thread.policy = 0;
    report.thread.policyName = "SCHED_OTHER";
    report.thread.priority = 0;
    const std::string text = formatReport(report);
    EXPECT_TRUE(containsAll(
        text, {"  policy    SCHED_OTHER, priority 0\n", "not SCHED_RR: the kernel refused the real-time priority"}));
}

TEST(RunReport, StopReasonsHaveNames) {
    EXPECT_STREQ(stopReasonName(StopReason::Duration), "duration");
    EXPECT_STREQ(stopReasonName(StopReason::Ticks), "ticks");
    EXPECT_STREQ(stopReasonName(StopReason::Interrupted), "interrupted");
}

}  // namespace
}  // namespace tickmon
