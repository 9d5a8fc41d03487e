#!/usr/bin/env python3
"""Checks a babeltrace2 text dump of zyn_tick events against zyn-tickmon's
JSON report of the same run: the same ticks, passes and calls of every
handler, exactly, and every call's end right after its beginning."""
import json
import re
import sys
from collections import Counter

EVENT = re.compile(r"zyn_tick:(\w+): .*?\{ (?P<fields>.*) \}\s*$")
FIELD = re.compile(r'(\w+) = (\( "(?P<label>[^"]*)" : container = \d+ \)|"(?P<text>[^"]*)"|(?P<value>[-\w]+))')


def fields_of(text):
    found = {}
    for match in FIELD.finditer(text):
        found[match.group(1)] = match.group("label") or match.group("text") or match.group("value")
    return found


def main(events_path, report_path):
    report = json.load(open(report_path))
    scheduler = report["settings"]["scheduler"]
    period_us = str(report["grid"]["period_ns"] // 1000)
    counts = Counter()
    calls = Counter()
    problems = []
    open_call = None
    in_pass = False
    # A tick counts once a pass follows it. The monitor ends its run by
    # freezing the scheduler, and a freeze that lands between a tick's
    # tracepoint and its pass leaves that one tick without a pass (a tick
    # under way when the freeze returns runs nothing): at most one such tick
    # may trail the last pass, never one between passes.
    ticks_before_next_pass = 0
    for line in open(events_path):
        match = EVENT.search(line)
        if not match:
            continue
        name = match.group(1)
        fields = fields_of(match.group("fields"))
        counts[name] += 1
        if name == "tick":
            if fields.get("period_us") == period_us:
                ticks_before_next_pass += 1
            continue
        if fields.get("scheduler") != scheduler:
            continue
        if name == "pass_begin":
            if in_pass or open_call:
                problems.append("a pass begins inside a pass")
            in_pass = True
            counts["passes"] += 1
            counts["tick_of_grid"] += ticks_before_next_pass
            ticks_before_next_pass = 0
        elif name == "pass_end":
            if not in_pass or open_call:
                problems.append("a pass ends that did not begin, or inside a call")
            in_pass = False
        elif name == "call_begin":
            if not in_pass or open_call:
                problems.append("call_begin outside a pass or inside a call: " + fields.get("name", ""))
            open_call = fields.get("handle")
        elif name == "call_end":
            if open_call != fields.get("handle"):
                problems.append("call_end without its call_begin: " + fields.get("name", ""))
            open_call = None
            calls[fields.get("name")] += 1

    if ticks_before_next_pass > 1:
        problems.append(f"{ticks_before_next_pass} ticks after the last pass (at most the one a freeze catches)")
    expected_passes = report["passes"]
    if counts["passes"] != expected_passes:
        problems.append(f"passes: trace {counts['passes']}, report {expected_passes}")
    if counts["tick_of_grid"] != report["ticks"]["recorded"]:
        problems.append(f"ticks: trace {counts['tick_of_grid']}, report {report['ticks']['recorded']}")
    for handler in report["handlers"]:
        if calls[handler["name"]] != handler["calls"]:
            problems.append(f"calls of {handler['name']}: trace {calls[handler['name']]}, report {handler['calls']}")
    if calls["tickmon-probe"] != expected_passes:
        problems.append(f"calls of the probe: trace {calls['tickmon-probe']}, passes in the report {expected_passes}")
    # The load handlers of the report and the monitor's probe.
    registered = counts["handler_registered"]
    if registered != len(report["handlers"]) + 1:
        problems.append(f"handler_registered: {registered}, handlers in the report {len(report['handlers'])} + probe")
    if counts["module_phase"] == 0:
        problems.append("no module_phase event")

    print(f"trace: {counts['passes']} passes, {counts['tick_of_grid']} ticks, "
          f"{sum(calls.values())} calls of {len(calls)} handlers, {registered} registrations, "
          f"{counts['module_phase']} phases, {counts['tick_lock_taken']} tick locks taken")
    if problems:
        for problem in problems:
            print("MISMATCH: " + problem, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
