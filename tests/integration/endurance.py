"""The daemon through a long shift: a simulated office is served for as long as is wanted, beside access points of another
domain that crash, stall, flap and never read, and every few minutes the daemon is killed and its controller starts it
again. Each time the office comes back from the domain's backup and is planned again, and between two kills the daemon
grows by nothing. Each life of the daemon must see each misdeed that it is long enough for, and the simulated access
points must have nothing to tell but that they lost their sessions at each kill and came back.

usage: endurance.py CONTROLLER DAEMON APSIM SITES MINUTES"""

import asyncio
import collections
import contextlib
import glob
import json
import os
import random
import re
import signal
import socket
import statistics
import struct
import subprocess
import sys
import time

import websockets

from daemon import Daemon
from wire import AccessPoint, BareSocket, envelope, frame, new_mac, radio, subscribe_request

OFFICE, LAB = "office", "lab"
LIFE_S = 150  # from the return of all access points to the next kill
WATCH_S = 60  # after the plan at least, when the daemon has no reason to grow any more
SAMPLE_S = 5
ERRORS_S = 2  # a file of the log is full after a dozen
# The longest back-off of a simulated access point is 30 s and a quarter of that; the rest is for the subscription.
RETURN_S = 30 * 1.25 + 15
AWAY_TIMEOUT_S = 30
LONGEST_CYCLE_S = 200  # a restored domain's wait, forced delay, modes, scan and computing, twice if one is under way
RESTART_S = 40  # the controller's longest pause and the daemon's own start
GROWTH_OF_MEMORY = 0.05
GROWTH_OF_DESCRIPTORS = 8  # sessions of the misbehaving come and go
# What the misbehaving bring about: messages of sessions and access points that are gone, and answers that nobody reads.
EXPECTED_ERRORS = ("invalid session", "invalid exist session", "AP not found", "queue overflow",
                   "Can't send msg to websocket")
SILENCE_S = 90  # after so long a session that says nothing is ended, within
DROP_S = 12     # the longest period of the watch over them and the time that a connection has to take the order
LONGEST_CRASH_S = 10
QUESTIONS_S = 60
BIG_ANSWER = 20_000
# How long a misdeed takes at most, from its first connection; a life that is longer than that by the margin has seen it.
LONGEST_MISDEED_S = {"crash": LONGEST_CRASH_S, "stall": SILENCE_S + DROP_S, "flap": 1, "never_read": QUESTIONS_S + 10}
MISDEED_MARGIN_S = 30
REPORT_HEAD = r"1\.1,\d{4}-\d\d-\d\d,\d\d:\d\d:\d\d"
WHOLE_LINE = {"idx_": re.compile(rf"{REPORT_HEAD}\n"), "cfg_": re.compile(rf"{REPORT_HEAD}(,[^,\n]+){{25}}\n"),
              "": re.compile(rf"{REPORT_HEAD}(,([0-9A-F]{{2}}:){{5}}[0-9A-F]{{2}}){{2}}(,-?\d+){{9}},[\d ]*(,-?\d+){{6}}\n")}
SIMULATOR_TELLS = re.compile(r"(\S+): (connected|the (?:session|connection) ended, connecting again and again)")


class ErrorsOfLog:
    """All that the log ever told, though it soon moves on: what the misbehaving say fills a file in a dozen seconds,
    which is then renamed, and goes after five more."""

    def __init__(self, path):
        self.path = path
        self.lines = []
        self.lost_some = False
        self.file = None
        self.rest = ""

    def read(self):
        while self.file is not None or self._open():
            goes_on = self._lies_at(self.path)  # asked before reading, after which nothing more comes to a renamed one
            self._read_on()
            if goes_on:
                return
            self.lost_some |= not self._lies_at(self.path.replace(".log", ".1.log"))
            self.file.close()
            self.file = None

    def _open(self):
        with contextlib.suppress(FileNotFoundError):  # a moment of renaming
            self.file = open(self.path, encoding="utf-8", errors="replace")
        return self.file is not None

    def _lies_at(self, path):
        try:
            return os.path.samestat(os.stat(path), os.fstat(self.file.fileno()))
        except FileNotFoundError:
            return False

    def _read_on(self):
        lines = (self.rest + self.file.read()).split("\n")
        self.rest = lines.pop()
        self.lines += [line for line in lines if re.match(r"\S+ ERROR", line)]


