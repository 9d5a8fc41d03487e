#!/usr/bin/env bash
# The platform's own architecture: the whole suite cross-built for 32-bit ARM
# (armhf) and run under qemu-arm. Catches what a 64-bit host hides: 32-bit
# pointers and record layouts, 32-bit time_t and size_t arithmetic, and
# atomics that the target has to provide lock-free.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
"$CI_ROOT/.ci/cross-build.sh" armhf
