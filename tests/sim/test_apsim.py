"""zal_apsim as a program, against small controllers of another WebSocket library (Debian's python3-websockets)."""

import asyncio
import json
import os
import signal
import sys
import tempfile
import unittest
import xml.etree.ElementTree

import websockets

APSIM = sys.argv.pop(1)

SITE = {
    "name": "pair",
    "domain": "lab",
    "seed": 3,
    "floor": {"width": 20, "depth": 10},
    "scan": {"rounds": 2, "fast_seconds": 0.2},
    "rooms": [{"name": "Hall", "corner": [0, 0], "size": [20, 10]}],
    "radio_profile": [
        {"id": 0, "band": 5, "channel": 36, "bandwidth": 80, "power": 23, "power_min": 5, "power_max": 23,
         "available_channels": [36, 52], "vaps": [{"id": 0, "ssid": "staff"}]}
    ],
    "access_points": [
        {"name": "A", "mac": "02:00:5e:00:01:00", "position": [4, 5]},
        {"name": "B", "mac": "02:00:5e:00:02:00", "position": [14, 5]},
    ],
    "expectations": {"interference_falls_by_db": 20, "rooms_share_no_block": [5],
                     "power_falls": {"within_m": 12, "bands": [5]}},
}

GOOD_PLAN = {"02:00:5e:00:01:00": (36, 15), "02:00:5e:00:02:00": (52, 15)}
NO_PLAN = {"02:00:5e:00:01:00": (36, 23), "02:00:5e:00:02:00": (36, 23)}


class Controller:
    """Runs one cycle as soon as all APs of SITE have subscribed. Subclasses misbehave."""

    def __init__(self, plan):
        self.plan = plan
        self.sessions = {}
        self.peers = {}
        self.answered = {"rrm-mode-response": {}, "rrm-response": {}}
        self.paths = set()
        self.subscribes = 0
        self.closed_with = []

    async def serve(self, session):
        self.paths.add((session.path, session.subprotocol))
        try:
            async for text in session:
                await self.take(session, json.loads(text))
        except websockets.ConnectionClosed:
            pass
        self.closed_with.append(session.close_code)

    async def send(self, session, command, mac, **fields):
        await session.send(json.dumps({"service": "rrm", "version": "2.4", "cmd": command, "ap-mac": mac.upper(),
                                       "domain": "lab", **fields}))

    async def take(self, session, message):
        mac, command = message["ap-mac"], message["cmd"]
        if command == "subscribe-request":
            self.subscribes += 1
            self.peers.setdefault(mac, set()).add(session.remote_address[0])
            await self.subscribed(session, mac)
        elif command in self.answered:
            self.answered[command][mac] = message
            if len(self.answered[command]) == len(self.plan):
                await (self.scan() if command == "rrm-mode-response" else self.order())

    async def subscribed(self, session, mac):
        self.sessions[mac] = session
        await self.send(session, "subscribe-response", mac, status="success", config={"radios": []})
        if len(self.sessions) == len(self.plan):
            for other, each in self.sessions.items():
                await self.send(each, "rrm-request-mode", other)

    async def scan(self):
        for mac, session in self.sessions.items():
            await self.send(session, "rrm-update", mac, **{
                "rrm-scan-delay": 0, "dunva-rrm-scanning": 1,
                "rrm-scan-channels-list": [{"2": "", "5": "36 52", "6": ""}]})

    async def order(self):
        for mac, session in self.sessions.items():
            channel, power = self.plan[mac]
            await self.send(session, "rrm-info", mac, radios=[{"id": 0, "channel": channel, "power": power}])


class DropsFirstSessions(Controller):
    async def subscribed(self, session, mac):
        if self.subscribes <= 2:
            await session.close(1000, "done")
        else:
            await super().subscribed(session, mac)


class SaysStrangeThings(Controller):
    async def subscribed(self, session, mac):
        await session.ping()
        await session.send("this is not JSON")
        await session.send("[" * 100000)
        await session.send(b"\x00\xff\x00\r\n")
        await session.send("")
        await session.send(json.dumps({"service": "rrm", "cmd": "rrm-dance", "ap-mac": mac}))
        await session.send(['{"service": "rrm", ', '"cmd": "rrm-info", "ap-mac": "', mac, '", "radios": ',
                            '[{"id": 0, "channel": 52}]}'])  # one message in several frames, obeyed
        await super().subscribed(session, mac)


