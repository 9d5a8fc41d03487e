// zyn-soak: both tick schedulers under churn for a long time.
//
//   zyn-soak [--seconds N] [--seed N]
//
// Build it with -DZYN_TS_SANITIZE=thread or =address,undefined to have the
// sanitizer watch the run as well; a sanitizer report ends the process with
// an error status.
#include "CommandLine.h"
#include "SoakOptions.h"
#include "SoakRun.h"

int main(int argc, char** argv) {
    soak::SoakOptions options;
    const std::unique_ptr<CLI::App> app = soak::commandLine(options);
    return zyn_cli::runParsed(*app, argc, argv, [&options] { return soak::runSoak(options); });
}
