#!/usr/bin/env bash
# Timing of zyn-tickmon's ticks against cyclictest, the kernel's own latency
# reference, measured the same way on the same machine.
#
# Both run one measuring thread under SCHED_RR with the same period (6 ms, or
# 1 ms for the fast grid), one after the other, several times alternately (so
# a change in machine load hits both alike), under each of these settings:
#   defaults  each tool as a user starts it: "zyn-tickmon --duration N" (the
#             CPU wake-up latency request held at 0, memory locked, six
#             handlers) against "cyclictest -m -p 79 --policy=rr -i 6000"
#             (which holds the same request at 0 and locks memory);
#   held      equal explicit settings: no handlers, the request held at 0,
#             memory locked, the same priority;
#   released  equal explicit settings without either: "--cpu-latency off
#             --no-mlock" against cyclictest's --laptop without -m;
#   wake      the precision wake: "zyn-tickmon --duration N --wake-lead auto"
#             (the oscillator sleeps to an adaptive lead before each grid
#             point and spins onto it) against cyclictest's defaults as
#             above; the CPU column then shows what the spin costs;
#   fast      the fast scheduler's 1 ms grid, its oscillator started by the
#             monitor: "zyn-tickmon --duration N --grid fast" against
#             "cyclictest -m -p 79 --policy=rr -i 1000" (the fast oscillator
#             runs at ETickPriority 1, SCHED_RR 98; with no other real-time
#             load the priority does not change a wake-up);
#   fast-wake the same with "--wake-lead auto".
# For each run the script reads the latency histogram each tool writes in
# cyclictest's -h layout, and samples the CPU time of the measuring thread
# from /proc (schedstat, nanoseconds) over the middle of the run. It prints one
# table per setting: min/avg/p99/max latency, CPU time per second, the ratio
# of ours to cyclictest's, and the medians of the raw p99.
#
# Both measure latency from the due time: cyclictest from its timer's, the
# monitor from the grid point the scheduler published. The raw columns can be
# compared as they stand; the ratios are taken on latency above each tool's
# own minimum (jitter), which leaves out the constant part of a wake-up.
#
# Usage: bench/compare_cyclictest.sh [--runs N] [--duration SECONDS]
#                                    [--priority 0..4] [--tickmon PATH]
#                                    [--settings defaults,held,released,wake,fast,fast-wake]
# Needs root (or CAP_SYS_NICE) for SCHED_RR; installs the Debian package
# rt-tests with apt-get when cyclictest is missing.
set -euo pipefail

runs=5
duration=10
priority=2
tickmon=""
settings="defaults,held,released"

usage() {
    echo "Usage: bench/compare_cyclictest.sh [--runs N] [--duration SECONDS] [--priority 0..4] [--tickmon PATH]" \
        "[--settings defaults,held,released,wake,fast,fast-wake]" >&2
    exit 2
}

while [[ $# -gt 0 ]]; do
    case "$1" in
        --runs) runs="${2:?}"; shift 2 ;;
        --duration) duration="${2:?}"; shift 2 ;;
        --priority) priority="${2:?}"; shift 2 ;;
        --tickmon) tickmon="${2:?}"; shift 2 ;;
        --settings) settings="${2:?}"; shift 2 ;;
        -h|--help) usage ;;
        *) echo "compare_cyclictest.sh: unknown argument '$1'" >&2; usage ;;
    esac
done
[[ "$runs" =~ ^[1-9][0-9]*$ ]] || { echo "--runs: expected a positive integer" >&2; exit 2; }
[[ "$duration" =~ ^[0-9]+$ && "$duration" -ge 5 ]] || { echo "--duration: expected whole seconds, at least 5" >&2; exit 2; }
[[ "$priority" =~ ^[0-4]$ ]] || { echo "--priority: expected 0 to 4" >&2; exit 2; }
setting_names="defaults|held|released|wake|fast|fast-wake"
[[ "$settings" =~ ^($setting_names)(,($setting_names))*$ ]] || {
    echo "--settings: expected a comma-separated list of defaults, held, released, wake, fast, fast-wake" >&2; exit 2; }

# The SCHED_RR priority the library gives each ETickPriority.
rt_priorities=(99 98 79 79 79)
rt_priority="${rt_priorities[$priority]}"

