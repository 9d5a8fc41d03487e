#!/usr/bin/env bash
# Soak: zyn-soak runs both schedulers with client threads churning handlers,
# for CI_SOAK_SECONDS (default 60) under ThreadSanitizer and then under
# AddressSanitizer + UBSan, reusing the tsan and asan builds of the earlier
# steps (built here if they are missing). Any sanitizer report or failed
# check of the soak fails the step.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
cd "$CI_ROOT"

seconds="${CI_SOAK_SECONDS:-60}"

build_soak() {
    local preset="$1"
    ci_log "building zyn-soak (preset $preset)"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" --target zyn-soak --parallel "$(ci_jobs)"
}

# Runs the soak with `launcher` in front; fails on its exit status or on any
# sanitizer line in its output.
run_soak() {
    local name="$1"
    shift
    local log="$CI_ROOT/build/$name/soak.log"
    ci_log "soaking under $name for $seconds s"
    local status=0
    "$@" "$CI_ROOT/build/$name/soak/zyn-soak" --seconds "$seconds" >"$log" 2>&1 || status=$?
    cat "$log" >&2
    if [[ "$status" -ne 0 ]] || grep -q 'Sanitizer' "$log"; then
        ci_die "soak under $name failed (exit status $status)"
    fi
}

build_soak tsan
# ThreadSanitizer may need less address randomisation on this kernel; the
# soak itself is the probe (see 40-tsan.sh for the reasons).
launcher=()
if ! TSAN_OPTIONS="halt_on_error=1" "$CI_ROOT/build/tsan/soak/zyn-soak" --seconds 0 >/dev/null 2>&1; then
    if ci_as_root sysctl -q -w vm.mmap_rnd_bits=28 >/dev/null 2>&1 &&
        TSAN_OPTIONS="halt_on_error=1" "$CI_ROOT/build/tsan/soak/zyn-soak" --seconds 0 >/dev/null 2>&1; then
        ci_log "ThreadSanitizer runs after sysctl vm.mmap_rnd_bits=28"
    else
        ci_log "running ThreadSanitizer under setarch -R"
        launcher=(setarch "$(uname -m)" -R)
    fi
fi
TSAN_OPTIONS="halt_on_error=1:abort_on_error=1:second_deadlock_stack=1" run_soak tsan "${launcher[@]}"

build_soak asan
ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:detect_leaks=1:detect_stack_use_after_return=1" \
    UBSAN_OPTIONS="halt_on_error=1:abort_on_error=1:print_stacktrace=1" run_soak asan

ci_log "soak clean under tsan and asan"
