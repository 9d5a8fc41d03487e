#!/usr/bin/env bash
# The 64-bit ARM boards the library also runs on: the whole suite cross-built
# for aarch64 and run under qemu-aarch64, as the armhf step does for 32-bit
# ARM. Catches what only a weakly ordered 64-bit target shows: LP64 layouts
# seen through another ABI, and atomics and fences that x86 forgives. The
# real-clock timing tests skip under the emulator with their reason; every
# logic test runs, the end-to-end runs on the reference platform included.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
"$CI_ROOT/.ci/cross-build.sh" aarch64
