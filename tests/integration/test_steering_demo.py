"""The scene of steering: a meeting room fills under the real daemon, its clients spread, and somebody walks by."""

import json
import os
import re
import unittest

from demo import DemoCase

ROOM, BAND = "Meeting room", 5


class SteeringDemoTest(DemoCase):
    def figures(self):
        with open(self.path(".zal", "demo", "steering", "steering.json"), encoding="utf-8") as file:
            return json.load(file)

    def test_once_it_shows_the_load_spread_and_the_walker_handed_over(self):
        terminal = self.open("--scene", "steering", "--once")
        self.expect_clean_end(terminal, 0)
        self.assertNotIn("not as expected", terminal.text)
        figures = self.figures()
        self.assertEqual([check["passed"] for check in figures["checks"]], [True] * 6)
        self.assertGreaterEqual(figures["seconds"]["now"], 165)
        self.expect_spread(figures)
        self.expect_moves(figures)
        self.expect_table(terminal.text, figures)

    def expect_spread(self, figures):
        loads = {radio["ap"]: radio for radio in figures["radios"]
                 if radio["room"] == ROOM and radio["band"] == BAND}
        self.assertEqual(set(loads), {"Hall-1", "Hall-2", "Hall-3", "Hall-4"})
        before, now = ([load[moment] for load in loads.values()] for moment in ("before", "now"))
        self.assertEqual(loads["Hall-2"]["before"], max(before))
        self.assertGreaterEqual(max(before) - max(now), 6)
        self.assertGreaterEqual((max(before) - min(before)) - (max(now) - min(now)), 8)
        self.assertGreater(sum(now), sum(before))  # although more people have come
        served = sum(radio["now"] for radio in figures["radios"])
        self.assertGreaterEqual(served, 41)  # of 42: one may be between two radios

    def expect_moves(self, figures):
        ordered = figures["ordered"]
        for way in ("transition", "sent_away"):  # both balancers had their part
            self.assertGreater(ordered[way]["succeeded"], 0, ordered)
        self.assertEqual(ordered["succeeded"],
                         ordered["transition"]["succeeded"] + ordered["sent_away"]["succeeded"])
        self.assertGreaterEqual(ordered["succeeded"], 0.8 * ordered["given"])
        self.assertLessEqual(ordered["undone_within_a_minute"], 0.2 * ordered["succeeded"])
        (walker,) = figures["walkers"]
        self.assertGreaterEqual(walker["fast"], 3)
        self.assertEqual(walker["full"], 0)
        held = figures["held"]
        self.assertEqual((held["timed_out"], held["session_lost"]), (0, 0))
        self.assertGreaterEqual(held["acknowledged"], 36)  # everybody in the room has been let through
        self.assertGreater(held["sent_away"], 0)

    def expect_table(self, text, figures):
        table = text.rpartition("\nmeeting: the clients after ")[2]
        rows = re.findall(r"^(\S+) +\S.*? ([256])(?:\.4)? GHz +(\d+) +(\d+) +(\d+)$", table, re.MULTILINE)
        self.assertEqual([(ap, int(band), int(before), int(highest), int(now)) for ap, band, before, highest, now in rows],
                         [(radio["ap"], radio["band"], radio["before"], radio["highest"], radio["now"])
                          for radio in figures["radios"] if radio["highest"] > 0])
        for check in figures["checks"]:
            self.assertIn(f"ok      {check['name']}: {check['measured']}\n", table)

    def test_interrupted_it_shows_how_far_it_came_and_stops_everything(self):
        terminal = self.open("--scene", "steering")
        terminal.await_text("\nmeeting: the clients after 3\\d s\n")
        terminal.await_text("turned away ")
        terminal.press(b"\x03")
        self.expect_clean_end(terminal, 0)
        self.assertEqual(len(re.findall(r"\nmeeting: the clients after 3\d s\n", terminal.text)), 2, terminal.text)
        self.expect_no_judgement(terminal)

    def test_interrupted_before_its_end_once_has_failed(self):
        terminal = self.open("--scene", "steering", "--once")
        terminal.await_text("meeting: 11 APs, 0 foreign APs, 42 clients; domain meeting at ")
        terminal.press(b"\x03")
        self.expect_clean_end(terminal, 130)
        self.assertIn("interrupted before the scene was over\n", terminal.text)
        self.expect_no_judgement(terminal)

    def expect_no_judgement(self, terminal):
        self.assertNotIn("ok      ", terminal.text)
        self.assertNotIn("FAILED  ", terminal.text)
        self.assertFalse(os.path.exists(self.path(".zal", "demo", "steering", "steering.json")))


if __name__ == "__main__":
    unittest.main(verbosity=2)
