"""The demonstration as a person meets it: at a terminal, with wrong arguments, twice at once, and ended by Ctrl-C."""

import fcntl
import json
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
READY = "controller | zal_rrm is ready and was ordered to run"


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


class DemoTest(unittest.TestCase):
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
        terminal.await_text(READY)
        return terminal

    def expect_clean_end(self, terminal, status):
        self.assertEqual(terminal.await_end(), status, terminal.text)
        pid = re.search(r"zal_rrm started, pid (\d+)\n", terminal.text).group(1)
        self.assertIn("controller | zal_rrm was ordered to end\n", terminal.text)
        self.assertIn(f"controller | zal_rrm, pid {pid}, ended with status 0\n", terminal.text)
        self.assertNotIn("kill", terminal.text)
        self.assertFalse(os.path.exists(f"/proc/{pid}"))
        self.assertFalse(os.path.exists(self.path(".zal", "demo", "bus.sock")))

    def test_wrong_arguments_are_told_and_nothing_is_made(self):
        for arguments, complaint in (
                (["--twice"], "demo: unknown option '--twice'\n"),
                (["a.json", "b.json"], "demo: two sites, 'a.json' and 'b.json'\n"),
                (["--build"], "demo: --build wants a directory\n"),
                (["--build", "sim"], "demo: no controller/zal_controller in sim\n"),
                (["no.json"], "demo: cannot read no.json; a site needs no.json and no-setup.json\n"),
                (["sim/sites/office-setup.json"],
                 "demo: cannot read sim/sites/office-setup-setup.json; a site needs sim/sites/office-setup.json and "
                 "sim/sites/office-setup-setup.json\n")):
            run = self.run_at_once(*arguments)
            self.assertEqual((run.returncode, run.stdout), (2, ""))
            self.assertTrue(run.stderr.startswith(complaint + "usage: ./run demo "), run.stderr)
        self.assertFalse(os.path.exists(self.path(".zal")))

    def test_help_is_printed(self):
        run = self.run_at_once("--help")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertTrue(run.stdout.startswith("usage: ./run demo [--once] "))

    def test_interrupted_it_stops_everything_and_can_start_again(self):
        for _ in range(2):
            terminal = self.start()
            terminal.await_text("office: 4 about to optimise\n")
            self.assertNotIn("connecting again", terminal.text)
            terminal.press(b"\x03")
            self.expect_clean_end(terminal, 0)
            self.assertIn("demo: stopping\n", terminal.text)

    def test_interrupted_before_its_plan_once_has_failed(self):
        terminal = self.start("--once")
        terminal.press(b"\x03")
        self.expect_clean_end(terminal, 130)
        self.assertNotIn("floor plans are in", terminal.text)

    def test_once_ends_with_the_report_of_its_plan(self):
        terminal = Terminal(self.command("--once"))
        self.expect_clean_end(terminal, 0)
        report = terminal.text.partition("demo: the report that zal_rrm wrote for the domain office at ")[2]
        lines = report.splitlines()
        self.assertRegex(lines[0], r"^20\d\d-\d\d-\d\d \d\d:\d\d:\d\d UTC$")
        self.assertEqual(lines[1], "  access point       radio  channel      power dBm  EIRP dBm   MHz")
        with open(self.path(".zal", "demo", "plan", "plan.json"), encoding="utf-8") as file:
            plan = json.load(file)
        told = [[int(number) for number in re.findall(r"-?\d+", line[19:])] for line in lines[2:38]]
        self.assertEqual([(row[0], row[1], row[2], row[3], row[4], row[7]) for row in told],
                         [(radio["id"], radio["before"]["channel"], radio["after"]["channel"], radio["before"]["power"],
                           radio["after"]["power"], radio["before"]["bandwidth"])
                          for ap in plan["access_points"] for radio in ap["radios"]])
        self.assertTrue(lines[38].startswith("demo: plan and floor plans are in "), lines[38])

    def test_a_second_one_is_refused_and_the_first_lives_on(self):
        first = self.start()
        state = self.path(".zal", "demo")
        second = self.run_at_once()
        self.assertEqual((second.returncode, second.stdout, second.stderr),
                         (1, "", f"demo: one runs in {state} already; end that one first\n"))
        status = subprocess.run([os.path.join(BUILD, "controller", "zalctl"), "--state", state, "status"],
                                capture_output=True, text=True, timeout=60, check=False)
        self.assertRegex(status.stdout, r"^zal_rrm +running\n")
        first.press(b"\x03")
        self.expect_clean_end(first, 0)

    def test_a_controller_of_somebody_else_keeps_its_directory(self):
        state = self.path(".zal", "demo")
        os.makedirs(state)
        with open(os.path.join(state, "lock"), "w", encoding="utf-8") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            run = self.run_at_once()
        self.assertEqual((run.returncode, run.stderr), (1, f"demo: one runs in {state} already; end that one first\n"))
        self.assertTrue(os.path.exists(os.path.join(state, "lock")))

    def test_a_controller_that_is_stopped_ends_it(self):
        for once, status in (((), 0), (("--once",), 1)):
            terminal = self.start(*once)
            subprocess.run([os.path.join(BUILD, "controller", "zalctl"), "--state", self.path(".zal", "demo"), "stop"],
                           stdout=subprocess.DEVNULL, timeout=60, check=True)
            self.expect_clean_end(terminal, status)
            self.assertIn("demo: the controller ended; see ", terminal.text)


if __name__ == "__main__":
    unittest.main(verbosity=2)
