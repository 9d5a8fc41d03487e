#include "HistogramPlot.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "TemporaryDirectory.h"

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

TEST(HistogramPlot, ScriptDrawsTheDataIntoThePng) {
    const std::string script = gnuplotScript("/tmp/data", "/tmp/it's.png", "latency");
    EXPECT_NE(script.find("set terminal png"), std::string::npos);
    EXPECT_NE(script.find("set output '/tmp/it''s.png'\n"), std::string::npos) << script;
    EXPECT_NE(script.find("set title 'latency'\n"), std::string::npos);
    EXPECT_NE(script.find("plot '/tmp/data' using 1:2 with boxes"), std::string::npos);
}

TEST(HistogramPlot, WithoutGnuplotSaysSoAndDrawsNothing) {
    TemporaryDirectory empty;
    const PlotOutcome outcome =
        plotHistogram(buildHistogram({1000, 2000}, 10), empty.file("h.png"), "title", empty.file("gnuplot"));
    EXPECT_FALSE(outcome.drawn);
    EXPECT_NE(outcome.message.find("gnuplot is not installed"), std::string::npos) << outcome.message;
    EXPECT_NE(outcome.message.find(empty.file("h.png")), std::string::npos);
    EXPECT_NE(access(empty.file("h.png").c_str(), F_OK), 0);
}

TEST(HistogramPlot, RunsGnuplotWithTheHistogram) {
    TemporaryDirectory tools;
    tools.write("gnuplot", kFakeGnuplot, true);
    const PlotOutcome outcome = plotHistogram(buildHistogram({1000, 2500, 2100, 7000}, 10), tools.file("h.png"),
                                              "title", tools.file("gnuplot"));
    EXPECT_TRUE(outcome.drawn) << outcome.message;
    EXPECT_EQ(TemporaryDirectory::read(tools.file("h.png")), "PNG");
    EXPECT_EQ(TemporaryDirectory::read(tools.file("data-seen")), "1 1\n2 2\n7 1\n");
    EXPECT_NE(TemporaryDirectory::read(tools.file("script-seen")).find("set output"), std::string::npos);
}

TEST(HistogramPlot, AFailingGnuplotIsReported) {
    TemporaryDirectory tools;
    tools.write("gnuplot", "#!/bin/sh\nexit 3\n", true);
    const PlotOutcome outcome =
        plotHistogram(buildHistogram({1000}, 10), tools.file("h.png"), "t", tools.file("gnuplot"));
    EXPECT_FALSE(outcome.drawn);
    EXPECT_NE(outcome.message.find("failed (status 3)"), std::string::npos) << outcome.message;
}

}  // namespace
}  // namespace tickmon
