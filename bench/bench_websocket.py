"""What the daemon does over real sockets, beside a server that only passes texts through two threads and back (hop_echo).

The real daemon, under the small controller, on CPU 0; the access points (ap_load) on CPU 1; both servers in turn in each
round, so that whatever disturbs the machine disturbs both. The medians of all rounds are compared.

Messages: `rrm-client-assoc` with `need-ack`, 212 bytes, whose acknowledgement the domain's worker sends; and answers to a
scan with three rounds of 200 entries, 72 KB, whose next message is such an association. From 1024 messages a second on the
server balances no clients, and so none of these measures has a decision about a client in it."""

import argparse
import contextlib
import json
import os
import re
import resource
import signal
import statistics
import subprocess
import sys
import time
import traceback

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(HERE, "..", "tests", "integration")]

from daemon import Daemon, free_port  # noqa: E402
from measures import Measures  # noqa: E402

# Nothing is planned, no list is made: what is left is the way of a message to its worker and back.
MESSAGES = {"use_dca": 0, "use_tpc": 0, "use_80211k": 0, "use_80211r": 0, "use_80211v": 0, "use_balance": 1,
            "use_all_ap_balance": 1}
# Everything that a cycle does. Each access point is told when to scan, one after another; these answer at once, all of
# them in the same moment, for which nobody would wait long enough if all were told to scan at once (19 s).
PLANS = {"use_dca": 1, "use_tpc": 1, "use_80211k": 1, "use_80211r": 1, "use_80211v": 0, "use_balance": 1,
         "use_dunva_rrm_scan": 0, "use_rrm_report": 1}


def setup(settings, domains=1):
    return {"common": {}, "patterns": [{"pattern": "bench", **settings}],
            "domains": [{"domain": f"bench-{i}", "pattern": "bench", "time_zone": "0:00"} for i in range(domains)]}


def pinned(cpu):
    return lambda: os.sched_setaffinity(0, {cpu})


def pinned_with_descriptors():
    """As the daemon sees to it by itself."""
    pinned(0)()
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, 20000), hard))


def end(process, seconds):
    try:
        status = process.wait(seconds)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        raise
    if status != 0:
        raise RuntimeError(f"{os.path.basename(process.args[0])} failed")


class Echo:
    """hop_echo on CPU 0."""

    def __init__(self, build):
        self.port = free_port()
        self.process = subprocess.Popen([os.path.join(build, "bench", "wire", "hop_echo"), str(self.port)],
                                        stdout=subprocess.PIPE, text=True, preexec_fn=pinned_with_descriptors)
        if self.process.stdout.readline() != "ready\n":
            raise RuntimeError("hop_echo does not start")
        self.options = ["--echo"]

    def rest(self):
        pass

    def stop(self):
        self.process.terminate()
        end(self.process, 10)


class Server:
    """The daemon, which pins itself to CPU 0."""

    def __init__(self, build, settings, domains=1):
        self.daemon = Daemon(os.path.join(build, "controller", "zal_controller"), os.path.join(build, "daemon", "zal_rrm"),
                             setup(settings, domains))
        self.port = self.daemon.port
        self.pid = int(re.search(r"^zal_rrm started, pid (\d+)$", self.daemon.output(), re.MULTILINE)[1])
        self.options = ["--domains", str(domains)]

    def stop(self):
        try:
            self.daemon.stop()
        except BaseException:
            with contextlib.suppress(OSError, AssertionError):
                self.kill()
            raise

    def kill(self):
        self.daemon.kill()
        self.daemon.directory.cleanup()

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

    def result(self, while_open=lambda: None):
        """`while_open` runs when all sessions are open and the server has come to rest, before they go on."""
        line = self._line()
        if line == "open\n":
            self.server.rest()
            while_open()
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
        end(self.process, 60)


def loaded(build, server, *arguments):
    with running(Load(build, server, *arguments)) as load:
        return load.result()


class Comparison:
    """Rounds of associations with the daemon and with the echo."""

    def __init__(self, build, rounds, *arguments):
        self.ours, self.theirs = [], []
        for _ in range(rounds):
            with running(Echo(build)) as echo:
                self.theirs.append(loaded(build, echo, *arguments, "associations"))
            with running(Server(build, MESSAGES)) as server:
                self.ours.append(loaded(build, server, *arguments, "associations"))

    def add_to(self, measures, name, value, unit, goal=None):
        """The medians of what `value` makes of the results."""
        ours, theirs = statistics.median(map(value, self.ours)), statistics.median(map(value, self.theirs))
        measures.add(name, ours, unit, "two-hop echo", theirs, ours / theirs, goal)

    def busiest_client(self):
        """The share of its CPU that ap_load used at most: near 1 it would itself be what is measured."""
        return max(result["own_cpu"] for result in self.ours + self.theirs)


