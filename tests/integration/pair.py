"""A controller pair over one simulated site: two daemons with two controllers, one master and one standby, the access
points behind a virtual address, and the standby's backups kept in step with the master's."""

import contextlib
import fcntl
import json
import os
import re
import subprocess
import tempfile
import threading
import time

from daemon import Daemon
from virtual_address import VirtualAddress

DOMAIN = "lab"
IDLE, DELAY, MODES, SCAN, FORCED_DELAY, COMPUTING = range(6)
AWAY_TIMEOUT_S = 30
FORCE_DELAY_S = 20
PATIENCE_S = 120  # for what must come; longer than any delay of a cycle, so that only a hang exceeds it


def setup(**pattern):
    return {
        "global": {"reports_path": "/mnt/data/zal//morvane-reports/"},
        "common": {"use_dca": 1, "use_tpc": 1},
        "patterns": [{"pattern": "pair", "use_dunva_rrm_scan": 1, "use_dca": 1, "use_tpc": 1, "use_hd_mode": 0,
                      "ap_rssi_threshold_2g": -60, "ap_rssi_threshold_5g": -52, "ap_rssi_threshold_6g": -52,
                      "use_optimization_event": 1, "use_rrm_report": 1, "use_balance": 0, "use_80211k": 1,
                      "use_80211r": 1, "use_80211v": 0, "away_timeout": AWAY_TIMEOUT_S, **pattern}],
        "domains": [{"domain": DOMAIN, "pattern": "pair", "time_zone": "0:00"}],
    }


