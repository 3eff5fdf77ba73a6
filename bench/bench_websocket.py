"""What the daemon does over real sockets, beside a server that only passes texts through two threads and back (hop_echo).

The real daemon, under the small controller, on CPU 0; the access points (ap_load) on CPU 1; both servers in turn in each
round, so that whatever disturbs the machine disturbs both. Ratios are taken within a round, and their median counts.

Messages: `rrm-client-assoc` with `need-ack`, 212 bytes, whose acknowledgement the domain's worker sends; and answers to a
scan with 300 entries, 40 KB, whose next message is such an association."""

import argparse
import contextlib
import json
import os
import re
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(HERE, "..", "tests", "integration")]

from daemon import Daemon, free_port  # noqa: E402
from measures import Measures  # noqa: E402

# Nothing is planned, no list is made: what is left is the way of a message to its worker and back.
MESSAGES = {"use_dca": 0, "use_tpc": 0, "use_80211k": 0, "use_80211r": 0, "use_80211v": 0, "use_balance": 1,
            "use_all_ap_balance": 1}
# Everything that a cycle does; the access points scan at once, not one after another.
PLANS = {"use_dca": 1, "use_tpc": 1, "use_80211k": 1, "use_80211r": 1, "use_80211v": 0, "use_balance": 1,
         "use_dunva_rrm_scan": 1, "use_rrm_report": 1}
# A scan that takes long enough to be answered many times.
SCANS = {**PLANS, "use_dunva_rrm_scan": 0}


def setup(settings, domains=1):
    return {"common": {}, "patterns": [{"pattern": "bench", **settings}],
            "domains": [{"domain": f"bench-{i}", "pattern": "bench", "time_zone": "0:00"} for i in range(domains)]}


def pinned(cpu):
    return lambda: os.sched_setaffinity(0, {cpu})


class Echo:
    """hop_echo on CPU 0."""

    def __init__(self, build):
        self.port = free_port()
        self.process = subprocess.Popen([os.path.join(build, "bench", "wire", "hop_echo"), str(self.port)],
                                        stdout=subprocess.PIPE, text=True, preexec_fn=pinned(0))
        if self.process.stdout.readline() != "ready\n":
            raise RuntimeError("hop_echo does not start")
        self.options = ["--echo"]

    def rest(self):
        pass

    def stop(self):
        self.process.terminate()
        if self.process.wait(10) != 0:
            raise RuntimeError("hop_echo failed")


class Server:
    """The daemon, which pins itself to CPU 0."""

    def __init__(self, build, settings, domains=1):
        self.daemon = Daemon(os.path.join(build, "controller", "zal_controller"), os.path.join(build, "daemon", "zal_rrm"),
                             setup(settings, domains))
        self.port = self.daemon.port
        self.pid = int(re.search(r"^zal_rrm started, pid (\d+)$", self.daemon.output(), re.MULTILINE)[1])
        self.options = ["--domains", str(domains)]

    def stop(self):
        self.daemon.stop()

    def resident_bytes(self):
        with open(f"/proc/{self.pid}/statm", encoding="ascii") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def cpu_seconds(self):
        with open(f"/proc/{self.pid}/stat", encoding="ascii") as file:
            fields = file.read().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def rest(self):
        """Until what the subscriptions led to is done, the saving of the domain among it."""
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            burnt = self.cpu_seconds()
            time.sleep(2)
            if self.cpu_seconds() - burnt < 0.1:
                return
        raise RuntimeError("the daemon does not come to rest")

    def peak_bytes(self):
        with open(f"/proc/{self.pid}/status", encoding="ascii") as file:
            return 1024 * int(re.search(r"^VmHWM:\s*(\d+) kB$", file.read(), re.MULTILINE)[1])


@contextlib.contextmanager
def running(server):
    try:
        yield server
    finally:
        server.stop()


