"""A thousand sessions that say nothing: each is pinged when its time has come, never early and at most a little late, one
that answers a ping is left in peace, one that does not is dropped after 90 seconds, and meanwhile the daemon has next to
nothing to do."""

import asyncio
import os
import re
import resource
import sys
import time
import unittest

from daemon import QUIET, Daemon
from wire import BareSocket, frame

CONTROLLER, DAEMON = sys.argv.pop(1), sys.argv.pop(1)

SESSIONS = 1000
PING, PONG, CLOSE = 0x89, 0x8A, 0x88
SLACK_S = 8  # what a frame may take on a machine that other tests keep busy; the next ping comes after ten


class Moment:
    """When a frame came, and between which moments the server had last heard from the session. The server counts ages in
    whole seconds of the clock that both processes share."""

    def __init__(self, heard):
        self.came = time.monotonic()
        self.heard = heard

    def is_early(self, age):
        return self.came < int(self.heard[0]) + age

    def is_late(self, age):
        return self.came > int(self.heard[1]) + age + 1 + SLACK_S

    def is_on_the_second(self, age):
        return int(self.came) <= int(self.heard[1]) + age


class Watcher:
    """An open session that notes when the server pings it and ends it."""

    def __init__(self, bare, heard):
        self.bare = bare
        self.heard = heard
        self.pings = []
        self.ends = []

    @classmethod
    async def open(cls, port):
        earliest = time.monotonic()
        bare = await BareSocket.upgraded(port)
        return cls(bare, (earliest, time.monotonic()))

    async def watch(self, answers, seconds):
        """Until that many seconds are over, or the server ends the session; answers every ping or none."""
        try:
            async with asyncio.timeout(seconds):
                while await self.take_frame(answers):
                    pass
        except TimeoutError:
            pass

    async def take_frame(self, answers):
        first, payload = await self.bare.read_frame(seconds=None)
        if (first, payload) == (CLOSE, b"\x03\xe8done"):
            self.ends.append(Moment(self.heard))
            return False
        if (first, payload) != (PING, b"lws_ping"):
            raise AssertionError((first, payload))
        self.pings.append(Moment(self.heard))
        if answers:
            before = time.monotonic()
            await self.bare.write(frame(payload, PONG))
            self.heard = (before, time.monotonic() + SLACK_S)
        return True


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class IdleTest(unittest.IsolatedAsyncioTestCase):
    @classmethod
    def setUpClass(cls):
        _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, SESSIONS + 512), hard))
        cls.daemon = Daemon(CONTROLLER, DAEMON, QUIET)

    @classmethod
    def tearDownClass(cls):
        cls.daemon.stop()

    async def test_silent_sessions_are_pinged_and_dropped_in_the_end(self):
        watchers = [await Watcher.open(self.daemon.port) for _ in range(SESSIONS)]
        pid = int(re.search(r"^zal_rrm started, pid (\d+)$", self.daemon.output(), re.MULTILINE)[1])
        silent, alive = watchers[::2], watchers[1::2]
        burnt, began = cpu_seconds(pid), time.monotonic()
        await asyncio.gather(*(watcher.watch(False, 100) for watcher in silent),
                             *(watcher.watch(True, 100) for watcher in alive))
        share = (cpu_seconds(pid) - burnt) / (time.monotonic() - began)
        print(f"with {SESSIONS} silent sessions the daemon took {100 * share:.1f} % of a CPU")

        punctual = [self.assert_ages(watcher.pings + watcher.ends, [30, 40, 50, 60, 70, 80, 90, 91]) for watcher in silent]
        print(f"{100 * sum(punctual) / (8 * len(silent)):.1f} % of the pings and ends came on the second")
        for watcher in alive:
            self.assert_ages(watcher.pings, [30, 30, 30])
            self.assertEqual(watcher.ends, [])
            await watcher.bare.close()
        self.assertLess(share, 0.10)

    def assert_ages(self, moments, ages):
        """Never early, and late only by what the machine has to answer for; returns how many came on the second."""
        self.assertEqual(len(moments), len(ages))
        for moment, age in zip(moments, ages):
            self.assertFalse(moment.is_early(age), (age, moment.came, moment.heard))
            self.assertFalse(moment.is_late(age), (age, moment.came, moment.heard))
        return sum(moment.is_on_the_second(age) for moment, age in zip(moments, ages))


if __name__ == "__main__":
    unittest.main(verbosity=2)
