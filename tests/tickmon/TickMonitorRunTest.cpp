// Short real runs of zyn-tickmon: the library started through the reference
// platform, real 6 ms ticks, and the program's outputs checked as a user's
// tools would read them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "HistogramLines.h"
#include "TemporaryDirectory.h"
#include "TextChecks.h"
#include "TimelineChecks.h"
#include "TimingEnvironment.h"

extern char** environ;

namespace {

using tickmon::contains;
using tickmon::containsAll;

// In a cross build the program is a target binary that the host kernel cannot
// start by itself: it is started under the emulator that runs this test
// (which finds the target's libraries through QEMU_LD_PREFIX).
#ifdef ZYN_TICKMON_EMULATOR
const char* const kLauncher = ZYN_TICKMON_EMULATOR;
#else
const char* const kLauncher = nullptr;
#endif

struct ProgramRun {
    int exitStatus = -1;
    std::string out;
    std::string err;
    /// From the start of the program to its end, timed by this test: a clock
    /// the monitor's own figures cannot influence.
    int64_t wallNs = 0;
};

/// Called while the program runs, with its process id and the file its
/// standard error goes to.
using WhileRunning = std::function<void(pid_t child, const std::string& errFile)>;

/// Runs zyn-tickmon with `arguments`; `path` replaces PATH when not empty.
ProgramRun runTickmon(const std::vector<std::string>& arguments, const std::string& path = "",
                      const WhileRunning& whileRunning = {}) {
    TemporaryDirectory scratch;
    const std::string outFile = scratch.file("stdout");
    const std::string errFile = scratch.file("stderr");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);

    std::vector<std::string> argv = {ZYN_TICKMON_PATH};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    if (kLauncher != nullptr) {
        argv.insert(argv.begin(), kLauncher);
    }
    std::vector<char*> argvPointers;
    for (std::string& a : argv) {
        argvPointers.push_back(a.data());
    }
    argvPointers.push_back(nullptr);
    std::vector<std::string> environment;
    for (char** e = environ; *e != nullptr; ++e) {
        if (path.empty() || std::string(*e).rfind("PATH=", 0) != 0) {
            environment.emplace_back(*e);
        }
    }
    if (!path.empty()) {
        environment.push_back("PATH=" + path);
    }
    std::vector<char*> environmentPointers;
    for (std::string& e : environment) {
        environmentPointers.push_back(e.data());
    }
    environmentPointers.push_back(nullptr);

    ProgramRun run;
    pid_t child = 0;
    const auto started = std::chrono::steady_clock::now();
    const int spawned =
        posix_spawn(&child, argvPointers[0], &actions, nullptr, argvPointers.data(), environmentPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot start " << ZYN_TICKMON_PATH;
        return run;
    }
    if (whileRunning) {
        whileRunning(child, errFile);
    }
    int status = 0;
    waitpid(child, &status, 0);
    run.wallNs =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - started).count();
    run.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    run.out = TemporaryDirectory::read(outFile);
    run.err = TemporaryDirectory::read(errFile);
    return run;
}

constexpr double kGridPeriodNs = 6e6;
constexpr double kFastGridPeriodNs = 1e6;

/// Grid points of the grid (6 ms unless said) that fit into `ns`, the one at
/// its start included: no source that keeps to the grid delivers more ticks
/// in that time.
double gridPointsWithin(int64_t ns, double periodNs = kGridPeriodNs) {
    return std::floor(static_cast<double>(ns) / periodNs) + 1.0;
}

TEST(TickMonitorRun, ShortRunPassesAndReportsEverySection) {
    TemporaryDirectory files;
    const ProgramRun run =
        runTickmon({"--duration", "300ms", "--handlers", "4", "--intervals", "1,2,3", "--work", "20us", "--json",
                    files.file("run.json"), "--histogram", files.file("run.hist")});
    ASSERT_EQ(run.exitStatus, 0) << run.out << run.err;
    for (const char* section :
         {"Tick period (probe handler, interval 1)", "Latency after the 6 ms grid", "p99.9", "Ticks\n", "missed",
          "Grid (published by the scheduler)", "Handlers (calls made / calls expected",
          "tickmon-handler-3    interval 1", "Oscillator thread (from /proc)", "name      zyn-ts-osc6",
          "policy    SCHED_", "Self-test: PASS"}) {
        EXPECT_TRUE(contains(run.out, section)) << section << "\n" << run.out;
    }
    EXPECT_FALSE(contains(run.out, "WRONG")) << run.out;
}