class Load:
    """ap_load on CPU 1; its sessions are held until stop()."""

    def __init__(self, build, server, *arguments):
        self.process = subprocess.Popen(
            [os.path.join(build, "bench", "wire", "ap_load"), "--port", str(server.port), *server.options,
             *map(str, arguments)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, preexec_fn=pinned(1))
        self.server = server

    def result(self):
        line = self._line()
        if line == "open\n":
            self.server.rest()
            self.process.stdin.write("\n")
            self.process.stdin.flush()
            line = self._line()
        return json.loads(line)

    def _line(self):
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError("ap_load failed")
        return line

    def stop(self):
        self.process.stdin.close()
        if self.process.wait(60) != 0:
            raise RuntimeError("ap_load failed")


def loaded(build, server, *arguments):
    with running(Load(build, server, *arguments)) as load:
        return load.result()


def compare(build, rounds, sessions, arguments, value):
    """The medians of the daemon's and the echo's values, and of their ratios."""
    ours, theirs = [], []
    for _ in range(rounds):
        for make, values in ((lambda: Echo(build), theirs), (lambda: Server(build, MESSAGES), ours)):
            with running(make()) as server:
                values.append(value(loaded(build, server, "--sessions", sessions, *arguments, "associations")))
    return (statistics.median(ours), statistics.median(theirs),
            statistics.median(our / their for our, their in zip(ours, theirs)))


def measure_messages(build, rounds, measures):
    for sessions in (100, 1000, 5000):
        ours, theirs, ratio = compare(build, rounds, sessions, ["--seconds", 3],
                                      lambda result: result["messages"] / result["seconds"])
        measures.add(f"associations acknowledged, {sessions} sessions all busy", ours, "1/s", "two-hop echo", theirs, ratio,
                     "0.7")
    ours, theirs, ratio = compare(build, rounds, 1000, ["--seconds", 5, "--rate", 2000], lambda result: result["p99_us"])
    measures.add("99 % acknowledged within, 2000/s over 1000 sessions", ours, "us", "two-hop echo", theirs, ratio, "1.5")


def measure_scans(build, rounds, measures):
    rates = []
    for _ in range(rounds):
        with running(Server(build, SCANS)) as server:
            result = loaded(build, server, "--sessions", 11, "--seconds", 5, "scans")
            rates.append(result["bytes_sent"] / result["seconds"] / 1e6)
    measures.add("answers to scans merged", statistics.median(rates), "MB/s")


def measure_memory(build, measures):
    with running(Server(build, MESSAGES)) as server:
        before = server.resident_bytes()
        sessions = 5000
        with running(Load(build, server, "--sessions", sessions, "--echo", "silent")) as load:
            load.result()
            measures.add("resident memory of an idle session", (server.resident_bytes() - before) / sessions, "bytes",
                         goal="8192")


def measure_rest(build, measures):
    with running(Server(build, MESSAGES)) as server:
        with running(Load(build, server, "--sessions", 1000, "--echo", "silent")) as load:
            load.result()
            seconds = 40  # every session is pinged in it
            burnt, began = server.cpu_seconds(), time.monotonic()
            time.sleep(seconds)
            share = (server.cpu_seconds() - burnt) / (time.monotonic() - began)
            measures.add("CPU of the daemon at rest with 1000 silent sessions", 100 * share, "%", goal="1")


def measure_group(build, measures):
    sessions, domains = 10000, 50
    with running(Server(build, PLANS, domains)) as server:
        with running(Load(build, server, "--sessions", sessions, "--heard", 300, "cycle")) as load:
            result = load.result()
            if (result["modes_asked"], result["scans_asked"], result["planned"], result["ended"]) != (
                    sessions, sessions, sessions, 0):
                raise RuntimeError(f"not one cycle each: {result}")
            measures.add("10000 sessions of 50 domains: until all are subscribed", result["open_s"], "s")
            measures.add("10000 sessions of 50 domains: from there until all are planned", result["cycle_s"], "s")
            measures.add("10000 sessions of 50 domains: CPU", server.cpu_seconds(), "s")
            measures.add("10000 sessions of 50 domains: largest resident memory", server.peak_bytes() / 1e6, "MB")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--json", metavar="FILE")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--only", default="messages,scans,memory,rest,group")
    arguments = parser.parse_args()
    measures = Measures()
    parts = {"messages": lambda: measure_messages(arguments.build, arguments.rounds, measures),
             "scans": lambda: measure_scans(arguments.build, arguments.rounds, measures),
             "memory": lambda: measure_memory(arguments.build, measures),
             "rest": lambda: measure_rest(arguments.build, measures),
             "group": lambda: measure_group(arguments.build, measures)}
    for part in arguments.only.split(","):
        parts[part]()
    if arguments.json:
        measures.write(arguments.json)


main()