def measure_messages(build, rounds, measures):
    for sessions in (100, 1000, 5000):
        busy = Comparison(build, rounds, "--sessions", sessions, "--seconds", 3)
        name = f"associations acknowledged, {sessions} sessions all busy"
        busy.add_to(measures, name, lambda result: result["messages"] / result["seconds"], "1/s", "0.7")
        measures.add(f"{name}: the clients' share of their CPU at most", 100 * busy.busiest_client(), "%")
    # The machine stands still now and then, for the daemon and for the echo: that is in all seconds, hardly in the median.
    name = "99 % acknowledged within, 2000/s over 1000 sessions"
    steady = Comparison(build, rounds, "--sessions", 1000, "--seconds", 5, "--rate", 2000)
    steady.add_to(measures, name, lambda result: result["p99_us"], "us", "1.5")
    steady.add_to(measures, f"{name}, median second", lambda result: result["p99_of_second_us"], "us")


def measure_scans(build, measures):
    """Once: the domain asks for scans some 35 s after its access points have come."""
    with running(Server(build, PLANS)) as server:
        result = loaded(build, server, "--sessions", 11, "--seconds", 4, "--rounds", 3, "--heard", 200, "scans")
        # In any other state the answers would be passed over, and still be followed by an acknowledgement.
        if re.findall(r"bench-0: (\d)", server.daemon.output())[-1] != "3":
            raise RuntimeError("the domain did not wait for scans to the end")
    merged = result["bytes_sent"] / result["seconds"] / 1e6
    parsed = result["parsing_mb_s"]
    measures.add("answers to scans merged", merged, "MB/s", "the parser alone", parsed, merged / parsed)


def measure_memory(build, measures):
    with running(Server(build, MESSAGES)) as server:
        before = server.resident_bytes()
        sessions = 5000
        with running(Load(build, server, "--sessions", sessions, "--echo", "silent")) as load:
            load.result()
            measures.add("resident memory of an idle session", (server.resident_bytes() - before) / sessions, "bytes",
                         goal="8192")


def share_of_cpu(server, seconds):
    burnt, began = server.cpu_seconds(), time.monotonic()
    time.sleep(seconds)
    return (server.cpu_seconds() - burnt) / (time.monotonic() - began)


def measure_rest(build, measures):
    sessions, asleep_s = 1000, 5
    ping_period_s = 30  # each session is pinged once in it
    share, sleeping = None, []

    def sleep():
        slept = subprocess.run([os.path.join(build, "bench", "wire", "idle_threads"), str(asleep_s)],
                               stdout=subprocess.PIPE, check=True)
        sleeping.append(float(slept.stdout) / asleep_s)

    def measure_between_sleepers():
        nonlocal share
        sleep()
        share = share_of_cpu(server, ping_period_s)
        sleep()

    with running(Server(build, MESSAGES)) as server:
        with running(Load(build, server, "--sessions", sessions, "silent")) as load:
            result = load.result(measure_between_sleepers)
    asleep = statistics.mean(sleeping)
    measures.add("CPU of the daemon at rest with 1000 silent access points", 100 * share, "%", "threads that only sleep",
                 100 * asleep, share / asleep, "1 %")
    measures.add("longest silence of a session, for a ping ends it", result["longest_silence_s"], "s", goal="31")


def measure_group(build, measures):
    sessions, domains = 10000, 50
    server = Server(build, PLANS, domains)
    try:
        with running(Load(build, server, "--sessions", sessions, "--heard", 300, "cycle")) as load:
            result = load.result()
            if (result["modes_asked"], result["scans_asked"], result["planned"], result["ended"]) != (
                    sessions, sessions, sessions, 0):
                raise RuntimeError(f"not one cycle each: {result}")
            measures.add("10000 sessions of 50 domains: until all are subscribed", result["open_s"], "s")
            measures.add("10000 sessions of 50 domains: from there until all are planned", result["cycle_s"], "s")
            measures.add("10000 sessions of 50 domains: CPU", server.cpu_seconds(), "s")
            measures.add("10000 sessions of 50 domains: largest resident memory", server.peak_bytes() / 1e6, "MB")
    finally:
        server.kill()  # in order it would first save fifty domains whose access points have all left


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--json", metavar="FILE")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--only", default="messages,scans,memory,rest,group")
    arguments = parser.parse_args()
    measures = Measures()
    parts = {"messages": lambda: measure_messages(arguments.build, arguments.rounds, measures),
             "scans": lambda: measure_scans(arguments.build, measures),
             "memory": lambda: measure_memory(arguments.build, measures),
             "rest": lambda: measure_rest(arguments.build, measures),
             "group": lambda: measure_group(arguments.build, measures)}

    def stop(signal_number, _):
        nonlocal stopped
        stopped = 128 + signal_number
        sys.exit(stopped)

    stopped = None
    for ends in (signal.SIGTERM, signal.SIGINT):
        signal.signal(ends, stop)
    failures = []
    for part in arguments.only.split(","):
        try:
            parts[part]()
        except Exception:  # the rest is worth measuring all the same, if nobody wants an end
            if stopped:
                sys.exit(stopped)
            failures.append(f"{part}:\n{traceback.format_exc()}")
    if arguments.json:
        measures.write(arguments.json)
    if failures:
        sys.exit("\n".join(failures))


main()
