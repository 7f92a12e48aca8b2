#!/usr/bin/env python3
"""Runs the loops side by side and prints their medians.

Every measurement is a process of its own; the peers take turns within each repetition, so that a
slow spell of the machine falls on all of them. Results go to OUT/results.jsonl (one line a run)
and OUT/loops.svg.
"""
import argparse
import collections
import json
import statistics
import subprocess
import sys

OUR = "pelto"
POSTERS = ["pelto", "asio-post", "glib-invoke", "asio-mailbox", "uv-mailbox", "glib-source",
           "event-mailbox", "epoll-mailbox"]
MAILBOXES = ["asio-mailbox", "uv-mailbox", "glib-source", "event-mailbox"]
TIMERS = ["pelto", "asio-post", "uv-mailbox", "event-mailbox"]

# workload, arguments, peers, figure, whether more is better
MATRIX = (
    [("flat-out", ["--producers", str(p), "--messages", "300000"], POSTERS, "rate", True)
     for p in (1, 2, 4)] +
    [("bounded", ["--producers", str(p), "--messages", "300000"], POSTERS, "rate", True)
     for p in (1, 2, 4)] +
    [("flat-out", ["--producers", "2", "--messages", "300000", "--read-whole"], POSTERS, "rate",
      True)] +
    [("wake", ["--messages", "3000"], POSTERS, figure, False) for figure in ("p50", "p99")] +
    [("drain", ["--messages", str(n)], POSTERS, "ns", False) for n in (1, 100, 1000, 10000, 100000)] +
    [("drain", ["--messages", "100000"], ["pelto", "asio-post"], figure, False)
     for figure in ("peak_share", "kept_share")] +
    [("delayed", ["--messages", str(n)], TIMERS, figure, False)
     for n in (1000, 10000, 100000) for figure in ("insert_ns", "late_p50", "early", "unordered")] +
    [("self-post", ["--messages", "300000"], POSTERS, "ns", False)]
)


def key(workload, arguments):
    return workload + " " + " ".join(a.replace("--", "") for a in arguments)


def measure(program, peer, workload, arguments):
    run = subprocess.run([program, peer, workload] + arguments, capture_output=True, text=True,
                         timeout=120)
    if run.returncode != 0:
        sys.exit(f"{peer} {workload}: {run.stderr.strip()}")
    return json.loads(run.stdout)


def collect(program, repetitions, quick, results):
    """figures[row key][peer][figure] = list of values"""
    figures = collections.defaultdict(lambda: collections.defaultdict(
        lambda: collections.defaultdict(list)))
    rows = {}
    for workload, arguments, peers, _, _ in MATRIX:
        rows.setdefault(key(workload, arguments), (workload, arguments, peers))
    with open(results, "w", encoding="utf-8") as lines:
        for repetition in range(repetitions):
            for name, (workload, arguments, peers) in rows.items():
                if quick:
                    arguments = ["1000" if a.isdigit() and int(a) > 1000 else a for a in arguments]
                for peer in peers:
                    line = measure(program, peer, workload, arguments)
                    print(json.dumps({"repetition": repetition, **line}), file=lines, flush=True)
                    for figure, value in line["figures"].items():
                        figures[name][peer][figure].append(value)
            print(f"repetition {repetition + 1} of {repetitions} done", file=sys.stderr)
    return figures


def shown(value):
    if value >= 100000:
        return f"{value / 1e6:.2f}M"
    return f"{value:.0f}" if value >= 100 else f"{value:.2f}"


def table(figures):
    """Each row: our median, then each peer's and how ours compares to it."""
    rows = []
    for workload, arguments, peers, figure, more_is_better in MATRIX:
        name = key(workload, arguments)
        medians = {p: statistics.median(figures[name][p][figure]) for p in peers}
        rows.append((f"{name} [{figure}]", medians, more_is_better))
        print(f"\n{name} [{figure}]  ({'more' if more_is_better else 'less'} is better)")
        for peer, value in medians.items():
            ratio = f"ours is {medians[OUR] / value:.2f} of it" if value and peer != OUR else ""
            print(f"  {peer:15}{shown(value):>12}  {ratio}")
    return rows


def plot(rows, path):
    """Bars of our figure over each peer's, on a scale of ratios; 1 is the middle line."""
    import math
    rows = [r for r in rows if r[1].get(OUR) and len(r[1]) > 1]
    height = sum(16 * len(r[1]) + 14 for r in rows) + 40
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="900" height="{height}" '
           'font-family="sans-serif" font-size="11">',
           f'<rect width="900" height="{height}" fill="white"/>',
           '<text x="10" y="20" font-size="14">Our loop beside others: right of the line ours is '
           'better, by that factor</text>']
    y = 40
    for name, medians, more in rows:
        out.append(f'<text x="10" y="{y + 10}" font-weight="bold">{name}</text>')
        y += 14
        for peer, value in medians.items():
            if peer == OUR or not value:
                continue
            ratio = medians[OUR] / value if more else value / medians[OUR]
            length = max(-150, min(150, 50 * math.log2(ratio)))
            colour = "#2a7" if ratio >= 1 else "#c64"
            out.append(f'<text x="150" y="{y + 10}">{peer}</text>')
            out.append(f'<rect x="{500 + min(0, length):.1f}" y="{y}" width="{abs(length):.1f}" '
                       f'height="12" fill="{colour}"/>')
            out.append(f'<text x="680" y="{y + 10}">{ratio:.2f}</text>')
            y += 16
    out.append(f'<line x1="500" y1="30" x2="500" y2="{y}" stroke="black"/></svg>')
    with open(path, "w", encoding="utf-8") as svg:
        svg.write("\n".join(out) + "\n")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program", help="the built loop_bench")
    parser.add_argument("out", help="folder for results.jsonl and loops.svg")
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--quick", action="store_true", help="see that it works, measure nothing")
    options = parser.parse_args()
    figures = collect(options.program, 1 if options.quick else options.repetitions, options.quick,
                      options.out + "/results.jsonl")
    plot(table(figures), options.out + "/loops.svg")


if __name__ == "__main__":
    main()
