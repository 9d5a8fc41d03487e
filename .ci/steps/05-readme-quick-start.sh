#!/usr/bin/env bash
# The README's main command, read from the README and run as written on the
# clone: it must configure, build and measure, and the monitor's self-test
# must pass. It runs before any other step configures build/default, so the
# launcher meets the tree as it meets a user's fresh clone; afterwards the
# default preset must bring back the test suite the launcher left out.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
cd "$CI_ROOT"

# The main command is the README's indented code line that runs ./tickmon.
command="$(sed -n -E 's/^    (\.\/tickmon( .*)?)$/\1/p' README.md | head -n 1)"
[[ -n "$command" ]] || ci_die "README.md shows no ./tickmon command"
ci_log "running the README's main command: $command"
output="$(mktemp)"
trap 'rm -f "$output"' EXIT
status=0
bash -c "$command" | tee "$output" || status=$?
[[ "$status" -eq 0 ]] || ci_die "'$command' exited with $status"
grep -qx 'Self-test: PASS' "$output" || ci_die "'$command' reported no passed self-test"

ci_log "configuring preset default: the test suite must be on again"
cmake --preset default >/dev/null
grep -qx 'ZYN_TS_BUILD_TESTS:BOOL=ON' build/default/CMakeCache.txt ||
    ci_die "cmake --preset default left the test suite off after the launcher"