// The figures of a run checked against what the monitor cannot compute for
// itself: the time the program took as this test timed it, and the handlers'
// own call counts against the passes the probe counted. Only bounds that a
// stalled host cannot break: a stall delays ticks, it never adds any.
TEST(TickMonitorRun, JsonRecordAgreesWithTheClockOutsideTheRun) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--duration", "300ms", "--quiet", "--handlers", "4", "--intervals", "1,2,3",
                                       "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.out, "");
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    EXPECT_EQ(doc.at("settings").at("duration_ns").get<double>(), 3e8);
    EXPECT_EQ(doc.at("stop_reason").get<std::string>(), "duration");
    EXPECT_TRUE(doc.at("passed").get<bool>());

    // The run lasted its duration, and not longer than the program ran.
    const double elapsed = doc.at("elapsed_ns").get<double>();
    EXPECT_GE(elapsed, 3e8);
    EXPECT_LE(elapsed, static_cast<double>(run.wallNs));

    // At most one tick per grid point: a source that ticked early or in
    // bursts would deliver more ticks than 6 ms grid points fit into the time
    // the program ran.
    const double gridPoints = gridPointsWithin(run.wallNs);
    const double recorded = doc.at("ticks").at("recorded").get<double>();
    const double passes = doc.at("passes").get<double>();
    EXPECT_GE(recorded, 1.0);
    EXPECT_LE(recorded, gridPoints) << "wall time " << run.wallNs << " ns";
    EXPECT_LE(passes, gridPoints) << "wall time " << run.wallNs << " ns";
    // The published grid puts no two ticks on one grid point, and
    // spans no more grid points than the run had.
    const double gridPointsSpanned = doc.at("ticks").at("expected").get<double>();
    EXPECT_GE(gridPointsSpanned, recorded);
    EXPECT_LE(gridPointsSpanned, gridPoints);
    // Not too few either: the 300 ms of the run hold 50 grid points. A stall
    // of the host costs a few of them; a scheduler that ticked at a fraction
    // of its rate loses most. Under CPU emulation the grid cannot be kept.
    const std::string emulated = test_environment::timingSkipReason();
    if (emulated.empty()) {
        const double gridPointsOfTheDuration = 3e8 / kGridPeriodNs;
        EXPECT_GE(recorded, gridPointsOfTheDuration / 2) << "wall time " << run.wallNs << " ns";
        EXPECT_LE(doc.at("ticks").at("missed").get<double>(), gridPointsOfTheDuration / 4)
            << "wall time " << run.wallNs << " ns";
    } else {
        std::cout << "[ SKIPPED  ] the bounds on recorded and missed ticks: " << emulated << std::endl;
    }
    // The grid the scheduler published: none of its grid points got a tick
    // early or twice.
    EXPECT_EQ(doc.at("version").get<double>(), 2);
    EXPECT_EQ(doc.at("grid").at("period_ns").get<double>(), kGridPeriodNs);
    EXPECT_EQ(doc.at("grid").at("generation").get<double>(), 1);
    EXPECT_GT(doc.at("grid").at("origin_ns").get<double>(), 0);
    EXPECT_EQ(doc.at("ticks").at("before_their_grid_point").get<double>(), 0);
    EXPECT_EQ(doc.at("ticks").at("on_a_grid_point_already_ticked").get<double>(), 0);

    // Each handler of interval k is called on every k-th pass, counted by its
    // own tick function; the passes are counted by the probe.
    ASSERT_EQ(doc.at("handlers").size(), 4u);
    for (const nlohmann::json& handler : doc.at("handlers")) {
        const double interval = handler.at("interval").get<double>();
        ASSERT_GE(interval, 1.0) << handler.at("name").get<std::string>();
        const double calls = handler.at("calls").get<double>();
        EXPECT_NEAR(calls, passes / interval, 1.0)
            << handler.at("name").get<std::string>() << " over " << passes << " passes";
        EXPECT_LE(calls, std::ceil(gridPoints / interval)) << handler.at("name").get<std::string>();
    }
    EXPECT_TRUE(doc.at("oscillator_thread").at("found").get<bool>());
    EXPECT_EQ(doc.at("oscillator_thread").at("name").get<std::string>(), "zyn-ts-osc6");
}

