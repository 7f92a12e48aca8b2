"""The goals for the loop, and how the medians of a run compare with them."""
from measurements import HEAPS, MAILBOXES, OUR, WAITING


def rows_named(medians, words):
    """The rows whose name begins with these whole words."""
    return [row for row in medians if (row + " ").startswith(words + " ")]


def against(peers, best, figure):
    """Our figure divided by the best figure of those peers."""
    return lambda row: row[OUR][figure] / best(row[p][figure] for p in peers)


def goals():
    """Goals: description, prefix of the rows' names, figure, limit, whether it is a minimum."""
    post = ["asio-post"]
    for kind in ("flat-out", "bounded"):
        yield f"{kind}: times asio::post", f"{kind} producers", against(post, max, "rate"), 2.0, True
    for n in WAITING[2:]:
        yield "draining: share of asio::post", f"drain messages {n}", against(post, min, "ns"), 0.4, False
    yield "self-post: share of asio::post", "self-post", against(post, min, "ns"), 0.7, False
    yield "bounded: times the best mailbox", "bounded producers", against(MAILBOXES, max, "rate"), 0.6, True
    yield "wake p50: times the best", "wake", against(MAILBOXES, min, "p50"), 1.25, False
    yield "self-post: times the best mailbox", "self-post", against(MAILBOXES, min, "ns"), 2.0, False
    for n, limit in ((1000, 1.7), (10000, 1.7), (100000, 12.0)):
        yield ("inserting: times the best timer heap", f"insert messages {n}",
               against(HEAPS, min, "insert_ns"), limit, False)
    for n in WAITING[2:]:
        yield "draining: times the best mailbox", f"drain messages {n}", against(MAILBOXES, min, "ns"), 3.5, False
    most = f"drain messages {WAITING[-1]}"
    yield "peak memory over what waits", most, lambda row: row[OUR]["peak_share"], 1.25, False
    yield "kept after a flood, KiB", most, lambda row: row[OUR]["kept_kib"], 1100, False
    yield "delivered early", "delayed", lambda row: row[OUR]["early"], 0, False
    yield "out of order", "delayed", lambda row: row[OUR]["unordered"], 0, False
    yield ("allocations an event", "event road, four pairs",
           lambda row: row["dispatcher"]["allocations"], 20, False)
    yield "constructor, ns", "start-up", lambda row: row[OUR]["constructor"], 50e6, False


def print_one(words, name, value, limit, at_least):
    met = value >= limit if at_least else value <= limit
    print(f"  {'met   ' if met else 'MISSED'} {value:12.2f}  {'>=' if at_least else '<='} "
          f"{limit:<10g} {words} ({name})")
    return met


def print_goals(medians, daemon):
    """medians[row][peer][figure]; true when all are met."""
    print("\ngoals")
    met = True
    for words, begin, figure, limit, at_least in goals():
        for name in rows_named(medians, begin):
            met &= print_one(words, name, figure(medians[name]), limit, at_least)
    drains = [medians[f"drain messages {n}"][OUR]["ns"] for n in (WAITING[2], WAITING[-1])]
    met &= print_one("a message, draining 100,000 over 1,000", "drain", drains[1] / drains[0], 1.5, False)
    met &= print_one("wake-ups in an idle minute", "daemon", sum(daemon["wakeups"].values()), 0, False)
    return met
