#!/usr/bin/env bash
# Records an LTTng userspace session of a one-second zyn-tickmon run and
# checks the trace against the monitor's own JSON report.
#
#   lttng_session_test.sh ZYN_TICKMON CHECKER BUILT_WITH_TRACEPOINTS
#
# Exit 77 (a skip) when the build has no tracepoints or the LTTng tools are
# missing, unless CI=true: there both are failures.
set -euo pipefail

tickmon="$1"
checker="$2"
built="$3"

skip_or_fail() {
    if [[ "${CI:-}" == "true" ]]; then
        echo "FAIL (under CI): $*" >&2
        exit 1
    fi
    echo "SKIP: $*" >&2
    exit 77
}

[[ "$built" == "1" ]] || skip_or_fail "this build has no LTTng tracepoints (liblttng-ust-dev was not found)"
for tool in lttng lttng-sessiond babeltrace2 python3; do
    command -v "$tool" >/dev/null || skip_or_fail "$tool is not installed (Debian: lttng-tools, babeltrace2)"
done

work="$(mktemp -d)"
session="zyn-tick-test-$$"
started_daemon=""
cleanup() {
    lttng destroy "$session" >/dev/null 2>&1 || true
    if [[ -n "$started_daemon" ]]; then
        kill "$started_daemon" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

# A session daemon of this user, userspace only; one already running serves
# as well (sessions are named per test run).
if ! pgrep -u "$(id -u)" -x lttng-sessiond >/dev/null; then
    lttng-sessiond --daemonize --no-kernel
    started_daemon="$(pgrep -u "$(id -u)" -x -n lttng-sessiond || true)"
fi

lttng create "$session" --output="$work/trace" >/dev/null
lttng enable-event --userspace 'zyn_tick:*' >/dev/null
lttng start >/dev/null
"$tickmon" --duration 1s --quiet --json "$work/report.json"
lttng stop >/dev/null
lttng destroy "$session" >/dev/null

babeltrace2 "$work/trace" > "$work/events.txt" 2> "$work/babeltrace.err"
python3 "$checker" "$work/events.txt" "$work/report.json"