// The fast scheduler's 1 ms grid, its oscillator started by the monitor: the
// same checks against the clock outside the run as on the 6 ms grid.
TEST(TickMonitorRun, FastGridRunKeepsTheOneMillisecondGrid) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon(
        {"--grid", "fast", "--duration", "300ms", "--quiet", "--handlers", "3", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    EXPECT_EQ(doc.at("settings").at("grid").get<std::string>(), "fast");
    EXPECT_EQ(doc.at("settings").at("scheduler").get<std::string>(), "CTickSchedulerFast");
    EXPECT_EQ(doc.at("grid").at("period_ns").get<double>(), kFastGridPeriodNs);
    EXPECT_EQ(doc.at("ticks").at("before_their_grid_point").get<double>(), 0);
    EXPECT_EQ(doc.at("ticks").at("on_a_grid_point_already_ticked").get<double>(), 0);

    const double gridPoints = gridPointsWithin(run.wallNs, kFastGridPeriodNs);
    const double recorded = doc.at("ticks").at("recorded").get<double>();
    const double passes = doc.at("passes").get<double>();
    EXPECT_LE(recorded, gridPoints) << "wall time " << run.wallNs << " ns";
    EXPECT_LE(passes, gridPoints) << "wall time " << run.wallNs << " ns";
    const std::string emulated = test_environment::timingSkipReason();
    if (emulated.empty()) {
        // 300 grid points: a stall costs a few, a 6 ms grid ticked instead
        // (a sixth of them) or a scheduler at half its rate fails.
        const double gridPointsOfTheDuration = 3e8 / kFastGridPeriodNs;
        EXPECT_GE(recorded, gridPointsOfTheDuration * 0.6) << "wall time " << run.wallNs << " ns";
        EXPECT_LE(doc.at("ticks").at("missed").get<double>(), gridPointsOfTheDuration / 4)
            << "wall time " << run.wallNs << " ns";
    } else {
        std::cout << "[ SKIPPED  ] the bounds on recorded and missed ticks: " << emulated << std::endl;
    }
    // Every handler on every pass: the fast scheduler has no intervals.
    ASSERT_EQ(doc.at("handlers").size(), 3u);
    for (const nlohmann::json& handler : doc.at("handlers")) {
        EXPECT_EQ(handler.at("interval").get<double>(), 1.0);
        EXPECT_EQ(handler.at("calls").get<double>(), passes) << handler.at("name").get<std::string>();
    }
    EXPECT_TRUE(doc.at("passed").get<bool>());
    EXPECT_TRUE(doc.at("oscillator_thread").at("found").get<bool>());
    EXPECT_EQ(doc.at("oscillator_thread").at("name").get<std::string>(), "zyn-ts-osc1");
}

TEST(TickMonitorRun, FastGridHandlerCalledTooRarelyFailsTheSelfTest) {
    const ProgramRun run = runTickmon({"--grid", "fast", "--ticks", "100", "--handlers", "2", "--inject-fault"});
    EXPECT_EQ(run.exitStatus, 1) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "CTickSchedulerFast, 1 ms grid")) << run.out;
    EXPECT_TRUE(contains(run.out, "WRONG")) << run.out;
    EXPECT_TRUE(contains(run.out, "Self-test: FAIL")) << run.out;
}

TEST(TickMonitorRun, FastGridWithIntervalsIsAUsageError) {
    const ProgramRun run = runTickmon({"--grid", "fast", "--intervals", "2"});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_EQ(run.err,
              "zyn-tickmon: --intervals: the fast scheduler calls every handler on every tick; expected no "
              "--intervals with --grid fast\n");
    EXPECT_EQ(run.out, "");
}

/// Runs the monitor with --json and --timeline besides `arguments` and
/// checks the timeline as a viewer reads it against the run's own report:
/// the same passes, the same calls of every handler, and the probe's ticks.
void expectTimelineMatchesTheReport(std::vector<std::string> arguments) {
    TemporaryDirectory files;
    const std::string reportFile = files.file("report.json");
    const std::string timelineFile = files.file("timeline.json");
    arguments.insert(arguments.end(), {"--quiet", "--json", reportFile, "--timeline", timelineFile});
    const ProgramRun run = runTickmon(arguments);
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    const nlohmann::json report = nlohmann::json::parse(TemporaryDirectory::read(reportFile));
    nlohmann::json timeline;
    ASSERT_NO_THROW(timeline = nlohmann::json::parse(TemporaryDirectory::read(timelineFile)));

    const tickmon::TimelineShape shape = tickmon::checkTimeline(timeline);
    EXPECT_TRUE(shape.problems.empty()) << shape.problems;
    EXPECT_EQ(timeline["otherData"]["lost_events"], 0);
    EXPECT_EQ(timeline["otherData"]["truncated"], false);
    const uint64_t passes = report["passes"].get<uint64_t>();
    EXPECT_GT(passes, 0u);
    EXPECT_EQ(shape.passes, passes);
    EXPECT_EQ(report["timeline"]["passes"].get<uint64_t>(), passes);
    EXPECT_EQ(shape.ticks, report["ticks"]["recorded"].get<uint64_t>());
    ASSERT_FALSE(report["handlers"].empty());
    for (const nlohmann::json& handler : report["handlers"]) {
        const std::string name = handler["name"].get<std::string>();
        const uint64_t calls = shape.callsPerHandler.count(name) != 0 ? shape.callsPerHandler.at(name) : 0;
        EXPECT_EQ(calls, handler["calls"].get<uint64_t>()) << name;
        EXPECT_EQ(report["timeline"]["calls"][name].get<uint64_t>(), handler["calls"].get<uint64_t>()) << name;
    }
    // The probe runs in every pass.
    EXPECT_EQ(shape.callsPerHandler.at("tickmon-probe"), passes);
}

