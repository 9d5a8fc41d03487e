#!/usr/bin/env bash
# AddressSanitizer + UndefinedBehaviorSanitizer build; any report fails the run.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
ci_preset_build_and_test asan