class Endurance:
    def __init__(self, controller, daemon, apsim, sites, minutes):
        with open(os.path.join(sites, "office-setup.json"), encoding="utf-8") as file:
            setup = json.load(file)
        # A restored domain waits that long for its access points before it plans again.
        setup["patterns"][0]["away_timeout"] = AWAY_TIMEOUT_S
        setup["domains"].append({"domain": LAB, "pattern": setup["patterns"][0]["pattern"], "time_zone": "0:00"})
        site_path = os.path.join(sites, "office.json")
        with open(site_path, encoding="utf-8") as file:
            self.office = {ap["mac"].upper() for ap in json.load(file)["access_points"]}
        self.seconds = minutes * 60
        self.began = time.monotonic()
        self.daemon = Daemon(controller, daemon, setup)
        # Its tables on the one, what went wrong on the other.
        self.sim_tables = os.path.join(self.daemon.directory.name, "apsim.out")
        self.sim_words = os.path.join(self.daemon.directory.name, "apsim.err")
        self.sim = None
        self.sim_command = [apsim, "--site", site_path, "--server", f"ws://127.0.0.1:{self.daemon.port}/apb/rrm"]
        self.errors = ErrorsOfLog(os.path.join(self.daemon.state, "zal_rrm.log"))
        self.chance = random.Random(1)
        self.kills = 0
        self.misdeeds = collections.Counter()
        self.cut_short = {}  # by what each misdeed was cut short last
        self.faults = []
        self.lives = []

    def start_simulator(self):
        with open(self.sim_tables, "wb") as tables, open(self.sim_words, "wb") as words:
            self.sim = subprocess.Popen(self.sim_command, stdin=subprocess.DEVNULL, stdout=tables, stderr=words)

    # The daemon.

    def pid(self):
        return int(re.findall(r"^zal_rrm started, pid (\d+)$", self.daemon.output(), re.MULTILINE)[-1])

    async def group(self, domain):
        """The domain as the server describes it, or None while there is none, or nobody to say so."""
        try:
            answer = await asyncio.to_thread(self.daemon.zalctl, "api", "group", domain)
            return answer["details"]
        except (RuntimeError, KeyError):
            return None

    async def await_that(self, what, seconds, condition):
        """The seconds that it took."""
        began = time.monotonic()
        while not await condition():
            if self.sim.poll() is not None:
                raise AssertionError(f"the simulator ended with {self.sim.returncode}")
            if time.monotonic() - began > seconds:
                raise AssertionError(f"{what} not within {seconds:.0f} s")
            await asyncio.sleep(0.2)
        return time.monotonic() - began

    async def listens(self):
        try:
            socket.create_connection(("127.0.0.1", self.daemon.port), 1).close()
            return True
        except OSError:
            return False

    async def all_served(self):
        group = await self.group(OFFICE)
        return group is not None and self.office <= {ap["mac"].upper() for ap in group["aps"] + group["unanswered-aps"]}

    async def is_restored(self):
        """All that the backup knew are there, back or not."""
        group = await self.group(OFFICE)
        return group is not None and sum(group[f"{kind}ap-count"] for kind in ("", "unanswered-", "deleted-")) >= len(
            self.office)

    def reports(self, domain=OFFICE):
        """The lines of the index, and what is torn: each line must be whole, and every file hold what the index names."""
        texts = {}
        for part in ("idx_", "cfg_", ""):
            with contextlib.suppress(FileNotFoundError):
                with open(os.path.join(self.daemon.state, "data", "zal", "morvane-reports", f"report_{part}{domain}.txt"),
                          encoding="utf-8") as file:
                    texts[part] = file.read()
        index = texts.get("idx_", "").splitlines()
        torn = [line for part, text in texts.items() for line in text.splitlines(keepends=True)
                if not WHOLE_LINE[part].fullmatch(line)]
        keys = {part: {tuple(line.split(",")[:3]) for line in texts.get(part, "").splitlines()} for part in ("cfg_", "")}
        lost = [line for line in index if any(tuple(line.split(",")[:3]) not in known for known in keys.values())]
        return index, torn + lost

    def words(self):
        """The last ones of all who took part."""
        said = ""
        for path in [self.daemon.output_path, *sorted(glob.glob(os.path.join(self.daemon.state, "zal_rrm.err*"))),
                     self.sim_words]:
            with contextlib.suppress(FileNotFoundError):
                with open(path, encoding="utf-8", errors="replace") as file:
                    said += f"{os.path.basename(path)}:\n{''.join(file.readlines()[-40:])}\n"
        return said

    async def read_errors(self):
        while True:
            self.errors.read()
            await asyncio.sleep(ERRORS_S)

    def sample(self, pid):
        try:
            with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as file:
                status = dict(line.split(":", 1) for line in file)
            return {"rss_kib": int(status["VmRSS"].split()[0]), "threads": int(status["Threads"]),
                    "descriptors": len(os.listdir(f"/proc/{pid}/fd"))}
        except (OSError, KeyError) as error:
            raise AssertionError("the daemon ended by itself") from error

    def simulator_words(self):
        with open(self.sim_words, encoding="utf-8", errors="replace") as file:
            return file.read()

    def simulator_tables(self):
        with open(self.sim_tables, encoding="utf-8", errors="replace") as file:
            return file.read()

    def cycles(self):
        """Those that every simulated access point has gone through."""
        return len(re.findall(rf"^{OFFICE}: cycle \d+ planned", self.simulator_tables(), re.MULTILINE))

    # Access points that misbehave. Each begins again after every end, also after those of the daemon, which are none of
    # its own: what a kill has cut short does not count.

    async def again_and_again(self, name, misdeed):
        while True:
            kills = self.kills
            try:
                fault = await misdeed()
                if self.kills == kills:
                    self.misdeeds[name] += 1
                    if fault:
                        self.faults.append(fault)
            except (OSError, asyncio.TimeoutError, asyncio.IncompleteReadError, AssertionError,
                    websockets.WebSocketException) as error:
                self.cut_short[name] = repr(error)
            except Exception as error:
                self.faults.append(f"{name}: {error!r}")
                raise
            await asyncio.sleep(self.chance.uniform(0.5, 2))

    async def joined(self, mac):
        ap = await AccessPoint.connect(self.daemon.port, mac)
        await ap.subscribe(domain=LAB)
        return ap

    async def joined_bare(self, mac):
        bare = await BareSocket.upgraded(self.daemon.port)
        await bare.write(frame(json.dumps(subscribe_request(mac, domain=LAB)).encode()))
        return bare

    async def crash(self, mac):
        bare = await self.joined_bare(mac)
        await asyncio.sleep(self.chance.uniform(2, LONGEST_CRASH_S))
        linger = struct.pack("ii", 1, 0)  # the end is a reset
        bare.writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger)
        bare.writer.transport.abort()

    async def stall(self, mac):
        """Keeps its socket, reads, and says nothing any more, until the server ends the session, which must not be before
        its time."""
        began = time.monotonic()  # the server counts from its last message, which is later
        bare = await self.joined_bare(mac)
        try:
            while await asyncio.wait_for(bare.reader.read(65536), 180):
                pass
        finally:
            await bare.close()
        silence = time.monotonic() - began
        return None if silence > SILENCE_S - 1 else f"a session ended after {silence:.0f} s of silence"

    async def flap(self, mac):
        ap = await self.joined(mac)
        await ap.close()

    async def never_read(self, mac):
        """Asks on and on, and takes none of the answers, which are soon more than both ends of the connection hold."""
        bare = await self.joined_bare(mac)
        bare.writer.transport.pause_reading()
        client = {"radio": 0, "rssi": -60, "sta-mac": "02:00:AB:00:00:01", "need-ack": 1}
        small, big = (frame(json.dumps(message).encode()) for message in (
            envelope("rrm-config-changed", mac, domain=LAB, radios=[radio(0), radio(1)]),
            envelope("rrm-client-assoc", mac, domain=LAB, ssid="n" * BIG_ANSWER, **client)))
        rounds = 2 * QUESTIONS_S
        big_ones = 2 * self.held_by_connection(bare) // BIG_ANSWER // rounds + 1
        try:
            for _ in range(rounds):
                await asyncio.wait_for(bare.write(60 * small + big_ones * big), 10)
                await asyncio.sleep(0.5)
        finally:
            bare.writer.transport.abort()

    @staticmethod
    def held_by_connection(bare):
        """The bytes at most: what the kernel lets the sender's buffer grow to, and the receiver's."""
        with open("/proc/sys/net/ipv4/tcp_wmem", encoding="ascii") as file:
            sent = int(file.read().split()[2])
        return sent + bare.writer.get_extra_info("socket").getsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF)

    # The shift.

    async def all_return(self, is_restart):
        """The seconds that it took from the opening of the port."""
        began = time.monotonic()
        if is_restart:
            await self.await_that("the backup is restored", RETURN_S, self.is_restored)
        await self.await_that("all access points are served", RETURN_S, self.all_served)
        return time.monotonic() - began

    async def life(self, number, may_be_short):
        """From the daemon's start to just before its end; its process."""
        began, misdeeds = time.monotonic(), self.misdeeds.copy()
        self.cut_short.clear()
        listening = await self.await_that("the daemon listens", RESTART_S, self.listens)
        returned = await self.all_return(number > 0)
        before, seen = len(self.reports()[0]), self.cycles()
        await asyncio.to_thread(self.daemon.zalctl, "api", "optimize", OFFICE)
        pid, samples, end = self.pid(), [], time.monotonic() + (0 if may_be_short else LIFE_S)

        async def has_planned():
            return len(self.reports()[0]) > before and self.cycles() > seen

        planned = await self.await_that("a cycle ends", LONGEST_CYCLE_S, has_planned)
        if not may_be_short:
            end = max(end, time.monotonic() + WATCH_S)
        while time.monotonic() < end:
            samples.append(self.sample(pid))
            await asyncio.sleep(SAMPLE_S)
        index, faults = self.reports()
        if faults:
            raise AssertionError(f"torn reports: {faults}")
        if self.pid() != pid:
            raise AssertionError("the daemon ended by itself")
        self.expect_misdeeds(time.monotonic() - began, self.misdeeds - misdeeds)
        life = {"listening_s": round(listening, 1), "return_s": round(returned, 1), "cycle_s": round(planned, 1),
                "reports": len(index), **self.trend(samples)}
        self.lives.append(life)
        print(" ".join(f"{life.get(column, '-'):>11}" for column in COLUMNS), flush=True)
        return pid

    def expect_misdeeds(self, seconds, done):
        missing = [name for name, longest in LONGEST_MISDEED_S.items()
                   if seconds > longest + MISDEED_MARGIN_S and not done[name]]
        if missing:
            self.faults.append(f"in {seconds:.0f} s nobody came to the end of: {', '.join(missing)}; what was cut short, "
                               f"and by what: {self.cut_short}")
        self.expect_no_fault()

    def expect_no_fault(self):
        if self.faults:
            raise AssertionError("\n".join(self.faults))

    async def into_a_cycle(self):
        """Somewhere in it: among its delay, the modes, the scan and the report."""
        await asyncio.to_thread(self.daemon.zalctl, "api", "optimize", OFFICE)
        await asyncio.sleep(self.chance.uniform(0, 50))

    @staticmethod
    def trend(samples):
        """Medians of the first and the last third."""
        third = len(samples) // 3
        if third < 2:
            return {}
        trend = {}
        for what in ("rss_kib", "threads", "descriptors"):
            values = [sample[what] for sample in samples]
            trend[f"{what}_first"] = round(statistics.median(values[:third]))
            trend[f"{what}_last"] = round(statistics.median(values[-third:]))
        if trend["rss_kib_last"] > trend["rss_kib_first"] * (1 + GROWTH_OF_MEMORY):
            raise AssertionError(f"the memory grows: {trend}")
        if trend["threads_last"] > trend["threads_first"]:
            raise AssertionError(f"the threads grow: {trend}")
        if trend["descriptors_last"] > trend["descriptors_first"] + GROWTH_OF_DESCRIPTORS:
            raise AssertionError(f"the descriptors grow: {trend}")
        return trend

    async def shift(self):
        actors = [self.crash, self.crash, self.stall, self.flap, self.flap, self.never_read]
        tasks = [asyncio.create_task(self.again_and_again(act.__name__, lambda act=act, mac=new_mac(): act(mac)))
                 for act in actors] + [asyncio.create_task(self.read_errors())]
        try:
            print(" ".join(f"{column:>11}" for column in COLUMNS), flush=True)
            short = self.seconds < 2 * LIFE_S
            while self.kills == 0 or time.monotonic() - self.began + LIFE_S < self.seconds:
                pid = await self.life(self.kills, short)
                if self.kills % 2 == 1:
                    await self.into_a_cycle()
                if self.pid() != pid:
                    raise AssertionError("the daemon ended by itself")
                self.kills += 1
                os.kill(pid, signal.SIGKILL)
                await asyncio.sleep(0.5)
            await self.await_that("the daemon listens", RESTART_S, self.listens)
            returned = await self.all_return(True)
        finally:
            for task in tasks:
                task.cancel()
            await asyncio.gather(*tasks, return_exceptions=True)
        return {"minutes": round((time.monotonic() - self.began) / 60, 1), "kills": self.kills,
                "longest_return_s": max([life["return_s"] for life in self.lives] + [round(returned, 1)]),
                "reports": len(self.reports()[0]), "misdeeds": dict(sorted(self.misdeeds.items()))}

    def end_simulator(self):
        """It ends well, and each access point has lost its session at each kill and come back, and no more."""
        self.sim.send_signal(signal.SIGTERM)
        status = self.sim.wait(60)
        words = self.simulator_words().splitlines()
        told = [SIMULATOR_TELLS.fullmatch(line) for line in words]
        strange = [line for line, known in zip(words, told, strict=True) if not known]
        if status != 0 or strange:
            raise AssertionError(f"the simulator ended with {status} and said:\n" + "\n".join(strange[:20]))
        came, went = (collections.Counter(known[1] for known in told if (known[2] == "connected") is back)
                      for back in (True, False))
        wanted = len(self.office) * [self.kills]
        if sorted(came.values()) != wanted or sorted(went.values()) != wanted:
            raise AssertionError(f"after {self.kills} kills sessions were lost {dict(went)} and came back {dict(came)}")
        if missed := re.findall(r"^FAILED .*", self.simulator_tables(), re.MULTILINE):
            raise AssertionError("the plan is not as the site expects it:\n" + "\n".join(missed))

    def end(self):
        """The access points, then the daemon: both as they should, and nothing stays behind."""
        pid = self.pid()
        self.end_simulator()
        self.expect_no_fault()
        self.errors.read()
        strange = [line for line in self.errors.lines if not any(kind in line for kind in EXPECTED_ERRORS)]
        if self.errors.lost_some:
            raise AssertionError("the log moved on faster than it was read")
        if strange:
            raise AssertionError("errors in the log:\n" + "\n".join(strange[:20]))
        errors = {kind: sum(kind in line for line in self.errors.lines) for kind in EXPECTED_ERRORS}
        self.daemon.stop(self.kills)
        if os.path.exists(f"/proc/{pid}") or os.path.exists(self.daemon.directory.name):
            raise AssertionError("something is left behind")
        return errors

    def abandon(self):
        """Whatever still runs or lies there; after a good end that is nothing."""
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
        for process in (self.sim, self.daemon.process):
            if process is not None and process.poll() is None:
                process.terminate()
                try:
                    process.wait(60)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
        self.daemon.directory.cleanup()


COLUMNS = ("listening_s", "return_s", "cycle_s", "reports", "rss_kib_first", "rss_kib_last", "threads_first",
           "threads_last", "descriptors_first", "descriptors_last")


def main():
    *programs, minutes = sys.argv[1:]
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    endurance = Endurance(*programs, float(minutes))
    try:
        endurance.start_simulator()
        figures = asyncio.run(endurance.shift())
        figures["errors"] = endurance.end()
    except Exception:
        print(endurance.words(), file=sys.stderr)
        raise
    finally:
        endurance.abandon()
    print(json.dumps({**figures, "lives": endurance.lives}))


if __name__ == "__main__":
    main()
