#!/usr/bin/env python3
"""Refuses a daemon with too much memory of its own: idle, and after a burst of events.

check_memory.py PROGRAMS

Counts the anonymous memory: heaps, stacks and written data. The pages of programs and libraries that
no other process happens to map are shown beside it: the kernel can read them again from the disk.
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import idle_daemon

IDLE_KIB = 1024
BURST_KIB = 2048
SENDERS = 4
EVENTS = 20000
PATIENCE_SECONDS = 60


def private_kib(pid):
    """The process's own memory, and the other that it shares with no process."""
    rollup = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="ascii")
    dirty, clean, own = (int(re.search(rf"^{name}: +(\d+) kB$", rollup, re.M)[1])
                         for name in ("Private_Dirty", "Private_Clean", "Anonymous"))
    return own, dirty + clean - own


def burst(programs, phone):
    command = [programs + "/service_bench", "send", phone, str(EVENTS // SENDERS), "0"]
    senders = [subprocess.Popen(command) for _ in range(SENDERS)]
    if any([sender.wait(timeout=PATIENCE_SECONDS) for sender in senders]):
        sys.exit("a sender failed")


def await_drained(programs, phone, word):
    """Sends one more event and waits for the line of its listener: all before it is done."""
    pelto = [programs + "/pelto", "--phone", phone]
    subprocess.run([*pelto, "send", "pelto_event_for_test", "string0:" + word], check=True,
                   stdout=subprocess.DEVNULL, timeout=PATIENCE_SECONDS)
    deadline = time.monotonic() + PATIENCE_SECONDS
    while time.monotonic() < deadline:
        log = subprocess.run([*pelto, "logcat", "-d", "EventTest:V", "*:S"], check=True,
                             capture_output=True, text=True, timeout=PATIENCE_SECONDS)
        if word in log.stdout:
            return
    sys.exit("the queue did not drain")


def measure(programs):
    with tempfile.TemporaryDirectory() as folder:
        phone = folder + "/phone"
        subprocess.run([programs + "/service_bench", "make-phone", phone], check=True)
        daemon = idle_daemon.start(programs + "/peltoserviced", phone)
        try:
            await_drained(programs, phone, "started")
            idle = private_kib(daemon.pid)
            burst(programs, phone)
            await_drained(programs, phone, "drained")
            return idle, private_kib(daemon.pid)
        finally:
            daemon.terminate()
            daemon.wait(timeout=20)


def main():
    idle, after = measure(sys.argv[1])
    print(f"the daemon's own memory: {idle[0]} KiB idle (at most {IDLE_KIB}), {after[0]} KiB after "
          f"{EVENTS} events of {SENDERS} senders (at most {BURST_KIB}); "
          f"program pages that nobody shares: {idle[1]} and {after[1]} KiB")
    return 1 if idle[0] > IDLE_KIB or after[0] > BURST_KIB else 0


if __name__ == "__main__":
    sys.exit(main())
