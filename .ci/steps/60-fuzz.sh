#!/usr/bin/env bash
# Model-based fuzzing: builds both fuzz targets (clang, libFuzzer, ASan and
# UBSan) with preset fuzz, which builds the fuzz project alone, then runs each
# from its seed corpus for CI_FUZZ_SECONDS (default 60). A crash, a sanitizer
# report or a difference between the library and the target's reference model
# fails the step; the input that caused it is kept under build/fuzz/artifacts/.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
cd "$CI_ROOT"

seconds="${CI_FUZZ_SECONDS:-60}"
build="$CI_ROOT/build/fuzz"
# Where the preset's build puts the fuzz project's programs.
programs="$build/fuzz-targets"
targets=(scheduler fast)

# A build directory that CMake configured from fuzz/ alone, as this step did
# before the preset, cannot be configured from the top level: drop its
# configuration (corpora and artifacts stay).
if grep -qs '^CMAKE_HOME_DIRECTORY:INTERNAL=.*/fuzz$' "$build/CMakeCache.txt"; then
    ci_log "dropping the configuration of $build, made from fuzz/ alone"
    rm -rf "$build/CMakeCache.txt" "$build/CMakeFiles"
fi
ci_preset_build fuzz

# Runs one target; its output goes to build/fuzz/<target>.log.
fuzz_one() {
    local target="$1"
    local work="$build/corpus-work/$target"
    local artifacts="$build/artifacts/$target"
    rm -rf "$work" "$artifacts"
    mkdir -p "$work" "$artifacts"
    ASAN_OPTIONS="quarantine_size_mb=64:detect_leaks=1" UBSAN_OPTIONS="print_stacktrace=1" \
        "$programs/zyn_ts_fuzz_$target" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2560 \
        -print_final_stats=1 -artifact_prefix="$artifacts/" "$work" "fuzz/corpus/$target" \
        >"$build/$target.log" 2>&1
}

# The targets run side by side when there are cores for it.
declare -A pids=()
for target in "${targets[@]}"; do
    ci_log "fuzzing $target for $seconds s"
    if [[ "$(ci_jobs)" -ge 2 ]]; then
        fuzz_one "$target" &
        pids[$target]=$!
    else
        fuzz_one "$target" && pids[$target]=0 || pids[$target]=-1
    fi
done

failed=()
for target in "${targets[@]}"; do
    status=0
    if [[ "${pids[$target]}" -gt 0 ]]; then
        wait "${pids[$target]}" || status=$?
    elif [[ "${pids[$target]}" -lt 0 ]]; then
        status=1
    fi
    runs="$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$build/$target.log" | grep -o '[0-9]*$' || true)"
    if [[ "$status" -ne 0 ]]; then
        failed+=("$target")
        ci_log "FAILED: $target (exit status $status); end of its log:"
        tail -n 120 "$build/$target.log" >&2
        ci_log "reproducer(s): $(find "$build/artifacts/$target" -type f | tr '\n' ' ')"
    else
        ci_log "$target: ${runs:-?} inputs, no finding"
    fi
done

[[ ${#failed[@]} -eq 0 ]] || ci_die "fuzzing found problems in: ${failed[*]}"