TEST(TickMonitorRun, TenSecondTimelineIsValidTraceEventJsonWhoseCountsEqualTheReport) {
    expectTimelineMatchesTheReport({"--duration", "10s"});
}

TEST(TickMonitorRun, FastGridTimelineCountsEqualTheReport) {
    expectTimelineMatchesTheReport({"--grid", "fast", "--duration", "1s"});
}

TEST(TickMonitorRun, TimelineThatIsNoJsonFileNameIsAUsageError) {
    const ProgramRun run = runTickmon({"--ticks", "3", "--timeline", "trace.txt"});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_TRUE(contains(run.err, "--timeline")) << run.err;
}

TEST(TickMonitorRun, HistogramFileHasCyclictestLayout) {
    TemporaryDirectory files;
    const ProgramRun run =
        runTickmon({"--ticks", "30", "--quiet", "--histogram", files.file("h.txt"), "--histogram-buckets", "6000"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    std::istringstream lines(TemporaryDirectory::read(files.file("h.txt")));
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "# Histogram");
    uint64_t buckets = 0;
    uint64_t counted = 0;
    while (std::getline(lines, line) && isBucketLine(line)) {
        EXPECT_EQ(std::stoul(line.substr(0, 6)), buckets);
        counted += std::stoul(line.substr(7));
        ++buckets;
    }
    EXPECT_EQ(buckets, 6000u);
    EXPECT_EQ(counted, 30u);
    EXPECT_EQ(line, "# Total: 000000030");
    for (const char* prefix :
         {"# Min Latencies: ", "# Avg Latencies: ", "# Max Latencies: ", "# Histogram Overflows: 00000",
          "# Histogram Overflow at cycle number:", "# Thread 0:"}) {
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_EQ(line.rfind(prefix, 0), 0u) << line;
    }
}

TEST(TickMonitorRun, TickCountEndsTheRun) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--ticks", "20", "--quiet", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    EXPECT_EQ(doc.at("stop_reason").get<std::string>(), "ticks");
    EXPECT_EQ(doc.at("ticks").at("recorded").get<double>(), 20);
    // Counted by the probe's own tick function: at least the ticks recorded,
    // and never more than grid points passed while the program ran.
    EXPECT_GE(doc.at("passes").get<double>(), 20);
    EXPECT_LE(doc.at("passes").get<double>(), gridPointsWithin(run.wallNs));
}

