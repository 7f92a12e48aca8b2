"""The table of measurements: each row is one workload with all its peers."""
import collections

OUR = "pelto"
POSTERS = [OUR, "asio-post", "asio-post-single", "glib-invoke", "asio-mailbox", "uv-mailbox", "glib-source",
           "event-mailbox", "epoll-mailbox"]
MAILBOXES = ["asio-mailbox", "uv-mailbox", "glib-source", "event-mailbox"]
TIMERS = [OUR, "asio-post", "uv-mailbox", "event-mailbox"]
HEAPS = TIMERS[1:]
PRODUCERS = (1, 2, 4)
WAITING = (1, 100, 1000, 10000, 100000)
DELAYED = (1000, 10000, 100000)

# name; the command of each peer, with PHONE in place of the phone's folder; the figures shown
Row = collections.namedtuple("Row", "name commands figures")

HIGH_IS_GOOD = {"rate"}


def loop_row(loop_bench, peers, figures, workload, *arguments):
    name = " ".join([workload] + [a.replace("--", "") for a in arguments])
    return Row(name, {p: [loop_bench, p, workload, *arguments] for p in peers}, figures)


def loop_rows(program):
    def row(*arguments):
        return loop_row(program, *arguments)
    flood = ("--messages", "300000")
    yield from (row(POSTERS, ["rate", "cpu_ns"], kind, "--producers", str(p), *flood)
                for kind in ("flat-out", "bounded") for p in PRODUCERS)
    yield from (row(POSTERS, ["rate"], kind, "--producers", "2", *flood, "--read-whole")
                for kind in ("flat-out", "bounded"))
    yield row(POSTERS, ["p50", "p99"], "wake", "--messages", "3000")
    yield from (row(POSTERS, ["ns"] + (["peak_share", "kept_kib"] if n == WAITING[-1] else []),
                    "drain", "--messages", str(n)) for n in WAITING)
    yield row(POSTERS, ["ns"], "drain", "--messages", "10000", "--read-whole")
    yield from (row(TIMERS, ["insert_ns"], kind, "--messages", str(n))
                for kind in ("insert", "insert-among") for n in DELAYED)
    yield from (row(TIMERS, ["late_p50", "late_p99", "early", "unordered"], "delayed",
                    "--messages", str(n)) for n in DELAYED)
    yield row(POSTERS, ["ns"], "self-post", *flood)


def road_rows(program):
    def commands(*arguments):
        return {peer: [program, "run", workload, "PHONE", *arguments]
                for peer, workload in (("dispatcher", "dispatch"), ("client", "client"),
                                       ("raw socket", "socket"))}
    yield Row("event road, one at a time", commands("--events", "5000"), ["p50", "p90", "p99"])
    yield Row("event road, flat out", commands("--events", "50000", "--gap-micros", "0"), ["rate"])
    yield Row("event road, four pairs", {peer: [program, "run", workload, "PHONE", "--events", "50000",
                                                "--gap-micros", "0"]
                                         for peer, workload in (("dispatcher", "road"), ("client", "client-road"))},
              ["rate", "cpu_ns", "allocations"])
    yield Row("a client beside 8 flooding, 200 slow and 50 deaf ones",
              {OUR: [program, "run", "attacked", "PHONE", "--events", "200"]}, ["p50", "p99"])
    yield Row("start-up", {OUR: [program, "run", "start-up", "PHONE"]},
              ["constructor", "named_threads"])


def quick(row):
    """The same row with few messages, to check that it works."""
    def smaller(word):
        return "1000" if word.isdigit() and int(word) > 1000 else word
    return row._replace(commands={p: [smaller(w) for w in c] for p, c in row.commands.items()})