repo="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if [[ -z "$tickmon" ]]; then
    for candidate in "$repo"/build/default/tools/tickmon/zyn-tickmon "$repo"/build/tools/tickmon/zyn-tickmon; do
        if [[ -x "$candidate" ]]; then
            tickmon="$candidate"
            break
        fi
    done
fi
[[ -n "$tickmon" && -x "$tickmon" ]] || {
    echo "zyn-tickmon not found: build it (cmake --preset default && cmake --build --preset default) or pass --tickmon PATH" >&2
    exit 2
}

if ! command -v cyclictest >/dev/null 2>&1; then
    echo "cyclictest is missing: installing rt-tests" >&2
    as_root=()
    [[ "$(id -u)" -eq 0 ]] || as_root=(sudo)
    "${as_root[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq rt-tests >/dev/null
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# The thread of process $1 that runs under SCHED_RR (policy 2, field 41 of
# its stat line; the name in field 2 may hold blanks, so fields are counted
# after the last ')').
rr_thread() {
    local pid="$1" stat tid
    for stat in /proc/"$pid"/task/*/stat; do
        tid="${stat%/stat}"
        tid="${tid##*/}"
        if awk '{ sub(/.*\) /, ""); if ($39 == 2) found = 1 } END { exit !found }' "$stat" 2>/dev/null; then
            echo "$tid"
            return 0
        fi
    done
    return 1
}

# Nanoseconds of CPU time the thread has used: schedstat, else utime + stime.
thread_cpu_ns() {
    local pid="$1" tid="$2" hz
    if [[ -r /proc/$pid/task/$tid/schedstat ]]; then
        awk '{ print $1 }' "/proc/$pid/task/$tid/schedstat"
    else
        hz="$(getconf CLK_TCK)"
        awk -v hz="$hz" '{ sub(/.*\) /, ""); printf "%.0f\n", ($12 + $13) * 1e9 / hz }' "/proc/$pid/task/$tid/stat"
    fi
}

# CPU time per second of the RR thread of process $1, sampled from 1 s after
# the start to 2 s before the end of a run of $duration seconds ("nan" when
# the thread could not be read, e.g. on a machine too loaded to keep up).
sample_cpu_per_second() {
    local pid="$1" tid="" start_ns end_ns start_cpu end_cpu
    sleep 1
    tid="$(rr_thread "$pid")" || { echo "nan"; return; }
    start_cpu="$(thread_cpu_ns "$pid" "$tid" 2>/dev/null)" || { echo "nan"; return; }
    start_ns="$(date +%s%N)"
    sleep $((duration - 3))
    end_cpu="$(thread_cpu_ns "$pid" "$tid" 2>/dev/null)" || { echo "nan"; return; }
    end_ns="$(date +%s%N)"
    [[ -n "$start_cpu" && -n "$end_cpu" ]] || { echo "nan"; return; }
    awk -v c=$((end_cpu - start_cpu)) -v t=$((end_ns - start_ns)) 'BEGIN { printf "%.1f\n", c / t * 1e9 }'
}

# min avg p99 max (microseconds) from a histogram in cyclictest's -h layout;
# overflowing ticks count as beyond the last bucket for p99.
histogram_figures() {
    awk '
        /^# Total:/ { total = $3 + 0 }
        /^# Min Latencies:/ { min = $4 + 0 }
        /^# Avg Latencies:/ { avg = $4 + 0 }
        /^# Max Latencies:/ { max = $4 + 0 }
        /^[0-9]+[ \t]/ { bucket[n++] = $2 + 0; label[n - 1] = $1 + 0 }
        END {
            need = 0.99 * total; seen = 0; p99 = "overflow"
            for (i = 0; i < n; i++) { seen += bucket[i]; if (seen >= need) { p99 = label[i]; break } }
            print min, avg, p99, max
        }' "$1"
}

# The arguments of each tool under a setting (see the top of this file).
tickmon_arguments() {
    case "$1" in
        defaults) echo "" ;;
        held) echo "--priority $priority --handlers 0 --cpu-latency 0" ;;
        released) echo "--priority $priority --handlers 0 --cpu-latency off --no-mlock" ;;
        wake) echo "--wake-lead auto" ;;
        fast) echo "--grid fast" ;;
        fast-wake) echo "--grid fast --wake-lead auto" ;;
    esac
}
# The period of a setting, in microseconds.
period_us() {
    case "$1" in
        fast|fast-wake) echo 1000 ;;
        *) echo 6000 ;;
    esac
}
cyclictest_arguments() {
    case "$1" in
        defaults|wake) echo "-m -p 79 --policy=rr -i 6000" ;;
        held) echo "-m --threads=1 --priority=$rt_priority --policy=rr --interval=6000" ;;
        released) echo "--laptop --threads=1 --priority=$rt_priority --policy=rr --interval=6000" ;;
        fast|fast-wake) echo "-m -p 79 --policy=rr -i 1000" ;;
    esac
}