TEST(TickMonitorRun, InterruptEndsAnOpenEndedRunWithAReport) {
    TemporaryDirectory files;
    // Without --duration or --ticks the run lasts until Ctrl-C. The first
    // status line shows the run is under way; then comes the interrupt.
    const ProgramRun run = runTickmon({"--json", files.file("run.json")}, "", [](pid_t child, const std::string& err) {
        bool statusSeen = false;
        for (int waited = 0; waited < 600 && !statusSeen; ++waited) {
            statusSeen = contains(TemporaryDirectory::read(err), "ticks ");
            if (!statusSeen) {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        }
        if (!statusSeen) {
            ADD_FAILURE() << "STUCK: the first status line of the open-ended run did not come within 30 s";
            kill(child, SIGKILL);
            return;
        }
        kill(child, SIGINT);
    });
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_TRUE(contains(run.out, "stopped by an interrupt")) << run.out;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    EXPECT_EQ(doc.at("stop_reason").get<std::string>(), "interrupted");
    EXPECT_TRUE(doc.at("settings").at("duration_ns").is_null());
    EXPECT_GE(doc.at("ticks").at("recorded").get<double>(), 1);
    EXPECT_TRUE(doc.at("passed").get<bool>());
}

TEST(TickMonitorRun, BadValueExitsWithUsageStatusAndOneLine) {
    const ProgramRun run = runTickmon({"--priority", "9"});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_EQ(run.err,
              "zyn-tickmon: --priority: invalid value '9'; expected an integer from 0 (highest) to 4 (lowest)\n");
    EXPECT_EQ(run.out, "");
}

TEST(TickMonitorRun, UnwritableOutputIsAUsageError) {
    const ProgramRun run = runTickmon({"--ticks", "5", "--json", "/nonexistent-dir/run.json"});
    EXPECT_EQ(run.exitStatus, 2);
    EXPECT_TRUE(contains(run.err, "--json: cannot write '/nonexistent-dir/run.json'")) << run.err;
}

TEST(TickMonitorRun, HelpExitsZero) {
    const ProgramRun run = runTickmon({"--help"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(contains(run.out, "Usage: zyn-tickmon"));
}

TEST(TickMonitorRun, AHandlerCalledTooRarelyFailsTheSelfTest) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon(
        {"--ticks", "30", "--handlers", "2", "--intervals", "2", "--inject-fault", "--json", files.file("run.json")});
    EXPECT_EQ(run.exitStatus, 1) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "WRONG")) << run.out;
    EXPECT_TRUE(contains(run.out, "Self-test: FAIL")) << run.out;
    EXPECT_TRUE(contains(run.err, "self-test failed")) << run.err;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    EXPECT_FALSE(doc.at("passed").get<bool>());
    EXPECT_FALSE(doc.at("handlers").at(0).at("ok").get<bool>());
    EXPECT_LT(doc.at("handlers").at(0).at("calls").get<double>(),
              doc.at("handlers").at(0).at("expected").get<double>());
    EXPECT_TRUE(doc.at("handlers").at(1).at("ok").get<bool>());
}

TEST(TickMonitorRun, PlotWithoutGnuplotIsAMessageNotAFailure) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--ticks", "5", "--quiet", "--plot", files.file("h.png")}, files.path());
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_TRUE(contains(run.err, "gnuplot is not installed")) << run.err;
}

TEST(TickMonitorRun, PlotRunsGnuplotFromThePath) {
    TemporaryDirectory files;
    files.write("gnuplot",
                "#!/bin/sh\nout=$(sed -n \"s/^set output '\\(.*\\)'$/\\1/p\" \"$1\")\nprintf PNG > \"$out\"\n", true);
    const ProgramRun run =
        runTickmon({"--ticks", "5", "--quiet", "--plot", files.file("h.png")}, files.path() + ":/usr/bin:/bin");
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(TemporaryDirectory::read(files.file("h.png")), "PNG");
}

TEST(TickMonitorRun, StatusLinesArePlainWhenNotOnATerminal) {
    const ProgramRun run = runTickmon({"--duration", "1200ms", "--handlers", "0"});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    // One line a second: "ticks 167  1.0 s / 1.2 s  latency min 0 avg 3 max 25 us  missed 0".
    std::istringstream lines(run.err);
    std::string line;
    int statusLines = 0;
    while (std::getline(lines, line)) {
        if (line.rfind("ticks ", 0) == 0) {
            ++statusLines;
            EXPECT_TRUE(containsAll(line, {" s / 1.2 s  latency min ", " us  missed "}));
        }
    }
    EXPECT_GE(statusLines, 1) << run.err;
    EXPECT_FALSE(contains(run.err, "\r")) << run.err;
}

TEST(TickMonitorRun, LastStatusLineShowsTheReportsFigures) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--duration", "1200ms", "--handlers", "0", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    std::istringstream lines(run.err);
    std::string line;
    std::string last;
    while (std::getline(lines, line)) {
        if (line.rfind("ticks ", 0) == 0) {
            last = line;
        }
    }
    ASSERT_FALSE(last.empty()) << run.err;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    const auto wholeUs = [](double ns) { return std::to_string(static_cast<uint64_t>(ns / 1000.0)); };
    const std::string figures = "latency min " + wholeUs(doc.at("latency_ns").at("min").get<double>()) + " avg " +
                                wholeUs(doc.at("latency_ns").at("mean").get<double>()) + " max " +
                                wholeUs(doc.at("latency_ns").at("max").get<double>()) + " us  missed " +
                                std::to_string(static_cast<uint64_t>(doc.at("ticks").at("missed").get<double>()));
    EXPECT_EQ(
        last.rfind("ticks " + std::to_string(static_cast<uint64_t>(doc.at("ticks").at("recorded").get<double>())) + " ",
                   0),
        0u)
        << last;
    EXPECT_TRUE(contains(last, figures)) << last << "\nexpected: " << figures;
}

