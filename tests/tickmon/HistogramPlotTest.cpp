#include "HistogramPlot.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "RunReport.h"
#include "TemporaryDirectory.h"
#include "TextChecks.h"

namespace tickmon {
namespace {

// A stand-in for gnuplot: reads the script it is given, writes a file where
// "set output" points and keeps a copy of the script and of the data.
const char* const kFakeGnuplot =
    "#!/bin/sh\n"
    "out=$(sed -n \"s/^set output '\\(.*\\)'$/\\1/p\" \"$1\")\n"
    "data=$(sed -n \"s/^plot '\\([^']*\\)'.*/\\1/p\" \"$1\")\n"
    "cp \"$1\" \"$(dirname \"$0\")/script-seen\"\n"
    "cp \"$data\" \"$(dirname \"$0\")/data-seen\"\n"
    "printf 'PNG' > \"$out\"\n";

constexpr int64_t kUs = 1000;

/// `count` latencies spread evenly over [fromUs, toUs).
std::vector<int64_t> spread(int64_t fromUs, int64_t toUs, int count) {
    std::vector<int64_t> latencies;
    for (int i = 0; i < count; ++i) {
        latencies.push_back(fromUs * kUs + (toUs - fromUs) * kUs * i / count);
    }
    return latencies;
}

/// A typical run on a loaded machine: 1000 ticks between 30 and 70 us, 10
/// more between 70 and 90 us, and two stalls of several milliseconds.
std::vector<int64_t> runWithTwoStalls() {
    std::vector<int64_t> latencies = spread(30, 70, 1000);
    const std::vector<int64_t> slower = spread(70, 90, 10);
    latencies.insert(latencies.end(), slower.begin(), slower.end());
    latencies.push_back(2500 * kUs);
    latencies.push_back(4509 * kUs);
    return latencies;
}

PlotSettings someSettings() {
    PlotSettings settings;
    settings.priority = "ETickPriority 2 (SCHED_RR 79)";
    settings.cpuLatency = "CPU latency request 0 us";
    return settings;
}

TEST(HistogramPlot, AxisReachesTheMaximumWhenNoTickIsFarBehindTheRest) {
    std::vector<int64_t> latencies = spread(40, 60, 500);
    latencies.push_back(75 * kUs);
    const HistogramLayout layout = layoutHistogram(latencies);
    EXPECT_FALSE(layout.folded());
    EXPECT_EQ(layout.maxNs, 75 * kUs);
    EXPECT_GT(layout.axisEndNs, layout.maxNs);
    EXPECT_LE(layout.axisEndNs, layout.maxNs + layout.binNs);
    EXPECT_EQ(layout.xRangeEndNs(), layout.axisEndNs);
    // About 60 bars over the run's own range, not over a fixed one.
    EXPECT_GE(layout.barCounts.size(), 30U);
    EXPECT_LE(layout.barCounts.size(), 80U);
    uint64_t drawn = 0;
    for (const uint64_t count : layout.barCounts) {
        drawn += count;
    }
    EXPECT_EQ(drawn, latencies.size());
}

TEST(HistogramPlot, FarTailIsFoldedIntoOneLastBar) {
    const HistogramLayout layout = layoutHistogram(runWithTwoStalls());
    ASSERT_TRUE(layout.folded());
    EXPECT_EQ(layout.tailTicks, 2U);
    EXPECT_EQ(layout.maxNs, 4509 * kUs);
    // The axis covers the bulk of the ticks (up to 90 us), not the stalls.
    EXPECT_GE(layout.axisEndNs, 89 * kUs);
    EXPECT_LE(layout.axisEndNs, 400 * kUs);
    EXPECT_GT(layout.tailBarCentreNs(), layout.axisEndNs);
    EXPECT_GT(layout.xRangeEndNs(), layout.tailBarCentreNs());
}

TEST(HistogramPlot, AFewTicksOneOfThemSlowStillSpreadTheBulkAcrossTheAxis) {
    // Under 1000 ticks p99.9 is the slowest tick itself: the bulk's end is
    // then taken from p99.
    std::vector<int64_t> latencies = spread(30, 60, 400);
    latencies.push_back(5000 * kUs);
    const HistogramLayout layout = layoutHistogram(latencies);
    ASSERT_TRUE(layout.folded());
    EXPECT_EQ(layout.tailTicks, 1U);
    EXPECT_LE(layout.axisEndNs, 4 * layout.p99Ns + layout.binNs);
}

TEST(HistogramPlot, MicrosecondRunsGetSubMicrosecondBars) {
    const HistogramLayout layout = layoutHistogram(spread(1, 4, 300));
    EXPECT_FALSE(layout.folded());
    EXPECT_LT(layout.binNs, kUs);
    EXPECT_LE(layout.axisEndNs, 5 * kUs);
    const std::string script = gnuplotScript(layout, "/tmp/data", "/tmp/h.png", "t");
    EXPECT_TRUE(contains(script, "set label \"p50 2.49 us\"")) << script;
}

TEST(HistogramPlot, ScriptDrawsTheRangeAndMarksP50P99AndTheMaximum) {
    std::vector<int64_t> latencies = spread(40, 60, 500);
    latencies.push_back(75 * kUs);
    const HistogramLayout layout = layoutHistogram(latencies);
    const std::string script = gnuplotScript(layout, "/tmp/data", "/tmp/it's.png", "latency");
    EXPECT_TRUE(containsAll(script, {"set terminal png", "set output '/tmp/it''s.png'\n", "set title \"latency\"\n"}));
    char range[64];
    std::snprintf(range, sizeof range, "set xrange [0:%.3f]\n", static_cast<double>(layout.axisEndNs) / 1000.0);
    EXPECT_TRUE(containsAll(
        script,
        {range, "set arrow from 50.000, graph 0 to 50.000, graph 1 nohead",
         "set label \"p50 50.0 us\" at 50.000, graph ", "set arrow from 59.800, graph 0 to 59.800, graph 1 nohead",
         "set label \"p99 59.8 us\" at 59.800, graph ", "set arrow from 75.000, graph 0 to 75.000, graph 1 nohead",
         "set label \"max 75.0 us\" at 75.000, graph "}));
    // The maximum's label is at the right end, so it goes left of its line.
    EXPECT_TRUE(containsAll(script, {"at 75.000, graph 0.84 right", "plot '/tmp/data' index 0 using 1:2 with boxes"}));
    EXPECT_FALSE(contains(script, "index 1")) << script;
}

TEST(HistogramPlot, ScriptLabelsTheFoldedTailAndMarksTheMaximumOnIt) {
    const HistogramLayout layout = layoutHistogram(runWithTwoStalls());
    const std::string script = gnuplotScript(layout, "/tmp/data", "/tmp/h.png", "t");
    const std::string tailAt = std::to_string(layout.tailBarCentreNs() / 1000) + "." +
                               std::to_string(layout.tailBarCentreNs() % 1000 + 1000).substr(1);
    const std::string axisEnd = std::to_string(layout.axisEndNs / 1000);
    EXPECT_TRUE(containsAll(
        script, {"set xtics add (\">= " + axisEnd + " us\\n2 ticks\" " + tailAt + ")",
                 "set arrow from " + tailAt + ", graph 0 to " + tailAt + ", graph 1",
                 "set label \"max (in the last bar) 4509 us\" at " + tailAt, "'' index 1 using 1:2 with boxes"}));
    // A dotted line where the axis ends; the axis's own tics stop short of
    // it, so none stands on the tail's place or on its label.
    EXPECT_TRUE(contains(script, "set arrow from " + axisEnd + ".000, graph 0 to " + axisEnd + ".000, graph 1 nohead"))
        << script;
    const size_t tics = script.find("set xtics 0, ");
    ASSERT_NE(tics, std::string::npos) << script;
    const std::string ticsLine = script.substr(tics, script.find('\n', tics) - tics);
    const double lastTicUs = std::stod(ticsLine.substr(ticsLine.rfind(", ") + 2));
    EXPECT_LT(lastTicUs * 1000.0, static_cast<double>(layout.axisEndNs)) << ticsLine;
}

TEST(HistogramPlot, DataHoldsTheBarsThenTheTail) {
    HistogramLayout layout;
    layout.ticks = 6;
    layout.binNs = 2 * kUs;
    layout.barCounts = {1, 0, 3};
    layout.axisEndNs = 6 * kUs;
    layout.tailTicks = 2;
    EXPECT_EQ(gnuplotData(layout), "1.000 1\n5.000 3\n\n\n9.000 2\n");
    layout.tailTicks = 0;
    EXPECT_EQ(gnuplotData(layout), "1.000 1\n5.000 3\n");
}

TEST(HistogramPlot, TitleNamesTheRunSettings) {
    const std::string title = plotTitle(someSettings(), 1664);
    EXPECT_EQ(title,
              "zyn-tickmon: latency after the 6 ms grid of CTickScheduler, 1664 ticks\n"
              "period 6 ms | ETickPriority 2 (SCHED_RR 79) | CPU latency request 0 us | wake: relative sleep");
    const std::string script = gnuplotScript(layoutHistogram({1000}), "d", "p.png", title);
    EXPECT_TRUE(contains(
        script, "set title \"zyn-tickmon: latency after the 6 ms grid of CTickScheduler, 1664 ticks\\nperiod 6 ms | "))
        << script;
}

TEST(HistogramPlot, SettingsComeFromTheRun) {
    RunReport report;
    report.ticks.periodNs = 6000000;
    report.options.priority = 1;
    report.thread.found = true;
    report.thread.policyName = "SCHED_RR";
    report.thread.priority = 80;
    report.punctuality.cpuLatencyHeld = true;
    report.punctuality.cpuLatencyUs = 0;
    PlotSettings settings = plotSettings(report);
    EXPECT_EQ(settings.scheduler, "CTickScheduler");
    EXPECT_EQ(settings.periodNs, 6000000);
    EXPECT_EQ(settings.priority, "ETickPriority 1 (SCHED_RR 80)");
    EXPECT_EQ(settings.cpuLatency, "CPU latency request 0 us");
    EXPECT_EQ(settings.wake, "relative sleep");

    report.punctuality.cpuLatencyHeld = false;
    report.thread.found = false;
    settings = plotSettings(report);
    EXPECT_EQ(settings.priority, "ETickPriority 1");
    EXPECT_EQ(settings.cpuLatency, "no CPU latency request held");

    report.options.grid = MonitoredGrid::Fast;
    report.ticks.periodNs = 1000000;
    settings = plotSettings(report);
    EXPECT_EQ(settings.scheduler, "CTickSchedulerFast");
    EXPECT_EQ(
        plotTitle(settings, 10).rfind("zyn-tickmon: latency after the 1 ms grid of CTickSchedulerFast, 10 ticks\n", 0),
        0u);
}

TEST(HistogramPlot, WithoutGnuplotSaysSoAndDrawsNothing) {
    TemporaryDirectory empty;
    const PlotOutcome outcome = plotHistogram({1000, 2000}, someSettings(), empty.file("h.png"), empty.file("gnuplot"));
    EXPECT_FALSE(outcome.drawn);
    EXPECT_TRUE(contains(outcome.message, "gnuplot is not installed")) << outcome.message;
    EXPECT_TRUE(contains(outcome.message, empty.file("h.png")));
    EXPECT_NE(access(empty.file("h.png").c_str(), F_OK), 0);
}

TEST(HistogramPlot, WithoutTicksDrawsNothing) {
    TemporaryDirectory tools;
    tools.write("gnuplot", kFakeGnuplot, true);
    const PlotOutcome outcome = plotHistogram({}, someSettings(), tools.file("h.png"), tools.file("gnuplot"));
    EXPECT_FALSE(outcome.drawn);
    EXPECT_TRUE(contains(outcome.message, "no ticks")) << outcome.message;
    EXPECT_NE(access(tools.file("script-seen").c_str(), F_OK), 0);
}

TEST(HistogramPlot, RunsGnuplotWithTheHistogram) {
    TemporaryDirectory tools;
    tools.write("gnuplot", kFakeGnuplot, true);
    const std::vector<int64_t> latencies = {1000, 2500, 2100, 7000};
    const PlotOutcome outcome = plotHistogram(latencies, someSettings(), tools.file("h.png"), tools.file("gnuplot"));
    EXPECT_TRUE(outcome.drawn) << outcome.message;
    EXPECT_EQ(TemporaryDirectory::read(tools.file("h.png")), "PNG");
    const HistogramLayout layout = layoutHistogram(latencies);
    EXPECT_EQ(TemporaryDirectory::read(tools.file("data-seen")), gnuplotData(layout));
    EXPECT_TRUE(contains(TemporaryDirectory::read(tools.file("script-seen")), "ETickPriority 2 (SCHED_RR 79)"));
}

TEST(HistogramPlot, AFailingGnuplotIsReported) {
    TemporaryDirectory tools;
    tools.write("gnuplot", "#!/bin/sh\nexit 3\n", true);
    const PlotOutcome outcome = plotHistogram({1000}, someSettings(), tools.file("h.png"), tools.file("gnuplot"));
    EXPECT_FALSE(outcome.drawn);
    EXPECT_TRUE(contains(outcome.message, "failed (status 3)")) << outcome.message;
}

/// The width and height in a PNG file's header chunk, or 0 x 0 when the
/// bytes are not a PNG file.
std::pair<uint32_t, uint32_t> pngSize(const std::string& bytes) {
    const std::string signature = "\x89PNG\r\n\x1a\n";
    if (bytes.size() < 24 || bytes.compare(0, signature.size(), signature) != 0 || bytes.compare(12, 4, "IHDR") != 0) {
        return {0, 0};
    }
    auto bigEndian = [&bytes](size_t at) {
        uint32_t value = 0;
        for (size_t i = 0; i < 4; ++i) {
            value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
        }
        return value;
    };
    return {bigEndian(16), bigEndian(20)};
}

// Real gnuplot, where it is installed (Debian gnuplot-nox): it must accept
// the script, markers and folded tail included, and draw the picture.
TEST(HistogramPlot, GnuplotDrawsASmallRunIntoAPng) {
    TemporaryDirectory files;
    const PlotOutcome outcome = plotHistogram(runWithTwoStalls(), someSettings(), files.file("h.png"));
    if (contains(outcome.message, "gnuplot is not installed")) {
        GTEST_SKIP() << "gnuplot is not installed (Debian package gnuplot-nox)";
    }
    ASSERT_TRUE(outcome.drawn) << outcome.message;
    const std::pair<uint32_t, uint32_t> size = pngSize(TemporaryDirectory::read(files.file("h.png")));
    EXPECT_EQ(size.first, 1000U);
    EXPECT_EQ(size.second, 600U);
}

}  // namespace
}  // namespace tickmon
