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
import time
import unittest

SIM, BUILD = (sys.argv.pop(1) for _ in range(2))
SERVES = "\ndemo: the access points of "


class Terminal:
    """A program at a terminal of its own."""

    def __init__(self, arguments):
        self.text = ""
        self.pid, self.screen = pty.fork()
        if self.pid == 0:
            for key in (signal.SIGINT, signal.SIGQUIT):  # deaf in what was started in the background
                signal.signal(key, signal.SIG_DFL)
            os.execvp(arguments[0], arguments)

    def await_text(self, wanted, seconds=240):
        """Until it has printed what the pattern matches, which may span lines."""
        deadline = time.monotonic() + seconds
        while not re.search(wanted, self.text):
            if time.monotonic() > deadline or not self._read():
                raise AssertionError(f"no {wanted!r} in\n{self.text}")

    def press(self, keys):
        os.write(self.screen, keys)

    def await_end(self):
        """The exit status, once everything was printed."""
        while self._read():
            pass
        self.close()
        return self.await_exit()

    def close(self):
        os.close(self.screen)
        self.screen = None

    def await_exit(self):
        pid, self.pid = self.pid, None
        return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])

    def abandon(self):
        """Whatever a test left."""
        if self.screen is not None:
            self.close()
        if self.pid is not None:
            self.await_exit()

    def _read(self):
        if not select.select([self.screen], [], [], 120)[0]:
            raise AssertionError("silent for two minutes after\n" + self.text)
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

    def open(self, *arguments):
        terminal = Terminal(self.command(*arguments))
        self.addCleanup(terminal.abandon)
        return terminal

    def start(self, *arguments):
        terminal = self.open(*arguments)
        terminal.await_text(SERVES)
        return terminal

    def expect_clean_end(self, terminal, status):
        self.assertEqual(terminal.await_end(), status, terminal.text)
        pid = re.search(r"zal_rrm started, pid (\d+)\n", terminal.text).group(1)
        self.assertIn("controller | zal_rrm was ordered to end\n", terminal.text)
        self.assertIn(f"controller | zal_rrm, pid {pid}, ended with status 0\n", terminal.text)
        # As a word: the directory's name is random letters.
        self.assertNotRegex(terminal.text, r"(?i)\bkill(ed)?\b")
        self.assertFalse(os.path.exists(f"/proc/{pid}"))
        self.assertFalse(os.path.exists(self.path(".zal", "demo", "bus.sock")))
