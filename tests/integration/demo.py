"""The demonstration as tests run it: a copy of its own, at a terminal, its programs from a build."""

import os
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

SIM, BUILD = (sys.argv.pop(1) for _ in range(2))
SERVES = "\ndemo: the access points of "  # and by then has its port: one that finds it taken is ended again


class Terminal:
    """A program at a terminal of its own."""

    def __init__(self, arguments):
        self.text = ""
        self.pid, self.screen = pty.fork()
        if self.pid == 0:
            for key in (signal.SIGINT, signal.SIGQUIT):  # deaf in what was started in the background
                signal.signal(key, signal.SIG_DFL)
            os.execvp(arguments[0], arguments)

    def await_text(self, wanted):
        while wanted not in self.text and self._read():
            pass
        if wanted not in self.text:
            raise AssertionError(f"no {wanted!r} in\n{self.text}")

    def press(self, keys):
        os.write(self.screen, keys)

    def await_end(self):
        """The exit status, once everything was printed."""
        while self._read():
            pass
        os.close(self.screen)
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def _read(self):
        if not select.select([self.screen], [], [], 60)[0]:
            raise AssertionError("silent for a minute after\n" + self.text)
        try:
            data = os.read(self.screen, 65536)
        except OSError:  # the last process has left the terminal
            data = b""
        self.text += data.decode(errors="replace").replace("\r\n", "\n")
        return bool(data)


class DemoCase(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory(prefix="zal-demo-")
        self.addCleanup(self.directory.cleanup)
        shutil.copytree(SIM, self.path("sim"))

    def path(self, *names):
        return os.path.join(self.directory.name, *names)

    def command(self, *arguments):
        return [self.path("sim", "demo.sh"), "--build", BUILD, *arguments]

    def run_at_once(self, *arguments):
        return subprocess.run(self.command(*arguments), capture_output=True, text=True, timeout=60, check=False)

    def start(self, *arguments):
        terminal = Terminal(self.command(*arguments))
        terminal.await_text(SERVES)
        return terminal

    def expect_clean_end(self, terminal, status):
        self.assertEqual(terminal.await_end(), status, terminal.text)
        pids = re.findall(r"zal_rrm started, pid (\d+)\n", terminal.text)
        self.assertNotEqual(pids, [])
        self.assertEqual(terminal.text.count("controller | zal_rrm was ordered to end\n"), len(pids))
        for pid in pids:
            self.assertIn(f"controller | zal_rrm, pid {pid}, ended with status 0\n", terminal.text)
            self.assertFalse(os.path.exists(f"/proc/{pid}"))
        self.assertNotIn("kill", terminal.text)
        self.assertFalse(os.path.exists(self.path(".zal", "demo", "bus.sock")))
