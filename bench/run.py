#!/usr/bin/env python3
"""Runs the loops side by side, then the service, and prints medians, ratios and goals.

Every measurement is a process of its own; the peers take turns within each repetition, so that a
slow phase of the machine affects all of them. Results go to OUT: results.jsonl (one line per run)
and loops.svg. The exit code does not depend on the goals: machines are noisy.
"""
import argparse
import collections
import json
import pathlib
import statistics
import subprocess
import sys
import tempfile

import goals
import idle_daemon
import measurements
import plot


def measure(name, command):
    with tempfile.TemporaryDirectory() as folder:
        words = [folder + "/phone" if word == "PHONE" else word for word in command]
        run = subprocess.run(words, capture_output=True, text=True, timeout=120)
    if run.returncode != 0:
        sys.exit(f"{name}: {' '.join(words)}: {run.returncode} {run.stderr.strip()}")
    return json.loads(run.stdout)


def collect(rows, repetitions, results):
    """medians[row][peer][figure]"""
    found = collections.defaultdict(lambda: collections.defaultdict(list))
    for repetition in range(repetitions):
        for row in rows:
            for peer, command in row.commands.items():
                line = measure(row.name, command)
                print(json.dumps({"row": row.name, **line, "peer": peer}), file=results, flush=True)
                for figure, value in line["figures"].items():
                    found[row.name, peer][figure].append(value)
        print(f"repetition {repetition + 1} of {repetitions} done", file=sys.stderr)
    return {row.name: {peer: {figure: statistics.median(values)
                              for figure, values in found[row.name, peer].items()}
                       for peer in row.commands} for row in rows}


def shown(value):
    if value >= 100000:
        return f"{value / 1e6:.2f}M"
    return f"{value:.0f}" if value >= 100 else f"{value:.2f}"


def print_table(rows, medians):
    for row in rows:
        for figure in row.figures:
            better = "more" if figure in measurements.HIGH_IS_GOOD else "less"
            print(f"\n{row.name} [{figure}]  ({better} is better)")
            ours = medians[row.name].get(measurements.OUR, {}).get(figure)
            for peer, figures in medians[row.name].items():
                value = figures[figure]
                compared = ours is not None and value and peer != measurements.OUR
                print(f"  {peer:15}{shown(value):>12}" +
                      (f"  ours is {ours / value:.2f} of it" if compared else ""))


def print_daemon(figures, library):
    print(f"\nthe daemon, idle for {figures['seconds']} s: {figures['resident_kib']} KiB resident, "
          f"{figures['anonymous_kib']} KiB of it its own, {figures['threads']} threads, "
          f"{figures['cpu_ms']:.0f} ms of processor time, "
          f"{sum(figures['wakeups'].values())} wake-ups {figures['wakeups'] or ''}")
    print(f"libpeltoservice.so for 32-bit ARM, stripped: {library.stat().st_size} bytes")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("programs", help="folder of loop_bench, service_bench and peltoserviced")
    parser.add_argument("library", type=pathlib.Path, help="the stripped library for 32-bit ARM")
    parser.add_argument("out", help="folder for results.jsonl and loops.svg")
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--quick", action="store_true", help="see that it works, measure nothing")
    options = parser.parse_args()
    service_bench = options.programs + "/service_bench"
    rows = list(measurements.loop_rows(options.programs + "/loop_bench"))
    rows += measurements.road_rows(service_bench)
    if options.quick:
        rows = [measurements.quick(row) for row in rows]

    with open(options.out + "/results.jsonl", "w", encoding="utf-8") as results:
        medians = collect(rows, 1 if options.quick else options.repetitions, results)
        idle = idle_daemon.idle(service_bench, options.programs + "/peltoserviced",
                                1 if options.quick else 60)
        print(json.dumps({"row": "daemon", "figures": idle}), file=results)
    print_table(rows, medians)
    print_daemon(idle, options.library)
    plot.plot(medians, {row.name: row.figures for row in rows}, options.out + "/loops.svg")
    if not options.quick:
        goals.print_goals(medians, idle)


if __name__ == "__main__":
    main()
