// zyn-soak: both tick schedulers under churn for a long time.
//
//   zyn-soak [--seconds N] [--seed N]
//
// Build it with -DZYN_TS_SANITIZE=thread or =address,undefined to have the
// sanitizer watch the run as well; a sanitizer report ends the process with
// an error status.
#include "SoakOptions.h"
#include "SoakRun.h"

int main(int argc, char** argv) {
    soak::SoakOptions options;
    if (!soak::parseOptions(argc, argv, options)) {
        return 2;
    }
    return soak::runSoak(options);
}