// ---- Punctuality: latency request, memory lock, CPUs, break-trace, System

/// One usage error: exit 2, one line on stderr, nothing on stdout.
void expectUsageError(const std::vector<std::string>& arguments, const std::string& line) {
    const ProgramRun run = runTickmon(arguments);
    EXPECT_EQ(run.exitStatus, 2) << run.out << run.err;
    EXPECT_EQ(run.err, "zyn-tickmon: " + line + "\n");
    EXPECT_EQ(run.out, "");
}

TEST(TickMonitorRun, CpuLatencyValueOutsideItsRangeIsAUsageError) {
    expectUsageError({"--cpu-latency", "fast"},
                     "--cpu-latency: invalid value 'fast'; expected 'off' or microseconds from 0 to 2000000000");
}

TEST(TickMonitorRun, CpuThatIsNoCpuListIsAUsageError) {
    expectUsageError({"--cpu", "one"},
                     "--cpu: invalid value 'one'; expected a CPU number or list from 0 to 1023, e.g. 1, 0,2 or 0-3");
}

TEST(TickMonitorRun, CpuThisProcessMayNotUseIsAUsageError) {
    const ProgramRun run = runTickmon({"--ticks", "5", "--cpu", "1023"});
    EXPECT_EQ(run.exitStatus, 2) << run.out;
    EXPECT_TRUE(contains(run.err, "zyn-tickmon: --cpu: CPU 1023 is not available; this process may run on "))
        << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
}

TEST(TickMonitorRun, BreakTraceThresholdOutsideItsRangeIsAUsageError) {
    expectUsageError({"--break-trace", "0"},
                     "--break-trace: invalid value '0'; expected microseconds from 1 to 1000000");
}

TEST(TickMonitorRun, BreakTraceWithoutTracefsIsAUsageError) {
    TemporaryDirectory notTracefs;
    setenv("ZYN_TICKMON_TRACEFS", notTracefs.path().c_str(), 1);
    const ProgramRun run = runTickmon({"--ticks", "5", "--break-trace", "100"});
    unsetenv("ZYN_TICKMON_TRACEFS");
    EXPECT_EQ(run.exitStatus, 2) << run.out;
    EXPECT_TRUE(contains(run.err, "zyn-tickmon: --break-trace: tracefs not found")) << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
}

TEST(TickMonitorRun, FlagsTakeNoValue) {
    expectUsageError({"--no-mlock=yes"}, "--no-mlock: takes no value");
    expectUsageError({"--system=1"}, "--system: takes no value");
}

TEST(TickMonitorRun, BreakTraceMarksTheLateTickStopsTracingAndEndsTheRun) {
    TemporaryDirectory tracefs;
    tracefs.write("trace_marker", "");
    tracefs.write("tracing_on", "1");
    setenv("ZYN_TICKMON_TRACEFS", tracefs.path().c_str(), 1);
    // 1 us: some tick of a long run is surely that much later than the best.
    const ProgramRun run =
        runTickmon({"--duration", "60s", "--handlers", "0", "--break-trace", "1", "--json", tracefs.file("run.json")});
    unsetenv("ZYN_TICKMON_TRACEFS");
    ASSERT_EQ(run.exitStatus, 0) << run.out << run.err;
    const std::string marker = TemporaryDirectory::read(tracefs.file("trace_marker"));
    EXPECT_EQ(marker.rfind("zyn-tickmon: tick ", 0), 0u) << marker;
    EXPECT_TRUE(contains(marker, " us late (break-trace at 1.000 us)\n")) << marker;
    EXPECT_EQ(TemporaryDirectory::read(tracefs.file("tracing_on")), "0");
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(tracefs.file("run.json")));
    EXPECT_EQ(doc.at("stop_reason").get<std::string>(), "break-trace");
    const nlohmann::json& broke = doc.at("punctuality").at("break_trace");
    EXPECT_TRUE(broke.at("broke").get<bool>());
    const std::string tick = std::to_string(static_cast<uint64_t>(broke.at("tick").get<double>()));
    EXPECT_TRUE(contains(marker, "tick " + tick + " ")) << marker;
    EXPECT_TRUE(contains(run.out, "stopped by --break-trace at tick " + tick)) << run.out;
    EXPECT_TRUE(contains(run.out, "break-trace          tick " + tick + " was ")) << run.out;
    EXPECT_LT(doc.at("elapsed_ns").get<double>(), 60e9);
}

