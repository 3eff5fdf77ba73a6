"""The demonstration as a person meets it: at a terminal, with wrong arguments, twice at once, and ended by Ctrl-C."""

import fcntl
import json
import os
import re
import signal
import subprocess
import sys
import unittest

from demo import BUILD, DemoCase

# Has the port of its setup taken, and holds it as long as the controller lives that it becomes.
LATECOMER = """
import contextlib, json, os, socket, sys
real, taken, *arguments = sys.argv[1:]
with open(arguments[arguments.index("--setup") + 1]) as setup:
    port = json.load(setup)["global"]["listen_port"]
with contextlib.suppress(OSError):  # another demo was quicker
    holder = socket.create_server(("", port))
    holder.set_inheritable(True)
with open(taken, "w") as file:
    file.write(str(port))
os.execv(real, [real, *arguments])
"""
CRASHING = """
import os, signal
os.kill(os.getpid(), signal.SIGKILL)
"""


class DemoTest(DemoCase):
    def test_wrong_arguments_are_told_and_nothing_is_made(self):
        for name in ("deaf.json", "deaf-setup.json"):
            with open(self.path(name), "w", encoding="utf-8") as file:
                file.write("{}")
        for arguments, complaint in (
                (["--twice"], "demo: unknown option '--twice'\n"),
                (["a.json", "b.json"], "demo: two sites, 'a.json' and 'b.json'\n"),
                (["--build"], "demo: --build wants a directory\n"),
                (["--scene"], "demo: --scene wants a name\n"),
                (["--scene", "dance"], "demo: no scene 'dance'; there are plan and steering\n"),
                (["--build", "sim"], "demo: no controller/zal_controller in sim\n"),
                (["no.json"], "demo: cannot read no.json; a site needs no.json and no-setup.json\n"),
                (["sim/sites/office-setup.json"],
                 "demo: cannot read sim/sites/office-setup-setup.json; a site needs sim/sites/office-setup.json and "
                 "sim/sites/office-setup-setup.json\n"),
                ([self.path("deaf.json")], f"demo: no listen_port in {self.path('deaf-setup.json')}; the demo puts a free one "
                                           "in its place\n")):
            run = self.run_at_once(*arguments)
            self.assertEqual((run.returncode, run.stdout), (2, ""))
            self.assertTrue(run.stderr.startswith(complaint + "usage: ./run demo "), run.stderr)
        self.assertFalse(os.path.exists(self.path(".zal")))

    def test_help_is_printed(self):
        run = self.run_at_once("--help")
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertTrue(run.stdout.startswith("usage: ./run demo [--scene NAME] [--once] "))

    def test_interrupted_it_stops_everything_and_can_start_again(self):
        for _ in range(2):
            terminal = self.start()
            terminal.await_text("office: 4 about to optimise\n")
            self.assertNotIn("connecting again", terminal.text)
            terminal.press(b"\x03")
            self.expect_clean_end(terminal, 0)
            self.assertIn("demo: stopping\n", terminal.text)

    def test_interrupted_before_its_plan_once_has_failed(self):
        for _ in range(10):  # each in another moment of its beginning
            terminal = self.start("--once")
            terminal.press(b"\x03")
            self.expect_clean_end(terminal, 130)
            self.assertNotIn("floor plans are in", terminal.text)

    def test_once_ends_with_the_report_of_its_plan(self):
        terminal = self.open("--once")
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

    def test_a_port_that_is_taken_before_the_daemon_has_it_is_left_to_its_taker(self):
        self.write_build(LATECOMER)
        terminal = self.open("--build", self.path("build"))
        terminal.await_text("office: 4 about to optimise\n")
        ports = [int(port) for port in re.findall(r"^demo: port (\d+) is taken, trying the next$", terminal.text, re.MULTILINE)]
        self.assertEqual(ports, list(range(8099, ports[-1] + 1)))
        with open(self.path("taken"), encoding="utf-8") as file:
            self.assertIn(int(file.read()), ports)
        self.assertIn(f"domain office at ws://127.0.0.1:{ports[-1] + 1}/apb/rrm\n", terminal.text)
        self.assertNotIn("connecting again", terminal.text)
        terminal.press(b"\x03")
        self.expect_clean_end(terminal, 0)

    def test_a_daemon_that_does_not_listen_is_told(self):
        with open(self.path("sim", "sites", "office-setup.json"), encoding="utf-8") as file:
            setup = json.load(file)
        setup["global"]["enabled"] = 0
        with open(self.path("sim", "sites", "office-setup.json"), "w", encoding="utf-8") as file:
            json.dump(setup, file)
        terminal = self.open()
        self.expect_clean_end(terminal, 1)
        self.assertIn("demo: zal_rrm does not listen; see ", terminal.text)
        self.assertNotIn("access points", terminal.text)

    def test_a_controller_that_crashes_at_once_ends_it(self):
        self.write_build(CRASHING)
        terminal = self.open("--build", self.path("build"))
        self.assertNotEqual(terminal.await_end(), 0)
        self.assertIn("demo: the controller ended; see ", terminal.text)
        self.assertNotIn("unbound", terminal.text)
        self.expect_nothing_left()

    def test_interrupted_before_it_serves_it_stops_everything(self):
        terminal = self.open()
        terminal.await_text("demo: starting zal_rrm under zal_controller")
        terminal.press(b"\x03")
        self.assertEqual(terminal.await_end(), 0)
        self.assertIn("demo: stopping\n", terminal.text)
        self.assertNotIn("cleanly", terminal.text)
        self.expect_nothing_left()

    def test_terminated_it_stops_everything(self):
        terminal = self.start()
        os.kill(terminal.pid, signal.SIGTERM)
        self.expect_clean_end(terminal, 0)
        self.expect_nothing_left()

    def test_left_without_its_terminal_it_stops_everything(self):
        terminal = self.start()
        terminal.close()
        self.assertEqual(terminal.await_exit(), 0)
        self.expect_nothing_left()

    def expect_nothing_left(self):
        """Each of its programs holds the demo's lock."""
        with open(self.path(".zal", "demo.lock"), "rb") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)

    def write_build(self, controller):
        """A build whose controller is this script; it becomes the real one, whose path is its first argument."""
        real = os.path.join(BUILD, "controller", "zal_controller")
        for folder, program in (("controller", "zalctl"), ("daemon", "zal_rrm"), ("sim", "zal_apsim")):
            os.makedirs(self.path("build", folder))
            os.symlink(os.path.join(BUILD, folder, program), self.path("build", folder, program))
        script = self.path("build", "controller", "zal_controller")
        with open(script, "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\nexec {sys.executable} -c '{controller}' {real} {self.path('taken')} \"$@\"\n")
        os.chmod(script, 0o755)


if __name__ == "__main__":
    unittest.main(verbosity=2)