class KeepsSilent(Controller):
    async def subscribed(self, session, mac):
        pass


class ProgramTest(unittest.IsolatedAsyncioTestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory(prefix="apsim-")
        self.addCleanup(self.directory.cleanup)
        self.site = self.write_site(SITE)

    def path(self, name):
        return os.path.join(self.directory.name, name)

    def write_site(self, site):
        path = self.path("site.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(site, file)
        return path

    async def start(self, url, *options):
        return await asyncio.create_subprocess_exec(
            APSIM, "--site", self.site, "--server", url, *options,
            stdout=asyncio.subprocess.PIPE, stderr=asyncio.subprocess.PIPE)

    async def finish(self, process):
        out, err = await asyncio.wait_for(process.communicate(), 60)
        return process.returncode, out.decode(), err.decode()

    async def play(self, controller, *options):
        async with websockets.serve(controller.serve, "127.0.0.1", 0, subprotocols=["websock-rrm"]) as server:
            port = server.sockets[0].getsockname()[1]
            return await self.finish(await self.start(f"ws://127.0.0.1:{port}/apb/rrm", *options))

    def read(self, *name):
        with open(os.path.join(self.directory.name, *name), encoding="utf-8") as file:
            return file.read()

    async def test_a_good_plan_ends_with_status_0_and_its_files(self):
        controller = Controller(GOOD_PLAN)
        status, out, err = await self.play(controller, "--once", "--out", self.path("out"))
        self.assertEqual(status, 0, err)
        self.assertEqual(controller.paths, {("/apb/rrm", "websock-rrm")})
        self.assertEqual(controller.closed_with, [1000, 1000])
        self.assertIn("lab: cycle 1 planned 2 APs in ", out)
        self.assertEqual(out.count("\nok      "), 3)
        plan = json.loads(self.read("out", "plan.json"))
        self.assertEqual([ap["radios"][0]["after"]["channel"] for ap in plan["access_points"]], [36, 52])
        self.assertEqual([ap["radios"][0]["before"]["power"] for ap in plan["access_points"]], [23, 23])
        for drawing in ("plan-before.svg", "plan-after.svg"):
            root = xml.etree.ElementTree.fromstring(self.read("out", drawing))
            self.assertEqual(root.tag, "{http://www.w3.org/2000/svg}svg")
        self.assertIn("36/80, 23 dBm", self.read("out", "plan-before.svg"))
        self.assertIn("52/80, 15 dBm", self.read("out", "plan-after.svg"))

    async def test_two_runs_write_the_same_bytes(self):
        for run in ("one", "two"):
            status, _, err = await self.play(Controller(GOOD_PLAN), "--once", "--out", self.path(run))
            self.assertEqual(status, 0, err)
        for name in ("plan.json", "plan-before.svg", "plan-after.svg"):
            self.assertEqual(self.read("one", name), self.read("two", name))

    async def test_a_plan_that_changes_nothing_fails_the_checks(self):
        status, out, err = await self.play(Controller(NO_PLAN), "--once")
        self.assertEqual(status, 1)
        self.assertEqual(out.count("\nFAILED  "), 3)
        self.assertIn(f"the plan does not meet the expectations of {self.site}\n", err)

    async def test_no_cycle_in_time_is_told_with_the_reason(self):
        status, _, err = await self.play(KeepsSilent(GOOD_PLAN), "--once", "--timeout", "1")
        self.assertEqual(status, 1)
        self.assertIn("no whole cycle in 1 s: 2 of 2 APs, first A: not subscribed\n", err)

    async def test_no_controller_is_told_once_for_each_ap(self):
        async with websockets.serve(KeepsSilent(GOOD_PLAN).serve, "127.0.0.1", 0) as server:
            port = server.sockets[0].getsockname()[1]
        status, _, err = await self.finish(
            await self.start(f"ws://127.0.0.1:{port}/apb/rrm", "--once", "--timeout", "3"))
        self.assertEqual(status, 1)
        self.assertEqual(err.count("A: "), 2)  # one line of the log, one of the reason
        self.assertEqual(err.count("connecting again and again"), 2)

    async def test_dropped_sessions_come_back_and_subscribe_again(self):
        controller = DropsFirstSessions(GOOD_PLAN)
        status, _, err = await self.play(controller, "--once", "--timeout", "30")
        self.assertEqual(status, 0, err)
        self.assertEqual(controller.subscribes, 4)
        self.assertEqual(err.count("the session ended, connecting again and again\n"), 2)
        self.assertEqual(err.count(": connected\n"), 2)

    async def test_strange_messages_are_logged_and_survived(self):
        self.write_site({**SITE, "expectations": {}})
        status, out, err = await self.play(SaysStrangeThings(GOOD_PLAN), "--once", "--timeout", "30")
        self.assertEqual(status, 0, err)
        self.assertIn("A: ignored a text that is no JSON object: ?????\n", err)
        self.assertIn("A: ignored a text that is no JSON object: this is not JSON\n", err)
        self.assertIn("B: ignored an unknown message: ", err)
        self.assertRegex(out, r"A +Hall +5 GHz +52/80 -> 36/80 +23 -> 15")

    async def test_each_ap_comes_from_the_address_that_its_record_tells(self):
        for host in ("127.0.0.1", "localhost"):
            controller = DropsFirstSessions(GOOD_PLAN)
            async with websockets.serve(controller.serve, "127.0.0.1", 0, subprotocols=["websock-rrm"]) as server:
                url = f"ws://{host}:{server.sockets[0].getsockname()[1]}/apb/rrm"
                run = await self.finish(await self.start(url, "--records", self.path(host)))
                self.assertEqual(run, (0, "", ""))
                self.assertEqual(controller.subscribes, 0)
                status, _, err = await self.finish(await self.start(url, "--once", "--timeout", "30"))
                self.assertEqual((status, controller.subscribes), (0, 4), err)
            records = json.loads(self.read(host, "ap-info.json"))
            self.assertEqual(records, [
                {"mac": mac, "ip": ip, "location": "lab", "board-type": "SIM-AP3"}
                for mac, ip in (("02:00:5e:00:01:00", "127.1.0.1"), ("02:00:5e:00:02:00", "127.1.0.2"))])
            self.assertEqual(controller.peers, {record["mac"]: {record["ip"]} for record in records})
            self.assertEqual(self.read(host, "boards.json"), '{"SIM-AP3":"5g 5g 6g"}\n')

    async def test_records_for_a_server_elsewhere_have_no_address(self):
        self.write_site({**SITE, "radio_profile": [{**SITE["radio_profile"][0], "id": 1}]})
        os.mkdir(self.path("records"))
        with open(self.path("records/boards.json"), "w", encoding="utf-8") as boards:
            boards.write("of another site")
        run = await self.finish(await self.start("ws://192.0.2.1:8099/apb/rrm", "--records", self.path("records")))
        self.assertEqual(run, (0, "", ""))
        self.assertEqual(os.listdir(self.path("records")), ["ap-info.json"])
        self.assertEqual(self.read("records", "ap-info.json"),
                         '[{"mac":"02:00:5e:00:01:00","location":"lab","board-type":"SIM-AP3"},\n'
                         ' {"mac":"02:00:5e:00:02:00","location":"lab","board-type":"SIM-AP3"}]\n')

    async def test_records_that_cannot_be_written_end_with_status_2(self):
        os.makedirs(self.path("records/ap-info.json"))
        status, out, err = await self.finish(
            await self.start("ws://127.0.0.1:1/x", "--records", self.path("records")))
        self.assertEqual((status, out, err), (2, "", f"zal_apsim: cannot write {self.path('records/ap-info.json')}\n"))

    def write_steering_site(self, expectations, **client):
        self.write_site({**SITE, "steering": {"before": 1, "after": 3}, "expectations": {"steering": expectations},
                         "clients": [{"mac": "02:c1:00:00:00:01", "ssid": "staff", "bands": [5], "position": [5, 5],
                                      **client}]})

    async def test_a_scene_of_steering_as_expected_ends_with_status_0_and_its_file(self):
        self.write_steering_site({"fullest_radio_falls_by": 1}, until=2)
        status, out, err = await self.play(KeepsSilent(GOOD_PLAN), "--scene", "steering", "--once", "--out",
                                           self.path("out"))
        self.assertEqual((status, err), (0, ""))
        self.assertRegex(out, r"\nlab: the clients after \d+ s\n")
        self.assertIn("\nok      the load of the fullest radio falls by 1 or more: 1 on A at 5 GHz -> 0 on A at "
                      "5 GHz\nwritten: " + self.path("out") + "/steering.json\n", out)
        figures = json.loads(self.read("out", "steering.json"))
        self.assertEqual([(radio["before"], radio["now"]) for radio in figures["radios"]], [(1, 0), (0, 0)])
        self.assertEqual(os.listdir(self.path("out")), ["steering.json"])

    async def test_a_scene_of_steering_that_disappoints_ends_with_status_1_and_the_reason(self):
        self.write_steering_site({"fullest_radio_falls_by": 1, "ordered_moves_succeed": 0.5})
        status, out, err = await self.play(KeepsSilent(GOOD_PLAN), "--scene", "steering", "--once")
        self.assertEqual(status, 1)
        self.assertEqual(out.count("\nFAILED  "), 2)
        self.assertEqual(err, "not as expected: the load of the fullest radio falls by 1 or more: 1 on A at 5 GHz "
                              "-> 1 on A at 5 GHz\nnot as expected: 50 % of the ordered moves or more succeed: 0 of 0\n")

    async def test_a_scene_of_steering_goes_on_after_its_window(self):
        self.write_steering_site({"fullest_radio_falls_by": 1})
        controller = KeepsSilent(GOOD_PLAN)
        async with websockets.serve(controller.serve, "127.0.0.1", 0, subprotocols=["websock-rrm"]) as server:
            port = server.sockets[0].getsockname()[1]
            process = await self.start(f"ws://127.0.0.1:{port}/apb/rrm", "--scene", "steering")
            out = ""
            while "\nFAILED  " not in out:
                out += (await asyncio.wait_for(process.stdout.readline(), 60)).decode()
            process.send_signal(signal.SIGTERM)
            status, rest, err = await self.finish(process)
        self.assertEqual((status, err), (0, ""))
        self.assertIn("\nlab: the clients after ", rest)
        self.assertNotIn("FAILED", rest)

    async def test_terminated_it_ends_politely(self):
        controller = KeepsSilent(GOOD_PLAN)
        async with websockets.serve(controller.serve, "127.0.0.1", 0, subprotocols=["websock-rrm"]) as server:
            port = server.sockets[0].getsockname()[1]
            process = await self.start(f"ws://127.0.0.1:{port}/apb/rrm")
            while controller.subscribes < 2:
                await asyncio.sleep(0.02)
            process.send_signal(signal.SIGTERM)
            status, _, err = await self.finish(process)
        self.assertEqual((status, err), (0, ""))
        self.assertEqual(controller.closed_with, [1000, 1000])

    async def test_a_scene_that_there_is_not_ends_with_status_2(self):
        for scene, complaint in (("dance", 'zal_apsim: no scene "dance"; there are plan and steering\n'),
                                 ("steering", f'zal_apsim: no scene of steering in {self.site}: it has no "steering"\n')):
            status, out, err = await self.finish(await self.start("ws://127.0.0.1:1/x", "--scene", scene, "--once"))
            self.assertEqual((status, out, err), (2, "", complaint))

    async def test_a_scene_of_steering_without_expectations_cannot_be_judged(self):
        self.write_steering_site({})
        status, out, err = await self.finish(
            await self.start("ws://127.0.0.1:1/x", "--scene", "steering", "--once"))
        self.assertEqual((status, out, err), (
            2, "", f"zal_apsim: nothing to judge in {self.site}: it expects nothing of steering\n"))

    async def test_a_bad_site_or_address_ends_with_status_2(self):
        for site, url, complaint in (
                ({**SITE, "floor": 3}, "ws://127.0.0.1:1/x", "zal_apsim: site.floor must be an object\n"),
                (SITE, "http://127.0.0.1:1/x",
                 'zal_apsim: "http://127.0.0.1:1/x" is not of the form ws://host:port/path\n'),
                (SITE, "", 'zal_apsim: "" is not of the form ws://host:port/path\n')):
            self.write_site(site)
            status, _, err = await self.finish(await self.start(url, "--once"))
            self.assertEqual((status, err), (2, complaint))


if __name__ == "__main__":
    unittest.main(verbosity=2)