TEST(TickMonitorRun, DefaultRunReportsLatencyRequestMemoryLockAndSystem) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--duration", "300ms", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    for (const char* part :
         {"Punctuality\n", "  CPU latency request  ", "  memory               ", "  oscillator CPUs      allowed ",
          "(not pinned)", "\nSystem (", "preemption model: ", "steal time during the run: "}) {
        EXPECT_TRUE(contains(run.out, part)) << part << "\n" << run.out;
    }
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    const nlohmann::json& punctuality = doc.at("punctuality");
    // By default the request is 0 us, and the memory lock is asked for.
    EXPECT_EQ(punctuality.at("cpu_latency_request").at("us").get<double>(), 0);
    EXPECT_TRUE(punctuality.at("cpu_latency_request").at("held").is_boolean());
    EXPECT_NE(punctuality.at("memory_lock").get<std::string>(), "not asked (--no-mlock)");
    EXPECT_TRUE(punctuality.at("break_trace").is_null());
    EXPECT_TRUE(doc.at("system").contains("preemption"));
    EXPECT_TRUE(doc.at("system").at("steal_time").contains("costs_latency"));
}

TEST(TickMonitorRun, LatencyRequestOffAndNoMemoryLockAreReported) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon(
        {"--duration", "200ms", "--quiet", "--cpu-latency", "off", "--no-mlock", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    EXPECT_FALSE(doc.at("punctuality").at("cpu_latency_request").at("held").get<bool>());
    EXPECT_TRUE(doc.at("punctuality").at("cpu_latency_request").at("us").is_null());
    EXPECT_EQ(doc.at("punctuality").at("cpu_latency_request").at("detail").get<std::string>(), "off (no request made)");
    EXPECT_FALSE(doc.at("punctuality").at("memory_locked").get<bool>());
    EXPECT_EQ(doc.at("punctuality").at("memory_lock").get<std::string>(), "not asked (--no-mlock)");
}

TEST(TickMonitorRun, PinnedOscillatorRunsOnlyOnTheChosenCpu) {
    TemporaryDirectory files;
    const ProgramRun run =
        runTickmon({"--duration", "200ms", "--quiet", "--cpu", "0", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.err;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    const nlohmann::json& punctuality = doc.at("punctuality");
    ASSERT_EQ(punctuality.at("allowed_cpus").size(), 1u);
    EXPECT_EQ(punctuality.at("allowed_cpus").at(0).get<double>(), 0);
    EXPECT_EQ(punctuality.at("last_cpu").get<double>(), 0);
    EXPECT_EQ(punctuality.at("requested_cpus").size(), 1u);
}

TEST(TickMonitorRun, SystemPrintsOnlyTheSystemSectionAndExitsZero) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--system", "--json", files.file("system.json")});
    EXPECT_EQ(run.exitStatus, 0) << run.err;
    EXPECT_EQ(run.out.rfind("System (what on this machine costs tick latency", 0), 0u) << run.out;
    EXPECT_TRUE(contains(run.out, "real-time priority: not tried (--system)")) << run.out;
    EXPECT_FALSE(contains(run.out, "Latency")) << run.out;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("system.json")));
    EXPECT_TRUE(doc.at("system").contains("kernel"));
    EXPECT_FALSE(doc.contains("ticks"));
}

// One handler made slow on purpose is named as the culprit of the worst pass,
// in the report and in the JSON record. Its 3 ms of busy work per call dwarf
// anything else a pass does, even on a host that stalls the run for a while.
TEST(TickMonitorRun, ASlowHandlerIsNamedAsTheCulpritOfTheWorstPass) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--duration", "300ms", "--handlers", "3", "--intervals", "1", "--work",
                                       "0,0,3ms", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "Handler time (measured by the scheduler, per call)")) << run.out;
    EXPECT_TRUE(contains(run.out, "culprit tickmon-handler-2 (")) << run.out;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    const nlohmann::json& worst = doc.at("handler_time").at("worst_pass");
    EXPECT_EQ(worst.at("culprit").get<std::string>(), "tickmon-handler-2");
    EXPECT_GE(worst.at("culprit_ns").get<double>(), 3e6);
    EXPECT_GE(worst.at("duration_ns").get<double>(), worst.at("culprit_ns").get<double>());
    for (const nlohmann::json& handler : doc.at("handler_time").at("handlers")) {
        if (handler.at("name").get<std::string>() == "tickmon-handler-2") {
            EXPECT_GE(handler.at("min_ns").get<double>(), 3e6);
        }
    }
}

