#include "RunReport.h"

#include <gtest/gtest.h>

#include "JsonReader.h"
#include "SyntheticTicks.h"

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

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(RunReport, TextShowsEveryFigure) {
    const std::string text = formatReport(sampleReport());
    EXPECT_TRUE(contains(text, "zyn-tickmon: 1.002 s run, stopped after the requested duration")) << text;
    EXPECT_TRUE(contains(text, "2 handlers beside the probe, intervals 1,3, 50.000 us work per call")) << text;
    EXPECT_TRUE(contains(text, "  periods              5\n")) << text;
    EXPECT_TRUE(contains(text, "  expected      6000.000 us\n")) << text;
    EXPECT_TRUE(contains(text, "  min           5990.000 us\n")) << text;
    EXPECT_TRUE(contains(text, "  max          12010.000 us\n")) << text;
    EXPECT_TRUE(contains(text, "  p99             12.000 us\n")) << text;
    EXPECT_TRUE(contains(text, "  max             12.000 us\n")) << text;
    EXPECT_TRUE(contains(text, "  recorded             6\n")) << text;
    EXPECT_TRUE(contains(text, "  expected             7  (grid points")) << text;
    EXPECT_TRUE(contains(text, "  missed               1  (grid points without a tick)\n")) << text;
    EXPECT_FALSE(contains(text, "drift")) << text;
    EXPECT_TRUE(contains(text, "  origin    123456.789012 s")) << text;
    EXPECT_TRUE(contains(text, "  period        6000.000 us\n")) << text;
    EXPECT_TRUE(contains(text, "  generation           4\n")) << text;
    EXPECT_TRUE(contains(text, "  no tick before its grid point              ok   (0 early)")) << text;
    EXPECT_TRUE(contains(text, "  no grid point with more than one tick      ok   (0 extra)")) << text;
    EXPECT_TRUE(contains(text, "  every handler called as its interval says  FAIL\n")) << text;
    EXPECT_TRUE(contains(text, "tickmon-handler-1    interval 3               1 / 2          WRONG")) << text;
    EXPECT_TRUE(contains(text, "tickmon-handler-0    interval 1               6 / 6          ok")) << text;
    EXPECT_TRUE(contains(text, "  name      zyn-ts-osc6 (tid 4321)\n")) << text;
    EXPECT_TRUE(contains(text, "  policy    SCHED_RR, priority 79\n")) << text;
    EXPECT_TRUE(contains(text, "  CPU time  1.235 ms per second (0.123 %), from schedstat\n")) << text;
    EXPECT_TRUE(contains(text, "Self-test: FAIL")) << text;
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
    EXPECT_TRUE(contains(text, "  no tick before its grid point              ok   (0 early)")) << text;
    EXPECT_TRUE(contains(text, "  no grid point with more than one tick      FAIL (1 extra)")) << text;
    EXPECT_TRUE(contains(text, "Self-test: FAIL")) << text;
}

TEST(RunReport, JsonHoldsEveryFigureAndTheSettings) {
    const json_reader::Value doc = json_reader::parse(formatJson(sampleReport()));
    EXPECT_EQ(doc["tool"].text, "zyn-tickmon");
    EXPECT_EQ(doc["version"].number, 2);
    EXPECT_EQ(doc["settings"]["duration_ns"].number, 1e9);
    EXPECT_EQ(doc["settings"]["ticks"].kind, json_reader::Value::Kind::Null);
    EXPECT_EQ(doc["settings"]["priority"].number, 2);
    EXPECT_EQ(doc["settings"]["handlers"].number, 2);
    EXPECT_EQ(doc["settings"]["intervals"].items.size(), 2u);
    EXPECT_EQ(doc["settings"]["work_ns"].number, 50000);
    EXPECT_EQ(doc["stop_reason"].text, "duration");
    EXPECT_EQ(doc["passes"].number, 6);
    EXPECT_EQ(doc["period_ns"]["count"].number, 5);
    EXPECT_EQ(doc["period_ns"]["expected"].number, 6e6);
    EXPECT_EQ(doc["period_ns"]["min"].number, 5.99e6);
    for (const char* field : {"min", "mean", "p50", "p99", "p99_9", "max"}) {
        EXPECT_TRUE(doc["latency_ns"].has(field)) << field;
    }
    EXPECT_EQ(doc["latency_ns"]["min"].number, 2000);
    EXPECT_EQ(doc["latency_ns"]["max"].number, 12000);
    EXPECT_EQ(doc["ticks"]["recorded"].number, 6);
    EXPECT_EQ(doc["ticks"]["expected"].number, 7);
    EXPECT_EQ(doc["ticks"]["missed"].number, 1);
    EXPECT_EQ(doc["ticks"]["before_their_grid_point"].number, 0);
    EXPECT_EQ(doc["ticks"]["on_a_grid_point_already_ticked"].number, 0);
    EXPECT_FALSE(doc["ticks"].has("drift_ns"));
    EXPECT_EQ(doc["grid"]["origin_ns"].number, static_cast<double>(synthetic::kOriginNs));
    EXPECT_EQ(doc["grid"]["period_ns"].number, 6e6);
    EXPECT_EQ(doc["grid"]["generation"].number, 4);
    ASSERT_EQ(doc["handlers"].items.size(), 2u);
    EXPECT_EQ(doc["handlers"].items[1]["name"].text, "tickmon-handler-1");
    EXPECT_EQ(doc["handlers"].items[1]["expected"].number, 2);
    EXPECT_FALSE(doc["handlers"].items[1]["ok"].flag);
    EXPECT_EQ(doc["oscillator_thread"]["policy"].text, "SCHED_RR");
    EXPECT_EQ(doc["oscillator_thread"]["priority"].number, 79);
    EXPECT_EQ(doc["oscillator_thread"]["cpu_ns_per_second"].number, 1234567.0);
    EXPECT_FALSE(doc["passed"].flag);
}

TEST(RunReport, MissingThreadAndCpuAreSaidSo) {
    RunReport report = sampleReport();
    report.thread = OscillatorThreadReport{};
    EXPECT_TRUE(contains(formatReport(report), "Oscillator thread (from /proc)\n  not found\n"));
    const json_reader::Value doc = json_reader::parse(formatJson(report));
    EXPECT_FALSE(doc["oscillator_thread"]["found"].flag);
    EXPECT_EQ(doc["oscillator_thread"]["cpu_ns_per_second"].kind, json_reader::Value::Kind::Null);
}

TEST(RunReport, ARefusedRealTimePriorityIsPointedOut) {
    RunReport report = sampleReport();
    EXPECT_FALSE(contains(formatReport(report), "not SCHED_RR"));
    report.thread.policy = 0;
    report.thread.policyName = "SCHED_OTHER";
    report.thread.priority = 0;
    const std::string text = formatReport(report);
    EXPECT_TRUE(contains(text, "  policy    SCHED_OTHER, priority 0\n")) << text;
    EXPECT_TRUE(contains(text, "not SCHED_RR: the kernel refused the real-time priority")) << text;
}

TEST(RunReport, StopReasonsHaveNames) {
    EXPECT_STREQ(stopReasonName(StopReason::Duration), "duration");
    EXPECT_STREQ(stopReasonName(StopReason::Ticks), "ticks");
    EXPECT_STREQ(stopReasonName(StopReason::Interrupted), "interrupted");
}

}  // namespace
}  // namespace tickmon
