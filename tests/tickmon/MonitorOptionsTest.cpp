#include "MonitorOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tickmon {
namespace {

ParseResult parse(std::vector<std::string> arguments) { return parseOptions(arguments); }

/// The error for `arguments`, which must be refused.
std::string errorOf(std::vector<std::string> arguments) {
    const ParseResult result = parseOptions(arguments);
    EXPECT_EQ(result.outcome, ParseOutcome::Error);
    EXPECT_EQ(result.error.find('\n'), std::string::npos) << "one line: " << result.error;
    return result.error;
}

TEST(MonitorOptions, DefaultsRunUntilInterruptedWithTheDefaultHandlerSet) {
    const ParseResult result = parse({});
    ASSERT_EQ(result.outcome, ParseOutcome::Run);
    EXPECT_FALSE(result.options.durationNs.has_value());
    EXPECT_FALSE(result.options.ticks.has_value());
    EXPECT_EQ(result.options.priority, 2);
    EXPECT_EQ(result.options.handlerCount, 6u);
    EXPECT_EQ(result.options.intervals, (std::vector<uint32_t>{1, 2, 5}));
    EXPECT_EQ(result.options.workNs, 0);
    EXPECT_FALSE(result.options.traceLevel.has_value());
    EXPECT_FALSE(result.options.quiet);
    EXPECT_EQ(result.options.histogramBuckets, 1000u);
}

TEST(MonitorOptions, ReadsEveryOption) {
    const ParseResult result = parse({"--duration",    "10s",         "--ticks",    "500",
                                      "--priority",    "0",           "--handlers", "12",
                                      "--intervals",   "1,3,7",       "--work",     "50us",
                                      "--trace-level", "5",           "--quiet",    "--json",
                                      "out.json",      "--histogram", "h.txt",      "--histogram-buckets",
                                      "200",           "--plot",      "p.png",      "--inject-fault"});
    ASSERT_EQ(result.outcome, ParseOutcome::Run) << result.error;
    const MonitorOptions& o = result.options;
    EXPECT_EQ(o.durationNs, 10000000000);
    EXPECT_EQ(o.ticks, 500u);
    EXPECT_EQ(o.priority, 0);
    EXPECT_EQ(o.handlerCount, 12u);
    EXPECT_EQ(o.intervals, (std::vector<uint32_t>{1, 3, 7}));
    EXPECT_EQ(o.workNs, 50000);
    EXPECT_EQ(o.traceLevel, 5u);
    EXPECT_TRUE(o.quiet);
    EXPECT_EQ(o.jsonPath, "out.json");
    EXPECT_EQ(o.histogramPath, "h.txt");
    EXPECT_EQ(o.histogramBuckets, 200u);
    EXPECT_EQ(o.plotPath, "p.png");
    EXPECT_TRUE(o.injectFault);
}

TEST(MonitorOptions, AcceptsValueAfterEqualsSign) {
    const ParseResult result = parse({"--duration=250ms", "--priority=4", "-q"});
    ASSERT_EQ(result.outcome, ParseOutcome::Run);
    EXPECT_EQ(result.options.durationNs, 250000000);
    EXPECT_EQ(result.options.priority, 4);
    EXPECT_TRUE(result.options.quiet);
}

TEST(MonitorOptions, AcceptsTheEndsOfEveryRange) {
    const std::vector<std::vector<std::string>> ends = {
        {"--duration", "1ms"}, {"--duration", "168h"},  {"--ticks", "1"},          {"--ticks", "100000000"},
        {"--handlers", "0"},   {"--handlers", "10000"}, {"--intervals", "100000"}, {"--work", "0"},
        {"--work", "6ms"},     {"--trace-level", "0"},  {"--trace-level", "7"},    {"--histogram-buckets", "6000"}};
    for (const std::vector<std::string>& arguments : ends) {
        EXPECT_EQ(parse(arguments).outcome, ParseOutcome::Run) << arguments[0] << " " << arguments[1];
    }
}

TEST(MonitorOptions, HelpWinsOverEverythingElse) {
    EXPECT_EQ(parse({"--help"}).outcome, ParseOutcome::Help);
    EXPECT_EQ(parse({"--priority", "1", "-h"}).outcome, ParseOutcome::Help);
}

TEST(MonitorOptions, PriorityOutOfRangeNamesOptionAndRange) {
    const std::string error = errorOf({"--priority", "5"});
    EXPECT_NE(error.find("--priority"), std::string::npos) << error;
    EXPECT_NE(error.find("'5'"), std::string::npos) << error;
    EXPECT_NE(error.find("from 0 (highest) to 4 (lowest)"), std::string::npos) << error;
    EXPECT_NE(errorOf({"--priority", "-1"}).find("--priority"), std::string::npos);
    EXPECT_NE(errorOf({"--priority", "two"}).find("--priority"), std::string::npos);
}

TEST(MonitorOptions, DurationOutOfRangeNamesOptionAndRange) {
    for (const char* bad : {"0", "999us", "169h", "soon", "-5s"}) {
        const std::string error = errorOf({"--duration", bad});
        EXPECT_NE(error.find("--duration"), std::string::npos) << error;
        EXPECT_NE(error.find("from 1ms to 7 days"), std::string::npos) << error;
    }
}

TEST(MonitorOptions, TicksOutOfRangeNamesOptionAndRange) {
    for (const char* bad : {"0", "100000001", "1e3", "12k"}) {
        const std::string error = errorOf({"--ticks", bad});
        EXPECT_NE(error.find("--ticks: invalid value"), std::string::npos) << error;
        EXPECT_NE(error.find("from 1 to 100000000"), std::string::npos) << error;
    }
}

TEST(MonitorOptions, HandlersAndIntervalsOutOfRangeNameOptionAndRange) {
    EXPECT_NE(
        errorOf({"--handlers", "10001"}).find("--handlers: invalid value '10001'; expected an integer from 0 to 10000"),
        std::string::npos);
    for (const char* bad : {"", "0", "1,,2", "1,2,", "1;2", "100001", "a"}) {
        const std::string error = errorOf({"--intervals", bad});
        EXPECT_NE(error.find("--intervals"), std::string::npos) << bad;
        EXPECT_NE(error.find("from 1 to 100000"), std::string::npos) << bad;
    }
}

TEST(MonitorOptions, WorkTraceLevelAndBucketsOutOfRangeNameOptionAndRange) {
    EXPECT_NE(errorOf({"--work", "7ms"}).find("--work: invalid value '7ms'; expected a time from 0 to 6ms"),
              std::string::npos);
    EXPECT_NE(errorOf({"--trace-level", "8"}).find("--trace-level: invalid value '8'; expected an integer from 0"),
              std::string::npos);
    EXPECT_NE(errorOf({"--histogram-buckets", "0"}).find("--histogram-buckets: invalid value '0'"), std::string::npos);
}

TEST(MonitorOptions, PlotNeedsAPngFile) {
    EXPECT_NE(errorOf({"--plot", "picture.svg"})
                  .find("--plot: invalid value 'picture.svg'; expected a file name "
                        "ending in .png"),
              std::string::npos);
    EXPECT_NE(errorOf({"--plot", ".png"}).find("--plot"), std::string::npos);
}

TEST(MonitorOptions, EmptyFileNamesAreRefused) {
    EXPECT_EQ(errorOf({"--json="}), "--json: missing value; expected a file name");
    EXPECT_EQ(errorOf({"--histogram="}), "--histogram: missing value; expected a file name");
}

TEST(MonitorOptions, MissingValueNamesOptionAndRange) {
    const std::string error = errorOf({"--handlers"});
    EXPECT_EQ(error, "--handlers: missing value; expected an integer from 0 to 10000");
}

TEST(MonitorOptions, UnknownOptionIsRefused) {
    EXPECT_EQ(errorOf({"--frobnicate"}), "unknown option '--frobnicate' (see --help)");
    EXPECT_EQ(errorOf({"10s"}), "unknown option '10s' (see --help)");
}

TEST(MonitorOptions, FlagsRefuseAValue) {
    EXPECT_EQ(errorOf({"--no-mlock=yes"}), "--no-mlock: takes no value");
    EXPECT_EQ(errorOf({"--quiet=no"}), "--quiet: takes no value");
}

TEST(MonitorOptions, UsageTakesEveryRangeFromTheLimits) {
    const std::string usage = usageText();
    for (const std::string& range :
         {"from 1 to " + std::to_string(limits::kMaxTicks), "from 0 to " + std::to_string(limits::kMaxHandlers),
          "from 1 to " + std::to_string(limits::kMaxInterval), "from 0 to " + std::to_string(limits::kMaxCpu),
          "from 1 to " + std::to_string(limits::kMaxHistogramBuckets),
          "from 0 to " + std::to_string(limits::kMaxCpuLatencyUs),
          "from 1 to " + std::to_string(limits::kMaxBreakTraceUs)}) {
        EXPECT_NE(usage.find(range), std::string::npos) << range;
    }
}

TEST(MonitorOptions, DecimalOnlyWithoutSignOrBlanks) {
    for (const char* bad : {"+3", " 3", "3 ", "0x3", "3.0"}) {
        EXPECT_NE(errorOf({"--handlers", bad}).find("--handlers: invalid value"), std::string::npos) << bad;
    }
    EXPECT_EQ(parse({"--handlers", "010"}).options.handlerCount, 10u);
}

TEST(MonitorOptions, TheLastOfARepeatedOptionCounts) {
    EXPECT_EQ(parse({"--priority", "1", "--priority", "3"}).options.priority, 3);
}

TEST(MonitorOptions, FaultInjectionNeedsAHandler) {
    EXPECT_NE(errorOf({"--handlers", "0", "--inject-fault"}).find("--inject-fault"), std::string::npos);
}

TEST(MonitorOptions, UsageListsEveryOption) {
    const std::string usage = usageText();
    for (const char* option :
         {"--duration", "--ticks", "--priority", "--handlers", "--intervals", "--work", "--trace-level", "--quiet",
          "--json", "--histogram", "--histogram-buckets", "--plot", "--inject-fault", "--help"}) {
        EXPECT_NE(usage.find(option), std::string::npos) << option;
    }
}

TEST(MonitorOptions, PunctualityDefaultsKeepTheHostRequestLockMemoryAndPinNothing) {
    const MonitorOptions o = parse({}).options;
    EXPECT_FALSE(o.cpuLatencyUs.has_value());
    EXPECT_TRUE(o.lockMemory);
    EXPECT_TRUE(o.cpus.empty());
    EXPECT_FALSE(o.breakTraceUs.has_value());
    EXPECT_FALSE(o.systemOnly);
}

TEST(MonitorOptions, ReadsThePunctualityOptions) {
    const ParseResult result =
        parse({"--cpu-latency", "20", "--no-mlock", "--cpu", "3,0-1,1", "--break-trace", "150", "--system"});
    ASSERT_EQ(result.outcome, ParseOutcome::Run) << result.error;
    EXPECT_EQ(result.options.cpuLatencyUs, 20);
    EXPECT_FALSE(result.options.lockMemory);
    EXPECT_EQ(result.options.cpus, (std::vector<uint32_t>{0, 1, 3}));
    EXPECT_EQ(result.options.breakTraceUs, 150);
    EXPECT_TRUE(result.options.systemOnly);
    EXPECT_EQ(parse({"--cpu-latency=off"}).options.cpuLatencyUs, MonitorOptions::kCpuLatencyOff);
    EXPECT_EQ(parse({"--cpu-latency", "2000000000"}).options.cpuLatencyUs, 2000000000);
    EXPECT_EQ(parse({"--break-trace", "1000000"}).options.breakTraceUs, 1000000);
    EXPECT_EQ(parse({"--cpu", "1023"}).options.cpus, (std::vector<uint32_t>{1023}));
}

TEST(MonitorOptions, PunctualityValuesOutOfRangeNameOptionAndRange) {
    for (const char* bad : {"", "-1", "2000000001", "1ms", "Off"}) {
        EXPECT_NE(errorOf({"--cpu-latency", bad})
                      .find("--cpu-latency: invalid value '" + std::string(bad) +
                            "'; expected 'off' or microseconds from 0 to 2000000000"),
                  std::string::npos)
            << bad;
    }
    for (const char* bad : {"", "1024", "3-1", "1,", ",1", "a", "0-", "-2"}) {
        EXPECT_NE(errorOf({"--cpu", bad}).find("--cpu: invalid value '" + std::string(bad) + "'; expected a CPU"),
                  std::string::npos)
            << bad;
    }
    for (const char* bad : {"0", "1000001", "5ms", ""}) {
        EXPECT_NE(errorOf({"--break-trace", bad})
                      .find("--break-trace: invalid value '" + std::string(bad) +
                            "'; expected microseconds from 1 to 1000000"),
                  std::string::npos)
            << bad;
    }
    EXPECT_NE(errorOf({"--cpu"}).find("--cpu: missing value"), std::string::npos);
}

TEST(MonitorOptions, WakeLeadIsOffByDefaultAndReadsOffAutoOrATime) {
    EXPECT_EQ(parse({}).options.wakeLeadNs, MonitorOptions::kWakeLeadOff);
    EXPECT_EQ(parse({"--wake-lead", "auto"}).options.wakeLeadNs, MonitorOptions::kWakeLeadAuto);
    EXPECT_EQ(parse({"--wake-lead", "auto", "--wake-lead=off"}).options.wakeLeadNs, MonitorOptions::kWakeLeadOff);
    EXPECT_EQ(parse({"--wake-lead", "80"}).options.wakeLeadNs, 80000);
    EXPECT_EQ(parse({"--wake-lead", "1us"}).options.wakeLeadNs, 1000);
    EXPECT_EQ(parse({"--wake-lead", "3ms"}).options.wakeLeadNs, 3000000);
    EXPECT_EQ(wakeLeadName(MonitorOptions::kWakeLeadOff), "off");
    EXPECT_EQ(wakeLeadName(MonitorOptions::kWakeLeadAuto), "auto");
    EXPECT_EQ(wakeLeadName(80000), "80us");
    EXPECT_EQ(wakeLeadName(1500), "1500ns");
}

TEST(MonitorOptions, WakeLeadOutsideOffAutoOrItsRangeNamesOptionAndRange) {
    for (const char* bad : {"", "Auto", "on", "0", "999ns", "3001us", "-5", "1 ms"}) {
        EXPECT_NE(errorOf({"--wake-lead", bad})
                      .find("--wake-lead: invalid value '" + std::string(bad) +
                            "'; expected 'off', 'auto' or a time from 1us to 3ms"),
                  std::string::npos)
            << bad;
    }
    EXPECT_NE(usageText().find("--wake-lead"), std::string::npos);
}

TEST(MonitorOptions, GridIsTheSchedulersByDefaultAndReadsSchedulerOrFast) {
    EXPECT_EQ(parse({}).options.grid, MonitoredGrid::Scheduler);
    EXPECT_EQ(parse({"--grid", "fast"}).options.grid, MonitoredGrid::Fast);
    EXPECT_EQ(parse({"--grid", "fast", "--grid=scheduler"}).options.grid, MonitoredGrid::Scheduler);
    EXPECT_STREQ(gridName(MonitoredGrid::Fast), "fast");
    EXPECT_STREQ(schedulerModuleName(MonitoredGrid::Fast), "CTickSchedulerFast");
    EXPECT_STREQ(schedulerModuleName(MonitoredGrid::Scheduler), "CTickScheduler");
}

TEST(MonitorOptions, GridOtherThanSchedulerOrFastNamesOptionAndValues) {
    for (const char* bad : {"", "Fast", "1ms", "slow"}) {
        EXPECT_NE(errorOf({"--grid", bad})
                      .find("--grid: invalid value '" + std::string(bad) + "'; expected 'scheduler' or 'fast'"),
                  std::string::npos)
            << bad;
    }
    EXPECT_NE(usageText().find("--grid"), std::string::npos);
}

TEST(MonitorOptions, FastGridCallsEveryHandlerOnEveryTickAtTheModulesPriority) {
    const ParseResult result = parse({"--grid", "fast", "--handlers", "3"});
    ASSERT_EQ(result.outcome, ParseOutcome::Run) << result.error;
    EXPECT_EQ(result.options.intervals, std::vector<uint32_t>{1});
    EXPECT_EQ(result.options.priority, 1);
}

TEST(MonitorOptions, FastGridRefusesIntervalsPriorityAndALeadOverHalfItsPeriod) {
    EXPECT_EQ(errorOf({"--grid", "fast", "--intervals", "1"}),
              "--intervals: the fast scheduler calls every handler on every tick; expected no --intervals with "
              "--grid fast");
    EXPECT_EQ(errorOf({"--priority", "0", "--grid", "fast"}),
              "--priority: the fast scheduler's oscillator runs at ETickPriority 1; expected no --priority with "
              "--grid fast");
    EXPECT_EQ(errorOf({"--grid", "fast", "--wake-lead", "501us"}),
              "--wake-lead: 501us is more than half the fast scheduler's 1 ms period; expected 'off', 'auto' or a "
              "time from 1us to 500us with --grid fast");
    EXPECT_EQ(parse({"--grid", "fast", "--wake-lead", "500us"}).outcome, ParseOutcome::Run);
    EXPECT_EQ(parse({"--grid", "fast", "--wake-lead", "auto"}).outcome, ParseOutcome::Run);
    EXPECT_EQ(parse({"--wake-lead", "501us"}).outcome, ParseOutcome::Run);
}

}  // namespace
}  // namespace tickmon
