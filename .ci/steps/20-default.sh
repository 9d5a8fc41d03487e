#!/usr/bin/env bash
# Release build with debug information, g++, the whole test suite.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
ci_preset_build_and_test default