// ---- Precision wake

TEST(TickMonitorRun, WakeLeadThatIsNeitherOffAutoNorATimeInRangeIsAUsageError) {
    expectUsageError({"--wake-lead", "soon"},
                     "--wake-lead: invalid value 'soon'; expected 'off', 'auto' or a time from 1us to 3ms, e.g. 80us "
                     "(no unit: microseconds)");
    expectUsageError({"--wake-lead", "4ms"},
                     "--wake-lead: invalid value '4ms'; expected 'off', 'auto' or a time from 1us to 3ms, e.g. 80us "
                     "(no unit: microseconds)");
}

TEST(TickMonitorRun, AdaptiveWakeLeadRunPassesAndSplitsTheLatencyIntoWakeUpAndDelivery) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--duration", "600ms", "--wake-lead", "auto", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.out << run.err;
    for (const char* line : {"Wake-up and delivery (precision wake auto)", "kernel wake-up (behind lead)",
                             "delivery (behind grid point)", "late despite the lead", "spin ", "Self-test: PASS"}) {
        EXPECT_TRUE(contains(run.out, line)) << line << "\n" << run.out;
    }
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    EXPECT_EQ(doc.at("settings").at("wake_lead").get<std::string>(), "auto");
    const nlohmann::json& wake = doc.at("wake");
    EXPECT_EQ(wake.at("mode").get<std::string>(), "auto");
    EXPECT_GE(wake.at("lead_ns").get<double>(), wake.at("lead_floor_ns").get<double>());
    EXPECT_LE(wake.at("lead_ns").get<double>(), wake.at("lead_ceiling_ns").get<double>());
    // Every pass the probe counted was a tick the oscillator delivered.
    EXPECT_GE(wake.at("ticks").get<double>(), doc.at("passes").get<double>());
    EXPECT_EQ(wake.at("delivery_ns").at("count").get<double>(), wake.at("ticks").get<double>());
    EXPECT_EQ(doc.at("ticks").at("before_their_grid_point").get<double>(), 0);
}

// The switch reaches the fast scheduler's own oscillator: its adaptive
// lead's ceiling is 10 % of the 1 ms period, not of the 6 ms one.
TEST(TickMonitorRun, FastGridAdaptiveWakeLeadRunPassesOnTheFastSchedulersOscillator) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon(
        {"--grid", "fast", "--duration", "600ms", "--wake-lead", "auto", "--quiet", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.out << run.err;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    const nlohmann::json& wake = doc.at("wake");
    EXPECT_EQ(wake.at("mode").get<std::string>(), "auto");
    EXPECT_EQ(wake.at("lead_ceiling_ns").get<double>(), 100000);
    EXPECT_LE(wake.at("lead_ns").get<double>(), 100000);
    EXPECT_GE(wake.at("ticks").get<double>(), doc.at("passes").get<double>());
    EXPECT_EQ(doc.at("ticks").at("before_their_grid_point").get<double>(), 0);
    EXPECT_EQ(doc.at("ticks").at("on_a_grid_point_already_ticked").get<double>(), 0);
    EXPECT_TRUE(doc.at("passed").get<bool>());
}

TEST(TickMonitorRun, FastGridLeadOverHalfItsPeriodIsAUsageError) {
    expectUsageError({"--grid", "fast", "--wake-lead", "600us"},
                     "--wake-lead: 600us is more than half the fast scheduler's 1 ms period; expected 'off', 'auto' or "
                     "a time from 1us to 500us with --grid fast");
}

TEST(TickMonitorRun, DefaultRunSaysThePrecisionWakeIsOff) {
    TemporaryDirectory files;
    const ProgramRun run = runTickmon({"--ticks", "20", "--json", files.file("run.json")});
    ASSERT_EQ(run.exitStatus, 0) << run.out << run.err;
    EXPECT_TRUE(contains(run.out, "Wake-up and delivery (precision wake off)")) << run.out;
    const nlohmann::json doc = nlohmann::json::parse(TemporaryDirectory::read(files.file("run.json")));
    EXPECT_EQ(doc.at("settings").at("wake_lead").get<std::string>(), "off");
    EXPECT_EQ(doc.at("wake").at("mode").get<std::string>(), "off");
    EXPECT_EQ(doc.at("wake").at("ticks").get<double>(), 0);
    EXPECT_GT(doc.at("wake").at("wake_up_and_pass_ns").at("count").get<double>(), 0);
}

}  // namespace
