"""What the demonstration's daemon answers to the controller's questions is what stands on its site."""

import datetime
import json
import os
import re
import shutil
import subprocess
import time
import unittest

from demo import BUILD, SIM, DemoCase

README = os.path.join(os.path.dirname(SIM), "README.md")
BANDS = {2: "2g", 5: "5g", 6: "6g"}
POOL = 16  # addresses of a radio


def moved(mac, offset):
    """The address so much further in the same pool."""
    value = int(mac.replace(":", ""), 16) + offset
    return ":".join(f"{value:012x}"[i:i + 2] for i in range(0, 12, 2))


class AnswersTest(DemoCase):
    def ask(self, *arguments):
        """What zalctl answers with --json, parsed."""
        run = self.run_zalctl("--json", *arguments)
        self.assertEqual((run.returncode, run.stderr), (0, ""), arguments)
        return json.loads(run.stdout)

    def refusal(self, *arguments):
        run = self.run_zalctl(*arguments)
        self.assertEqual((run.returncode, run.stdout), (1, ""), arguments)
        return run.stderr

    def run_zalctl(self, *arguments):
        return subprocess.run([os.path.join(BUILD, "controller", "zalctl"), "--state", self.path(".zal", "demo"), *arguments],
                              capture_output=True, text=True, timeout=60, check=False)

    def read(self, *names):
        with open(self.path(*names), encoding="utf-8") as file:
            return json.load(file)

    def load_site(self, name):
        """The access points by address, each radio with all that the site says of it and nothing else decides."""
        site = self.read("sim", "sites", name)
        self.location = site["domain"]
        self.aps = {ap["mac"]: ap for ap in site["access_points"]}
        for index, (mac, ap) in enumerate(self.aps.items()):
            ap["ip"] = f"127.1.0.{index + 1}"
            ap["radios"] = [{"bandwidth": 20, **radio, "mac": moved(mac, POOL * radio["id"])}
                            for radio in ap.get("radios", site.get("radio_profile"))]

    def radios(self, band=None):
        return [(mac, radio) for mac, ap in self.aps.items() for radio in ap["radios"] if band in (None, radio["band"])]

    # The management's requests

    def expect_common_and_sessions(self):
        self.assertEqual(self.ask("common"), {"array": [
            {"ap-location": self.location, "ap-morvane": len(self.aps), "ap-count": len(self.aps)}]})
        peers = {session["peer"]: session["id"] for session in self.ask("api", "sessions")["websock-sessions"]}
        self.assertEqual(set(peers), {ap["ip"] for ap in self.aps.values()})
        expected = {"array": [{"ap-mac": mac, "ap-ip": ap["ip"], "session-id": peers[ap["ip"]], "ap-board-type": "SIM-AP3",
                               "ap-location": self.location} for mac, ap in sorted(self.aps.items())]}
        for arguments in (("sessions",), ("sessions", "--location", self.location)):
            self.assertEqual(self.ask(*arguments), expected)
        self.assertEqual(self.ask("sessions", "--location", "elsewhere"), {"array": []})

    def expect_stat(self, planned):
        """`planned` gives each radio's channel and power, by the address of its access point and its number."""
        answer = self.ask("stat", self.location)
        self.assertEqual(set(answer), set(BANDS.values()))
        for band, name in BANDS.items():
            rows = {row["ap-mac"]: row for row in answer[name]}
            self.assertEqual(set(rows), set(self.aps))  # the server counts three radios on every access point
            self.assertEqual({mac for mac, row in rows.items() if row["status"] == "Up"},
                             {mac for mac, _ in self.radios(band)})
            for mac, radio in self.radios(band):
                row = rows[mac]
                channel, power = planned[mac, radio["id"]]
                self.assertEqual((row["radio-mac"], row["status"], row["bandwidth"], row["available-channels"]),
                                 (radio["mac"], "Up", radio["bandwidth"], radio["available_channels"]))
                self.assertEqual((row["channel"], row["power"], row["eirp"]),
                                 (channel, power, power + radio["antenna_gain"]))
        clients = sum(row["assoc-clients"] for rows in answer.values() for row in rows)
        self.assertGreater(clients, 20)  # of 40 in the office and 28 in the meeting room; some are on their way

    def expect_ap(self, mac, planned):
        answer = self.ask("ap", mac.upper())
        self.assertEqual((answer["ap-mac"], answer["ap-location"]), (mac, self.location))
        for radio in self.aps[mac]["radios"]:
            row = answer[BANDS[radio["band"]]]
            self.assertEqual((row["channel"], row["power"]), planned[mac, radio["id"]])
            self.assertEqual((row["radio-mac"], row["min-power"], row["max-power"]),
                             (radio["mac"], radio["power_min"], radio["power_max"]))
            self.assertEqual([(vap["vap-mac"], vap["ssid"], vap["80211r"]) for vap in row["ssids"]],
                             [(moved(radio["mac"], vap["id"]), vap["ssid"], "Enable") for vap in radio["vaps"]])
            others = {other["mac"] for ap, other in self.radios() if ap != mac}
            self.assertEqual(set(row["ssids"][0]["fbt-links"]) - others, set())

    def expect_roaming(self):
        answer = self.ask("roaming", self.location)
        self.assertEqual(list(answer), ["2g", "5g", "6g"])
        for band, name in BANDS.items():
            self.assertEqual([(row["ap-mac"], row["vap-mac"], row["ssid"], row["80211r-enable"]) for row in answer[name]],
                             sorted((mac, moved(radio["mac"], vap["id"]), vap["ssid"], 1)
                                    for mac, radio in self.radios(band) for vap in radio["vaps"]))
        mac = next(iter(self.aps))
        of_one = self.ask("roaming", self.location, "--mac", mac, "--band", "5g")
        self.assertEqual(of_one, {"2g": [], "5g": [row for row in answer["5g"] if row["ap-mac"] == mac], "6g": []})
        return answer

    def expect_reports(self, plan):
        """The last plan's, the same by days, and the same by the server's own interface."""
        answer = self.ask("reports", self.location)
        expected = {(ap["mac"], BANDS[radio["band"]]): [radio[when][what] for what in ("channel", "power")
                                                        for when in ("before", "after")]
                    for ap in plan["access_points"] for radio in ap["radios"]}
        self.assertEqual({(row["ap-mac"], band): [row[f"{what}-{when}"] for what in ("channel", "power")
                                                  for when in ("before", "after")]
                          for band, rows in answer.items() for row in rows}, expected)
        for row in (row for rows in answer.values() for row in rows):
            self.assertEqual((row["ip-addr"], row["board-type"], row["location"]),
                             (self.aps[row["ap-mac"]]["ip"], "SIM-AP3", self.location))
        self.assertEqual(self.ask("reports", self.location, "--band", "6g"), {"2g": [], "5g": [], "6g": answer["6g"]})
        self.assertEqual(self.ask("reports", self.location, "--days", "1"), answer)

        today = datetime.datetime.now(datetime.timezone.utc).date()
        day = datetime.timedelta(days=1)
        listed = self.ask("api", "reports", self.location, str(today - day), str(today + day))
        (entry,) = listed["data"]
        self.assertEqual({row["report-time"] for row in answer["2g"]}, {entry["date"]})
        report = self.ask("api", "report", self.location, entry["id"])["report"]
        self.assertEqual({(ap["ap_mac"].lower(), radio["radio_id"]): (radio["before"]["channel"], radio["after"]["channel"])
                          for ap in report["details"] for radio in ap["radio_interfaces"]},
                         {(ap["mac"], radio["id"]): (radio["before"]["channel"], radio["after"]["channel"])
                          for ap in plan["access_points"] for radio in ap["radios"]})

    def expect_sessions_end_and_come_back(self):
        first, second, third = list(self.aps)[:3]
        before = self.session_ids()
        self.assertEqual(self.ask("clear-sessions", first), {})
        self.assertEqual(self.ask("api", "remove-sessions", str(before[second])).get("status"), None)
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            now = self.session_ids()
            if set(now) == set(before) and now[first] != before[first] and now[second] != before[second]:
                break
            time.sleep(0.1)
        else:
            self.fail(f"{before} is now {now}")
        self.assertEqual(now[third], before[third])
        self.assertEqual(self.ask("clear-sessions"), {})
        deadline = time.monotonic() + 60
        while set(self.session_ids()) != set(before) or not min(self.session_ids().values()) > max(now.values()):
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.1)

    def session_ids(self):
        return {row["ap-mac"]: row["session-id"] for row in self.ask("sessions")["array"]}

    def expect_refusals(self):
        for arguments, words in ((("stat", "cellar"), "morvane is not enabled for ap-location 'cellar'"),
                                 (("ap", "02:00:00:00:00:01"), "can`t find given mac '02:00:00:00:00:01' in local info"),
                                 (("roaming", self.location, "--mac", "02:00:00:00:00:01"),
                                  "can`t find given mac '02:00:00:00:00:01' in local info"),
                                 (("optimize", "cellar"), "failure from morvane api"),
                                 (("reports", "cellar"), "failure from morvane api"),
                                 (("clear-sessions", "02:00:00:00:00:01"),
                                  "there is no session for given mac: 02:00:00:00:00:01"),
                                 (("api", "group", "cellar"), "domain not found")):
            self.assertEqual(self.refusal(*arguments), f"zalctl: {words}\n", arguments)

    # The server's own interface

    def expect_groups(self, planned):
        (group,) = self.ask("api", "groups")["domains"]
        self.assertEqual((group["name"], group["ap-count"], group["unanswered-ap-count"], group["deleted-ap-count"]),
                         (self.location, len(self.aps), 0, 0))
        details = self.ask("api", "group", self.location)["details"]
        self.assertEqual({ap["mac"].lower(): (ap["board"], ap["serial"]) for ap in details["aps"]},
                         {mac: ("SIM-AP3", ap["serial"]) for mac, ap in self.aps.items()})
        mac = next(iter(self.aps))
        ap = self.ask("api", "ap", self.location, mac)["active-ap"]
        self.assertEqual(ap["mac"].lower(), mac)
        self.assertEqual([(radio["id"], radio["mac"].lower(), radio["channel"], radio["power"])
                          for radio in ap["radios"]["interfaces"] if radio["status"] == 1],
                         [(radio["id"], radio["mac"], *planned[mac, radio["id"]]) for radio in self.aps[mac]["radios"]])

    # The page that a newcomer reads

    def readme_questions(self):
        """Each of its questions to zalctl that a plan decides, with the lines of its answer."""
        with open(README, encoding="utf-8") as file:
            text = file.read().partition("\n### Ask it\n")[2].partition("\n### ")[0]
        for question, answer in re.findall(r"^    \$ zalctl (.*)\n((?:(?!    \$)(?:    .*)?\n)*)", text, re.MULTILINE):
            if question.split()[0] in ("common", "ap", "roaming", "reports"):
                yield question.split(), [line.strip() for line in answer.splitlines() if line.strip() not in ("", "…")]

    def expect_readme(self):
        questions = list(self.readme_questions())
        self.assertEqual(len(questions), 4)
        for arguments, lines in questions:
            answer = [self.without_time(line.rstrip()) for line in self.run_zalctl(*arguments).stdout.splitlines()]
            self.assertEqual([line for line in map(self.without_time, lines) if line not in answer], [], arguments)

    @staticmethod
    def without_time(line):
        return re.sub(r"^\d{4}-\d\d-\d\d,\d\d:\d\d:\d\d UTC", "", line)

    def test_the_office_is_told_as_it_was_planned(self):
        self.load_site("office.json")
        terminal = self.start()
        terminal.await_text("written: ")
        plan = self.read(".zal", "demo", "plan", "plan.json")
        planned = {(ap["mac"], radio["id"]): (radio["after"]["channel"], radio["after"]["power"])
                   for ap in plan["access_points"] for radio in ap["radios"]}
        self.expect_common_and_sessions()
        self.expect_stat(planned)
        for mac in self.aps:
            self.expect_ap(mac, planned)
        roaming = self.expect_roaming()
        links = len(self.radios()) - 3  # to every radio of every other access point
        self.assertEqual({row["fbt-links"] for rows in roaming.values() for row in rows}, {links})
        self.expect_groups(planned)
        self.expect_reports(plan)
        self.expect_readme()
        self.expect_refusals()
        self.assertEqual(self.ask("optimize", self.location), {})
        self.assertEqual(self.refusal("optimize", self.location), "zalctl: optimization already started\n")
        self.assertEqual(self.ask("api", "optimize", self.location)["status"], "success")
        self.expect_sessions_end_and_come_back()
        terminal.press(b"\x03")
        self.expect_clean_end(terminal, 0)

    def test_the_meeting_room_is_told_as_it_stands(self):
        self.load_site("meeting.json")
        planned = {(mac, radio["id"]): (radio["channel"], radio["power"]) for mac, radio in self.radios()}
        terminal = self.start("--scene", "steering")
        terminal.await_text("\nmeeting: the clients after 3\\d s\n")
        self.expect_common_and_sessions()
        self.expect_stat(planned)
        for mac in self.aps:
            self.expect_ap(mac, planned)
        self.expect_roaming()
        self.expect_groups(planned)
        self.assertEqual(self.ask("reports", self.location), {"2g": [], "5g": [], "6g": []})  # nothing was planned
        self.expect_refusals()
        terminal.press(b"\x03")
        self.expect_clean_end(terminal, 0)

    def write_site(self, *bands_of_aps):
        """The office's first access points, each with the radios of these bands, numbered from 0."""
        site = self.read("sim", "sites", "office.json")
        profile = {radio["band"]: radio for radio in site.pop("radio_profile")}
        site["access_points"] = [{**ap, "radios": [{**profile[band], "id": i} for i, band in enumerate(bands)]}
                                 for ap, bands in zip(site["access_points"], bands_of_aps)]
        del site["expectations"]
        with open(self.path("sim", "sites", "site.json"), "w", encoding="utf-8") as file:
            json.dump(site, file)
        shutil.copy(self.path("sim", "sites", "office-setup.json"), self.path("sim", "sites", "site-setup.json"))
        return "sim/sites/site.json"

    def test_boards_with_other_bands_are_told_by_theirs(self):
        terminal = self.start(self.write_site([5, 2], [5, 2]))
        deadline = time.monotonic() + 60
        while len(self.ask("sessions")["array"]) < 2 or self.run_zalctl("stat", "office").returncode != 0:
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.1)
        answer = self.ask("stat", "office")
        self.assertEqual({row["channel"] for row in answer["5g"]}, {36})
        self.assertEqual({row["channel"] for row in answer["2g"]}, {1})
        terminal.press(b"\x03")
        self.expect_clean_end(terminal, 0)

    def test_a_board_that_cannot_be_told_is_refused_before_anything_starts(self):
        run = self.run_at_once(self.write_site([5, 2], [2, 5]))
        # Another demo may run beside this one.
        words = [line for line in run.stdout.splitlines() if not re.fullmatch(r"demo: port \d+ is taken, trying the next", line)]
        self.assertEqual((run.returncode, words, run.stderr), (
            2, [], 'zal_apsim: site.access_points: radio 0 of the board "SIM-AP3" has two bands; give the access points '
                   "boards of different names\n"))


if __name__ == "__main__":
    unittest.main(verbosity=2)
