#!/usr/bin/env bash
# ThreadSanitizer build; any report fails the run.
#
# TSan's shadow memory layout does not fit the 32 bits of mmap randomisation
# recent kernels use by default: instrumented programs then die at start-up
# with "unexpected memory mapping". A probe program finds out what this machine
# needs: nothing, vm.mmap_rnd_bits=28, or running without address
# randomisation (setarch -R), in that order of preference.
set -euo pipefail
# shellcheck source=.ci/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/../lib.sh"
cd "$CI_ROOT"

probe_dir="$(mktemp -d)"
trap 'rm -rf "$probe_dir"' EXIT
cat > "$probe_dir/probe.cpp" <<'CPP'
#include <thread>
int shared;
int main() {
    std::thread t([] { shared = 1; });
    t.join();
    return shared == 1 ? 0 : 1;
}
CPP
c++ -std=c++17 -fsanitize=thread -pthread "$probe_dir/probe.cpp" -o "$probe_dir/probe"

tsan_works() {
    "$@" "$probe_dir/probe" >"$probe_dir/probe.log" 2>&1
}

launcher=()
if tsan_works; then
    ci_log "ThreadSanitizer runs as is"
else
    ci_log "ThreadSanitizer probe failed: $(head -n 1 "$probe_dir/probe.log")"
    if ci_as_root sysctl -q -w vm.mmap_rnd_bits=28 >/dev/null 2>&1 && tsan_works; then
        ci_log "ThreadSanitizer runs after sysctl vm.mmap_rnd_bits=28"
    elif tsan_works setarch "$(uname -m)" -R; then
        ci_log "ThreadSanitizer runs under setarch -R"
        launcher=(setarch "$(uname -m)" -R)
    else
        cat "$probe_dir/probe.log" >&2
        ci_die "ThreadSanitizer cannot run on this machine"
    fi
fi

ci_preset_build_and_test tsan "${launcher[@]}"
