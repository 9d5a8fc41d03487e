#!/usr/bin/env bash
# Long fuzzing runs, for a developer machine or a nightly job.
#
#   fuzz/run-long.sh [seconds per target] [target...]
#
# Targets: scheduler, fast (default: both, one after the other); default time
# one hour each. Uses every core (libFuzzer's fork mode). The growing corpus
# is kept in build/fuzz/long-corpus/<target>/ across runs; crash reproducers
# go to build/fuzz/long-artifacts/<target>/. To carry interesting new inputs
# into the seed corpus, minimise them into it:
#
#   build/fuzz/fuzz-targets/zyn_ts_fuzz_<target> -merge=1 fuzz/corpus/<target> build/fuzz/long-corpus/<target>
#
# and commit only a handful of the files that merge adds.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-3600}"
shift || true
targets=("$@")
[[ ${#targets[@]} -gt 0 ]] || targets=(scheduler fast)
build="$root/build/fuzz"
jobs="$(nproc 2>/dev/null || echo 2)"

# Preset fuzz builds the fuzz project alone into build/fuzz.
(cd "$root" && cmake --preset fuzz >/dev/null && cmake --build --preset fuzz --parallel "$jobs")

status=0
for target in "${targets[@]}"; do
    corpus="$build/long-corpus/$target"
    artifacts="$build/long-artifacts/$target"
    mkdir -p "$corpus" "$artifacts"
    echo "fuzzing $target for $seconds s on $jobs cores; corpus $corpus" >&2
    ASAN_OPTIONS="quarantine_size_mb=64:detect_leaks=1" UBSAN_OPTIONS="print_stacktrace=1" \
        "$build/fuzz-targets/zyn_ts_fuzz_$target" -fork="$jobs" -ignore_crashes=1 -max_total_time="$seconds" -timeout=30 \
        -rss_limit_mb=2560 -artifact_prefix="$artifacts/" "$corpus" "$root/fuzz/corpus/$target" || status=1
    if compgen -G "$artifacts/*" >/dev/null; then
        echo "$target: reproducers in $artifacts (run the target on one to see the report)" >&2
        status=1
    fi
done
exit "$status"
