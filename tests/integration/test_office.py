"""The demonstration as a test: the real daemon plans the simulated office, and the plan is as good as it should be."""

import json
import os
import subprocess
import sys
import threading
import unittest

from daemon import Daemon

CONTROLLER, DAEMON, APSIM, SITES = (sys.argv.pop(1) for _ in range(4))
SITE = os.path.join(SITES, "office.json")


class OfficeTest(unittest.TestCase):
    def setUp(self):
        with open(os.path.join(SITES, "office-setup.json"), encoding="utf-8") as file:
            self.setup = json.load(file)
        self.daemon = Daemon(CONTROLLER, DAEMON, self.setup)

    def tearDown(self):
        self.daemon.stop()

    def test_one_cycle_plans_the_office(self):
        out = os.path.join(self.daemon.directory.name, "plan")
        run = subprocess.run([APSIM, "--site", SITE, "--server", f"ws://127.0.0.1:{self.daemon.port}/apb/rrm", "--once",
                              "--timeout", "200", "--out", out], capture_output=True, text=True, timeout=300, check=False)
        if run.stderr:
            self.fail(run.stderr + run.stdout + self.story_of_subscriptions())
        self.assertEqual(run.returncode, 0, run.stdout)
        with open(os.path.join(out, "plan.json"), encoding="utf-8") as file:
            plan = json.load(file)
        self.assertEqual([check["passed"] for check in plan["checks"]], [True, True, True])
        radios = [radio for ap in plan["access_points"] for radio in ap["radios"]]
        self.assertEqual(len(radios), 36)
        self.assertEqual({(radio["band"], radio["before"]["channel"]) for radio in radios}, {(2, 1), (5, 36), (6, 165)})
        for band, blocks in ((2, 3), (5, 4), (6, 4)):  # every block that there is is used
            used = {(radio["after"]["channel"] - 36) // (8 if band == 5 else 1) for radio in radios
                    if radio["band"] == band}
            self.assertEqual(len(used), blocks, used)
        alone = next(ap for ap in plan["access_points"] if ap["name"] == "AP-12")  # behind concrete, at full power
        self.assertEqual([radio["after"]["power"] for radio in alone["radios"]], [20, 23, 23])
        self.assert_reported(plan)

    def story_of_subscriptions(self):
        with open(os.path.join(self.daemon.state, "zal_rrm.log"), encoding="utf-8", errors="replace") as file:
            return "".join(line[:140].rstrip() + "\n" for line in file if "subscribe-re" in line)

    def assert_reported(self, plan):
        """The daemon's own record says what the access points say."""
        reports = os.path.join(self.daemon.directory.name, "state", "data", "zal", "morvane-reports")
        lines = {}
        for name in ("report_idx_office.txt", "report_cfg_office.txt", "report_office.txt"):
            with open(os.path.join(reports, name), encoding="utf-8") as file:
                lines[name] = [line.rstrip("\n").split(",") for line in file]
        [index] = lines["report_idx_office.txt"]
        self.assertEqual([line[:3] for line in lines["report_cfg_office.txt"]], [index])
        self.assertEqual({tuple(line[:3]) for line in lines["report_office.txt"]}, {tuple(index)})
        told = {(line[3], int(line[9])): [int(line[field]) for field in (7, 8, 5, 6)] for line in lines["report_office.txt"]}
        self.assertEqual(told, {(ap["mac"].upper(), radio["id"]): [radio[when][what] for what in ("channel", "power")
                                                                  for when in ("before", "after")]
                                for ap in plan["access_points"] for radio in ap["radios"]})

    def test_a_changed_setup_is_planned_again(self):
        directory = self.daemon.directory.name
        changed = os.path.join(directory, "changed.json")
        pattern = {**self.setup["patterns"][0], "ap_rssi_threshold_5g": -60}
        with open(changed, "w", encoding="utf-8") as file:
            json.dump({**self.setup, "patterns": [pattern],
                       "global": {**self.setup["global"], "listen_port": self.daemon.port}}, file)
        out = os.path.join(directory, "plan")
        with subprocess.Popen([APSIM, "--site", SITE, "--server", f"ws://127.0.0.1:{self.daemon.port}/apb/rrm", "--out",
                               out], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) as simulation:
            try:
                first = self.await_plan(simulation, out, "plan.json")
                subprocess.run([os.path.join(os.path.dirname(CONTROLLER), "zalctl"), "--state",
                                os.path.join(directory, "state"), "setup", changed], stdout=subprocess.DEVNULL, check=True)
                second = self.await_plan(simulation, out, "plan-2.json")
            finally:
                simulation.terminate()
                simulation.stdout.read()
            self.assertEqual(simulation.wait(60), 0)
        self.assertEqual(second["cycle"], 2)
        for was, now in zip(first["access_points"], second["access_points"]):
            self.assertEqual([radio["before"] for radio in now["radios"]], [radio["after"] for radio in was["radios"]])
        quieter = [sum(ap["radios"][1]["after"]["power"] for ap in plan["access_points"]) for plan in (first, second)]
        self.assertLess(quieter[1], quieter[0])

    def await_plan(self, simulation, out, name):
        watchdog = threading.Timer(200, simulation.kill)
        watchdog.start()
        try:
            for line in simulation.stdout:
                if line.startswith("written: ") and name + "," in line:
                    with open(os.path.join(out, name), encoding="utf-8") as file:
                        return json.load(file)
        finally:
            watchdog.cancel()
        self.fail(f"the simulation ended without {name}")


if __name__ == "__main__":
    unittest.main(verbosity=2)
