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
SLACK_S = 3  # what a frame may take between the processes on a machine that other tests keep busy


class Watcher:
    """An open session that notes at which ages the server pings it and ends it. An age is the difference of whole seconds on
    the clock that both processes share, as the server counts it; from here it is known to lie in a range."""

    def __init__(self, bare, earliest, latest):
        self.bare = bare
        self.heard = (int(earliest), int(latest))  # the second in which the server last heard from it lies in here
        self.pinged_at = []
        self.ended_at = None

    @classmethod
    async def open(cls, port):
        earliest = time.monotonic()
        bare = await BareSocket.upgraded(port)
        return cls(bare, earliest, time.monotonic())

    def age(self):
        now = time.monotonic()
        return range(int(now - SLACK_S) - self.heard[1], int(now) - self.heard[0] + 1)

    async def watch(self, answers, seconds):
        """Until that many seconds are over, or the server ends the session; answers every ping or none."""
        try:
            async with asyncio.timeout(seconds):
                while await self.take_frame(answers):
                    pass
        except TimeoutError:
            pass
        except asyncio.IncompleteReadError:
            self.ended_at = self.age()

    async def take_frame(self, answers):
        first, payload = await self.bare.read_frame(seconds=None)
        if (first, payload) == (CLOSE, b"\x03\xe8done"):
            self.ended_at = self.age()
            return False
        if (first, payload) != (PING, b"lws_ping"):
            raise AssertionError((first, payload))
        self.pinged_at.append(self.age())
        if answers:
            before = time.monotonic()
            await self.bare.write(frame(payload, PONG))
            self.heard = (int(before), int(time.monotonic() + SLACK_S))
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

        for watcher in silent:
            self.assert_ages(watcher.pinged_at, [30, 40, 50, 60, 70, 80, 90])
            self.assert_ages([watcher.ended_at], [91])
        for watcher in alive:
            self.assert_ages(watcher.pinged_at, [30, 30, 30])
            self.assertIsNone(watcher.ended_at)
            await watcher.bare.close()
        self.assertLess(share, 0.10)

    def assert_ages(self, measured, expected):
        self.assertEqual(len(measured), len(expected), measured)
        for ages, age in zip(measured, expected):
            self.assertIn(age, ages)


if __name__ == "__main__":
    unittest.main(verbosity=2)