run_tickmon() {
    local setting="$1" i="$2" pid
    # shellcheck disable=SC2046 # the arguments are words on purpose
    "$tickmon" --duration "${duration}s" $(tickmon_arguments "$setting") --quiet \
        --histogram "$work/ours-$setting-$i.hist" --histogram-buckets 6000 --json "$work/ours-$setting-$i.json" &
    pid=$!
    sample_cpu_per_second "$pid" > "$work/ours-$setting-$i.cpu" || echo "nan" > "$work/ours-$setting-$i.cpu"
    wait "$pid" || echo "zyn-tickmon run $i ($setting) failed (status $?)" >&2
}

run_cyclictest() {
    local setting="$1" i="$2" pid
    # shellcheck disable=SC2046 # the arguments are words on purpose
    cyclictest --quiet $(cyclictest_arguments "$setting") --duration="$duration" --histogram=6000 \
        > "$work/cyclictest-$setting-$i.hist" 2> "$work/cyclictest-$setting-$i.err" &
    pid=$!
    sample_cpu_per_second "$pid" > "$work/cyclictest-$setting-$i.cpu" || echo "nan" > "$work/cyclictest-$setting-$i.cpu"
    wait "$pid" || { echo "cyclictest run $i ($setting) failed:" >&2; cat "$work/cyclictest-$setting-$i.err" >&2; }
}

compare_setting() {
local setting="$1"
echo "Comparing zyn-tickmon and cyclictest ($setting): $runs alternating runs of ${duration} s each," \
     "$(($(period_us "$setting") / 1000)) ms period; load average $(cut -d' ' -f1-3 /proc/loadavg)" >&2
for ((i = 1; i <= runs; i++)); do
    echo "run $i/$runs: zyn-tickmon $(tickmon_arguments "$setting")" >&2
    run_tickmon "$setting" "$i"
    echo "run $i/$runs: cyclictest $(cyclictest_arguments "$setting")" >&2
    run_cyclictest "$setting" "$i"
done

# One line per tool and run: tool min avg p99 max cpu_ns_per_s
{
    for ((i = 1; i <= runs; i++)); do
        echo "zyn-tickmon $(histogram_figures "$work/ours-$setting-$i.hist") $(cat "$work/ours-$setting-$i.cpu")"
        echo "cyclictest $(histogram_figures "$work/cyclictest-$setting-$i.hist") $(cat "$work/cyclictest-$setting-$i.cpu")"
    done
} > "$work/figures"

grid="$(python3 - "$work" "$runs" "$setting" <<'PY'
import json, sys
work, runs, setting = sys.argv[1], int(sys.argv[2]), sys.argv[3]
parts = []
for i in range(1, runs + 1):
    with open(f"{work}/ours-{setting}-{i}.json") as f:
        record = json.load(f)
    ticks = record["ticks"]
    request = record.get("punctuality", {}).get("cpu_latency_request", {}).get("detail", "?")
    parts.append(f"run {i}: {ticks['missed']} grid points missed of {ticks['expected']}, "
                 f"{ticks['before_their_grid_point']} early, {ticks['on_a_grid_point_already_ticked']} doubled, "
                 f"latency request {request}")
print("; ".join(parts))
PY
)"

