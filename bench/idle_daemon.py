"""Measures the idle daemon: its memory, its processor time and the wakeups of its threads."""
import os
import pathlib
import subprocess
import tempfile
import time


def status(path):
    with open(path / "status", encoding="ascii") as lines:
        return dict(line.strip().split(":", 1) for line in lines)


def ticks(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text(encoding="ascii").rpartition(")")[2].split()
    return int(fields[11]) + int(fields[12])


def wakeups(pid):
    """Voluntary context switches by thread; each is followed by a wakeup."""
    found = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        fields = status(task)
        found[f"{fields['Name'].strip()} {task.name}"] = int(fields["voluntary_ctxt_switches"])
    return found


def start(peltoserviced, phone):
    reading, writing = os.pipe()
    daemon = subprocess.Popen([peltoserviced, "--phone", phone, "--ready-fd", str(writing)],
                              pass_fds=[writing])
    os.close(writing)
    with os.fdopen(reading) as ready:
        if ready.read() != "ready\n":
            raise RuntimeError("peltoserviced did not start")
    return daemon


def idle(service_bench, peltoserviced, seconds):
    """Figures of the given number of seconds without any call."""
    with tempfile.TemporaryDirectory() as folder:
        phone = folder + "/phone"
        subprocess.run([service_bench, "make-phone", phone], check=True)
        daemon = start(peltoserviced, phone)
        try:
            time.sleep(1)  # lets the start-up finish
            before, ticks_before = wakeups(daemon.pid), ticks(daemon.pid)
            time.sleep(seconds)
            after, ticks_after = wakeups(daemon.pid), ticks(daemon.pid)
            memory = status(pathlib.Path(f"/proc/{daemon.pid}"))
        finally:
            daemon.terminate()
            daemon.wait(timeout=20)
    return {"seconds": seconds,
            "resident_kib": int(memory["VmRSS"].split()[0]),
            "anonymous_kib": int(memory["RssAnon"].split()[0]),
            "threads": len(after),
            "cpu_ms": (ticks_after - ticks_before) * 1000 / os.sysconf("SC_CLK_TCK"),
            "wakeups": {name: count - before.get(name, 0) for name, count in after.items()
                        if count != before.get(name, 0)}}
