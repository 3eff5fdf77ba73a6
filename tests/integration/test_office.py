"""The demonstration as a test: the real daemon plans the simulated office, and the plan is as good as it should be."""

import json
import os
import subprocess
import sys
import unittest

from daemon import Daemon

CONTROLLER, DAEMON, APSIM, SITES = (sys.argv.pop(1) for _ in range(4))
SITE = os.path.join(SITES, "office.json")


class OfficeTest(unittest.TestCase):
    def setUp(self):
        with open(os.path.join(SITES, "office-setup.json"), encoding="utf-8") as file:
            self.daemon = Daemon(CONTROLLER, DAEMON, json.load(file))

    def tearDown(self):
        self.daemon.stop()

    def test_one_cycle_plans_the_office(self):
        out = os.path.join(self.daemon.directory.name, "plan")
        run = subprocess.run([APSIM, "--site", SITE, "--server", f"ws://127.0.0.1:{self.daemon.port}/apb/rrm", "--once",
                              "--timeout", "200", "--out", out], capture_output=True, text=True, timeout=300, check=False)
        self.assertEqual((run.returncode, run.stderr), (0, ""), run.stdout)
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


if __name__ == "__main__":
    unittest.main(verbosity=2)