awk -v runs="$runs" -v duration="$duration" -v setting="$setting" -v grid="$grid" \
    -v period_ms="$(($(period_us "$setting") / 1000))" '
    function jitter(v, m) { return v == "overflow" ? "overflow" : v - m }
    function ratio(a, b) { return (a == "overflow" || b == "overflow" || a == "nan" || b == "nan" || b == 0) ? "n/a" : sprintf("%.2f", a / b) }
    function microseconds(ns) { return ns == "nan" ? "n/a" : sprintf("%.1f", ns / 1000) }
    # Median over the runs of one figure of one tool (values that are not
    # numbers, "overflow" or "nan", are left out).
    function median(tool, which,    r, k, j, v, tmp, m) {
        m = 0
        for (r = 1; r <= runs; r++) {
            v = which == "cpu" ? cpu[tool, r] : jitter(value(tool, which, r), min[tool, r])
            if (v == "overflow" || v == "nan") continue
            tmp[++m] = v + 0
            for (j = m; j > 1 && tmp[j - 1] > tmp[j]; j--) { k = tmp[j]; tmp[j] = tmp[j - 1]; tmp[j - 1] = k }
        }
        if (m == 0) return "nan"
        return m % 2 ? tmp[(m + 1) / 2] : (tmp[m / 2] + tmp[m / 2 + 1]) / 2
    }
    function value(tool, which, r) { return which == "avg" ? avg[tool, r] : which == "p99" ? p99[tool, r] : max[tool, r] }
    # Median over the runs of a raw column (no minimum taken off).
    function rawMedian(tool, which,    r, k, j, v, tmp, m) {
        m = 0
        for (r = 1; r <= runs; r++) {
            v = value(tool, which, r)
            if (v == "overflow" || v == "nan") continue
            tmp[++m] = v + 0
            for (j = m; j > 1 && tmp[j - 1] > tmp[j]; j--) { k = tmp[j]; tmp[j] = tmp[j - 1]; tmp[j - 1] = k }
        }
        if (m == 0) return "nan"
        return m % 2 ? tmp[(m + 1) / 2] : (tmp[m / 2] + tmp[m / 2 + 1]) / 2
    }
    {
        tool = $1; r = ++count[tool]
        min[tool, r] = $2; avg[tool, r] = $3; p99[tool, r] = $4; max[tool, r] = $5; cpu[tool, r] = $6
    }
    END {
        printf "\nSetting \"%s\": %d ms period, %d alternating runs of %d s; latencies in us\n\n", setting, period_ms,
            runs, duration
        printf "| run | tool | min | avg | p99 | max | avg-min | p99-min | max-min | CPU us/s |\n"
        printf "|---|---|---|---|---|---|---|---|---|---|\n"
        for (r = 1; r <= runs; r++) {
            split("zyn-tickmon cyclictest", tools, " ")
            for (t = 1; t <= 2; t++) {
                n = tools[t]
                printf "| %d | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", r, n, min[n, r], avg[n, r],
                    p99[n, r], max[n, r], jitter(avg[n, r], min[n, r]), jitter(p99[n, r], min[n, r]),
                    jitter(max[n, r], min[n, r]), microseconds(cpu[n, r])
            }
            o = "zyn-tickmon"; c = "cyclictest"
            printf "| %d | ratio | | | | | %s | %s | %s | %s |\n", r,
                ratio(jitter(avg[o, r], min[o, r]), jitter(avg[c, r], min[c, r])),
                ratio(jitter(p99[o, r], min[o, r]), jitter(p99[c, r], min[c, r])),
                ratio(jitter(max[o, r], min[o, r]), jitter(max[c, r], min[c, r])),
                ratio(cpu[o, r], cpu[c, r])
        }
        split("zyn-tickmon cyclictest", tools, " ")
        for (t = 1; t <= 2; t++) {
            n = tools[t]
            printf "| median | %s | | | | | %s | %s | %s | %s |\n", n, median(n, "avg"), median(n, "p99"),
                median(n, "max"), microseconds(median(n, "cpu"))
        }
        o = "zyn-tickmon"; c = "cyclictest"
        printf "| median | ratio | | | | | %s | %s | %s | %s |\n", ratio(median(o, "avg"), median(c, "avg")),
            ratio(median(o, "p99"), median(c, "p99")), ratio(median(o, "max"), median(c, "max")),
            ratio(median(o, "cpu"), median(c, "cpu"))
        o = "zyn-tickmon"; c = "cyclictest"
        printf "| median raw p99 | | %s | %s | ratio %s | | | | | |\n", rawMedian(o, "p99"), rawMedian(c, "p99"),
            ratio(rawMedian(o, "p99"), rawMedian(c, "p99"))
        printf "\nratio = zyn-tickmon / cyclictest, on latency above each tool'"'"'s own minimum;\n"
        printf "median = the median over the runs of each column.\n"
        printf "zyn-tickmon grid: %s\n", grid
    }' "$work/figures"
}

IFS=',' read -r -a chosen <<< "$settings"
for setting in "${chosen[@]}"; do
    compare_setting "$setting"
done