def site():
    """Six access points in an open hall, two rows of three. Nothing fades and nothing is measured wrongly, so what is
    heard depends on the plan alone."""
    def radio(number, band, bandwidth, power, channels):
        return {"id": number, "band": band, "channel": channels[0], "bandwidth": bandwidth, "power": power,
                "power_min": 5, "power_max": power, "antenna_gain": 3, "available_channels": channels,
                "vaps": [{"id": 0, "ssid": "hall", "802dot11r": True}]}

    return {
        "name": "hall", "domain": DOMAIN, "floor": {"width": 60, "depth": 24},
        "radio_model": {"shadowing_db": 0, "noise_db": 0}, "scan": {"fast_seconds": 15}, "walls": [], "rooms": [],
        "radio_profile": [radio(0, 2, 20, 20, [1, 6, 11]), radio(1, 5, 40, 23, [36, 40, 44, 48, 149, 153, 157, 161]),
                          radio(2, 6, 80, 23, [165, 181, 197, 213])],
        "access_points": [{"name": f"AP-{i}", "mac": f"02:00:5e:00:{i:02x}:00", "serial": f"SN{i}",
                           "position": [10 + 20 * ((i - 1) % 3), 6 + 12 * ((i - 1) // 3)]} for i in range(1, 7)],
        "foreign": [], "clients": [],
    }


MACS = sorted(ap["mac"] for ap in site()["access_points"])


def await_that(condition, what, seconds=PATIENCE_S):
    """Returns what the condition does once that is true."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if result := condition():
            return result
        time.sleep(0.1)
    raise AssertionError(f"after {seconds} s still not: {what}")


# Pictures: what each access point is set to, in one form for all who tell it. Radios are {mac: {id: (channel, power)}},
# keys {mac: {VAP's address: (r0 key holder, r1 key holder, RRB key, links)}}.

def radios_of(entries):
    return {entry["id"]: (entry["channel"], entry["power"]) for entry in entries}


def keys_of(vaps):
    """Of VAPs as queries and backups tell them."""
    return {vap["mac"].lower(): (vap["fbt-r0-keyholder"], vap["fbt-r1-keyholder"].lower(), vap["fbt-rrb-key"],
                                 links_of(vap.get("fbt-links", ()))) for vap in vaps}


def links_of(links):
    return frozenset((link["remote-r0-kh-id"], link["remote-r1-kh-id"].lower(), link["remote-r1-kh-key"])
                     for link in links)


def keys_told(message):
    """Of a fbt-info, which numbers the VAPs; the site's radios lie 16 addresses apart."""
    base = int(message.mac.replace(":", ""), 16)
    keys = {}
    for vap in message.content["vaps"]:
        digits = f"{base + 16 * vap['radio_id'] + vap['vap_id']:012x}"
        address = ":".join(digits[i:i + 2] for i in range(0, 12, 2))
        keys[address] = (vap["r0-key-holder-id"], vap["r1-key-holder-id"].lower(), vap["fbt-rrb-key"],
                         links_of(vap["remotes"]))
    return keys


def radios_told(message):
    """The settings in what an access point says or is told, or None if the message holds none."""
    holder = message.content.get("config", {}) if message.command == "subscribe-response" else message.content
    return radios_of(holder["radios"]) if "radios" in holder else None


class BackupCopier:
    """Keeps one backup directory in step with another one as a synchronising tool would: a file appears whole, under
    its name, or not at all."""

    def __init__(self, source, target):
        self.source = source
        self.target = target
        self._ended = threading.Event()
        self._failure = None
        self._thread = threading.Thread(target=self._run)
        self._thread.start()

    def stop(self):
        """What changed last may be left behind, as when the source's machine is lost."""
        self._ended.set()
        self._thread.join()
        if self._failure:
            raise self._failure

    def _run(self):
        try:
            while not self._ended.is_set():
                self._copy_changed()
                self._ended.wait(0.05)
        except OSError as failure:
            self._failure = failure

    def _copy_changed(self):
        for name in os.listdir(self.source):
            if name.startswith(".") or not name.endswith(".json"):
                continue
            text = read_bytes(os.path.join(self.source, name))
            if text != read_bytes(os.path.join(self.target, name)):
                unfinished = os.path.join(os.path.dirname(self.target), name + ".copy")
                with open(unfinished, "wb") as file:
                    file.write(text)
                os.replace(unfinished, os.path.join(self.target, name))


def read_bytes(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return None


class Member:
    """One of the two: its daemon, asked in the terms of this test."""

    def __init__(self, daemon):
        self.daemon = daemon
        self.lives = True
        self.port = daemon.port
        data = os.path.join(daemon.state, "data", "zal")
        self.backups = os.path.join(data, "morvane_domains_backup")
        self.report_lock = os.path.join(data, "morvane-reports", f".report_lock_{DOMAIN}")

    def kill(self):
        self.daemon.kill()
        self.lives = False

    def start_again(self):
        """As standby, on what the killed one left."""
        self.daemon.start_again(vrrp=2)
        self.lives = True

    def end(self):
        """What still lives must end as it should."""
        if self.lives:
            self.daemon.stop()
        else:
            self.daemon.directory.cleanup()

    def group(self):
        """The domain as the server describes it, or None while it has no such domain."""
        try:
            return self.daemon.zalctl("api", "group", DOMAIN)["details"]
        except RuntimeError as failure:
            if "domain not found" in str(failure):
                return None
            raise

    def state(self):
        group = self.group()
        return group and group["rrm-status"]

    def counts(self):
        """Of active, unanswered and deleted access points."""
        group = self.group()
        return group and tuple(group[f"{kind}ap-count"] for kind in ("", "unanswered-", "deleted-"))

    def picture(self, deleted=False):
        """Radios and keys of the active access points, or of those that are to come back."""
        members, form = ("deleted-aps", "deleted-ap") if deleted else ("aps", "active-ap")
        radios, keys = {}, {}
        for ap in self.group()[members]:
            mac = ap["mac"].lower()
            entry = self.daemon.zalctl("api", "ap", DOMAIN, mac)[form]
            radios[mac] = radios_of(entry["radios"]["interfaces"])
            keys[mac] = keys_of(vap for radio in ap["radios"] for vap in radio["vaps"])
        return radios, keys

    def saved(self):
        """State, MACs of the deleted access points, and the picture of all of whatever set, out of the backup."""
        text = read_bytes(os.path.join(self.backups, DOMAIN + ".json"))
        if text is None:
            return None
        backup = json.loads(text)
        radios, keys = {}, {}
        for ap in backup["aps"] + backup["unanswered-aps"] + backup["deleted-aps"]:
            mac, interfaces = ap["mac"].lower(), ap["radios"]["interfaces"]
            radios[mac] = radios_of(interfaces)
            keys[mac] = keys_of(vap for radio in interfaces for vap in radio["vaps"])
        return backup["rrm-status"], [ap["mac"].lower() for ap in backup["deleted-aps"]], (radios, keys)

    def log(self):
        with open(os.path.join(self.daemon.state, "zal_rrm.log"), encoding="utf-8", errors="replace") as file:
            return file.read()

    def hold_reports(self):
        """Locks the domain's reports as a tool that copies them does; no plan is done before its report is written. The
        result lets them go when it is closed."""
        lock = open(self.report_lock, "ab")
        fcntl.flock(lock, fcntl.LOCK_EX)
        return lock


class Pair:
    """The first of the two is master at first. A context, which ends all it started."""

    def __init__(self, controller, daemon, apsim, **pattern):
        self.controller = controller
        self.daemon = daemon
        self.apsim = apsim
        self.setup = setup(**pattern)
        self.resources = contextlib.ExitStack()

    def __enter__(self):
        with self.resources as resources:
            self.address = VirtualAddress()
            resources.callback(self.address.close)
            self.master = self._start_member(vrrp=1)
            self.standby = self._start_member(vrrp=2)
            self.address.lead_to(self.master.port)
            self.copier = None
            self._keep_in_step()
            resources.callback(self._stop_copier)
            self._build_site()
            self.resources = resources.pop_all()
        return self

    def __exit__(self, kind, value, trace):
        return self.resources.__exit__(kind, value, trace)

    def _start_member(self, vrrp):
        member = Member(Daemon(self.controller, self.daemon, self.setup, vrrp=vrrp))
        self.resources.callback(member.end)
        return member

    def _keep_in_step(self):
        self.copier = BackupCopier(self.master.backups, self.standby.backups)

    def _stop_copier(self):
        copier, self.copier = self.copier, None
        if copier:
            copier.stop()

    def _build_site(self):
        directory = tempfile.TemporaryDirectory(prefix="zal-pair-")
        self.resources.callback(directory.cleanup)
        self.site_path, self.plans, self.site_output = (os.path.join(directory.name, name)
                                                        for name in ("site.json", "plans", "site.out"))
        with open(self.site_path, "w", encoding="utf-8") as file:
            json.dump(site(), file)
        self.start_site()
        self.resources.callback(self.end_site)

    def start_site(self):
        """The access points begin as an installer left them."""
        with open(self.site_output, "wb") as output:
            self.site = subprocess.Popen([self.apsim, "--site", self.site_path, "--out", self.plans, "--server",
                                          f"ws://127.0.0.1:{self.address.port}/apb/rrm"], stdin=subprocess.DEVNULL,
                                         stdout=output, stderr=subprocess.STDOUT)

    def end_site(self):
        self.site.terminate()
        if (status := self.site.wait(60)) != 0:
            with open(self.site_output, encoding="utf-8") as file:
                raise AssertionError(f"zal_apsim ended with {status}:\n{file.read()}")

    # The life of the pair

    def await_settled(self):
        """Until the master rests, all access points are served, and the backup says what the master says: the
        standby's, or where there is none, its own. Returns that, a picture."""
        keeper = self.standby if self.standby.lives else self.master

        def settled():
            if self.master.state() not in (IDLE, DELAY) or self.master.counts() != (len(MACS), 0, 0):
                return None
            picture = self.master.picture()
            saved = keeper.saved()
            return picture if saved and saved[1:] == ([], picture) else None

        return await_that(settled, "the master rests, and all is in the backup")

    def await_first_plan(self):
        """The same after the first whole cycle, when there are keys too."""
        await_that(lambda: self.whole_cycles() == 1, "the first plan")
        return self.await_settled()

    def lose_one(self):
        """One access point loses its connection and cannot connect again, which makes a backup of the present state."""
        state, lost = self.master.state(), MACS[2]
        self.address.admit(False)
        self.address.cut_off(lost)
        await_that(lambda: self.standby.saved()[:2] == (state, [lost]), f"the standby knows state {state}", 10)

    def kill_master(self):
        """Returns when it was killed; then the standby is master and the address leads to it."""
        self._stop_copier()
        killed_at = time.monotonic()
        self.master.kill()
        self._promote_standby()
        return killed_at

    def switch(self):
        """The roles change without a loss. Returns when this began."""
        began_at = time.monotonic()
        self.master.daemon.zalctl("vrrp", "2")
        self._stop_copier()
        self._promote_standby()
        self._keep_in_step()
        return began_at

    def bring_back(self):
        """The killed one, as standby."""
        self.standby.start_again()
        self._keep_in_step()

    def _promote_standby(self):
        self.master, self.standby = self.standby, self.master
        self.master.daemon.zalctl("vrrp", "1")
        self.address.lead_to(self.master.port)
        self.address.admit(True)
        self.led_at = time.monotonic()

    # What passed on the wire

    def await_served(self, since):
        """Until every access point has been answered by the master, and told its keys; returns by when each was."""
        def served():
            answers = self._first_to_each(since, "subscribe-response")
            keys = self._first_to_each(since, "fbt-info")
            return answers if len(answers) == len(keys) == len(MACS) else None

        return await_that(served, "every access point is served")

    def _first_to_each(self, since, command):
        firsts = {}
        for message in self.sent(since, command):
            if message.port == self.master.port:
                firsts.setdefault(message.mac, message.at)
        return firsts

    def sent(self, since, command):
        """What servers sent."""
        return [message for message in self.address.messages(since) if message.to_ap and message.command == command]

    def whole_cycles(self):
        """How many the site has been through since it was started."""
        with open(self.site_output, encoding="utf-8") as file:
            return len(re.findall(r"^written: .*\n", file.read(), re.MULTILINE))

    def last_plan(self):
        """Radios before and after the last whole cycle, as the access points had them."""
        number = self.whole_cycles()
        name = f"plan-{number}.json" if number > 1 else "plan.json"
        with open(os.path.join(self.plans, name), encoding="utf-8") as file:
            plan = json.load(file)
        return [{ap["mac"].lower(): radios_of({"id": radio["id"], **radio[when]} for radio in ap["radios"])
                 for ap in plan["access_points"]} for when in ("before", "after")]
