"""Hostile input on the wire. After each of these inputs a bystander's session and a newcomer must be served as if nothing
had happened, and at the end the daemon must be the process that was started first and end with status 0.

"No answer" is proved, not waited for: a session's messages are answered in order, so a good subscription is sent behind
the hostile input, and the first message that comes must be the answer to it."""

import asyncio
import json
import socket
import struct
import sys
import time
import unittest

import websockets

from daemon import QUIET, Daemon
from wire import (PATIENCE, AccessPoint, BareSocket, envelope, frame, new_mac, radio, subscribe_request)

CONTROLLER, DAEMON = sys.argv.pop(1), sys.argv.pop(1)


class WireTest(unittest.IsolatedAsyncioTestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.daemon = Daemon(CONTROLLER, DAEMON, QUIET)
        cls.port = cls.daemon.port

    @classmethod
    def tearDownClass(cls):
        cls.daemon.stop()

    async def asyncSetUp(self):
        self.opened = []
        self.bystander = await self.connect()
        self.assertEqual((await self.bystander.subscribe())["status"], "success")

    async def asyncTearDown(self):
        await self.assert_others_are_served()
        for connection in self.opened:
            await connection.close()

    async def connect(self, **options):
        self.opened.append(await AccessPoint.connect(self.port, **options))
        return self.opened[-1]

    async def connect_bare(self, upgraded=True):
        self.opened.append(await (BareSocket.upgraded if upgraded else BareSocket.connect)(self.port))
        return self.opened[-1]

    async def assert_others_are_served(self):
        answer = await self.bystander.ask()
        self.assertEqual((answer["cmd"], answer["ap-mac"]), ("rrm-info", self.bystander.mac))
        self.assertEqual([entry["channel"] for entry in answer["radios"]], [1, 36])
        newcomer = await AccessPoint.connect(self.port)
        self.assert_success(await newcomer.subscribe(), newcomer.mac)
        await newcomer.close()

    def assert_success(self, answer, mac):
        self.assertEqual(
            {key: answer.get(key) for key in ("service", "version", "cmd", "status", "domain", "ap-mac")},
            {"service": "rrm", "version": "2.4", "cmd": "subscribe-response", "status": "success", "domain": "lab",
             "ap-mac": mac})

    async def assert_no_answer(self, *inputs, session=None):
        """The session stays, and the first thing that it is answered is the subscription behind the inputs."""
        session = session or await self.connect()
        for hostile in inputs:
            await session.send(hostile)
        self.assert_success(await session.subscribe(), session.mac)
        return session

    async def assert_refused(self, code, **changes):
        """The subscription fails with this code, and the server closes the session."""
        session = await self.connect()
        answer = await session.subscribe(**changes)
        self.assertEqual(answer, {"service": "rrm", "version": "2.4", "cmd": "subscribe-response", "status": "fail",
                                  "code": code, "ap-mac": session.mac})
        self.assertEqual(await session.closed(), (1000, "done"))

    async def assert_bare_served(self, bare):
        """The bare session still gets an answer: a text frame."""
        mac = new_mac()
        await bare.write(frame(json.dumps(subscribe_request(mac)).encode()))
        first, payload = await bare.read_frame()
        self.assertEqual(first, 0x81)
        self.assert_success(json.loads(payload), mac)


class Texts(WireTest):
    """What is not a message."""

    async def test_text_that_is_not_json(self):
        await self.assert_no_answer("this is not JSON", "{", "}", '{"service": "rrm"', '{"a": 1,}', "{'a': 1}", "nul",
                                    '"open', '{"a": 01}', "\ufeff{}", "{} {}", "\x00", " ")

    async def test_json_that_is_not_an_object(self):
        await self.assert_no_answer("[]", '[{"cmd": "subscribe-request"}]', "3", '"subscribe-request"', "null", "true",
                                    "-1e308")

    async def test_empty_object_and_empty_message(self):
        await self.assert_no_answer("{}", "", "")

    async def test_text_that_is_not_utf8(self):
        bare = await self.connect_bare()
        await bare.write(frame(b"\xff\xfe\x80") + frame(b'{"cmd": "\xc3\x28"}') + frame(b'{"domain": "\xed\xa0\x80"}'))
        await self.assert_bare_served(bare)

    async def test_a_megabyte_of_brackets(self):
        await self.assert_no_answer("[" * 1_000_000, "{\"a\":" * 200_000, "[" * 500_000 + "]" * 500_000)

    async def test_nesting_within_a_good_message(self):
        session = await self.connect()
        deep = json.dumps(subscribe_request(session.mac, extra=0)).replace('"extra": 0', '"extra": %s')
        await self.assert_no_answer(deep % ("[" * 600 + "]" * 600), session=session)
        await session.send(deep % ("[" * 500 + "]" * 500))
        self.assert_success(await session.answer(), session.mac)

    async def test_a_megabyte_of_text_in_a_good_message(self):
        session = await self.connect()
        self.assert_success(await session.subscribe(extra="x" * 1_000_000), session.mac)

    async def test_binary_messages_are_read_as_texts(self):
        session = await self.assert_no_answer(b"\x00\x01\x02\xff", bytes(range(256)), b"")
        await session.send(json.dumps(subscribe_request(session.mac)).encode())
        self.assert_success(await session.answer(), session.mac)

    async def test_escaped_names_are_the_names(self):
        session = await self.connect()
        text = json.dumps(subscribe_request(session.mac)).replace('"lab"', '"\\u006ca\\u0062"')
        self.assertIn("\\u006ca", text)
        await session.send(text)
        self.assert_success(await session.answer(), session.mac)


class Frames(WireTest):
    """What is not a frame, and all the ways in which a message may be one."""

    async def test_two_fragments_cut_anywhere(self):
        session = await self.connect()
        text = json.dumps(subscribe_request(session.mac))
        for at in range(0, len(text) + 1):
            await session.send([text[:at], text[at:]])
            self.assert_success(await session.answer(), session.mac)

    async def test_a_fragment_for_each_byte(self):
        session = await self.connect()
        await session.send(list(json.dumps(subscribe_request(session.mac))))
        self.assert_success(await session.answer(), session.mac)

    async def test_three_fragments_with_pings_and_empty_ones_between(self):
        bare = await self.connect_bare()
        mac = new_mac()
        text = json.dumps(subscribe_request(mac)).encode()
        await bare.write(frame(text[:100], first=0x01) + frame(b"", first=0x00) + frame(b"are you there", first=0x89) +
                         frame(text[100:200], first=0x00) + frame(b"unasked", first=0x8A) +
                         frame(text[200:], first=0x80))
        self.assertEqual(await bare.read_frame(), (0x8A, b"are you there"))
        first, payload = await bare.read_frame()
        self.assertEqual(first, 0x81)
        self.assert_success(json.loads(payload), mac)

    async def test_a_frame_that_arrives_byte_by_byte(self):
        bare = await self.connect_bare()
        mac = new_mac()
        for byte in frame(json.dumps(subscribe_request(mac)).encode()):
            await bare.write(bytes([byte]))
        self.assert_success(json.loads((await bare.read_frame())[1]), mac)

    async def test_a_truncated_frame(self):
        bare = await self.connect_bare()
        await bare.write(frame(b'{"service"', announced=1000))
        await bare.close()

    async def test_a_message_that_is_never_finished(self):
        bare = await self.connect_bare()
        await bare.write(frame(b'{"service": "rrm", ', first=0x01))
        await self.assert_others_are_served()

    async def test_a_frame_of_four_exabytes(self):
        bare = await self.connect_bare()
        await bare.write(frame(b"{", announced=1 << 62))
        await self.assert_others_are_served()

    async def test_a_length_with_its_sign_bit(self):
        bare = await self.connect_bare()
        await bare.write(frame(b"{", announced=(1 << 63) + 5))
        self.assertEqual(await bare.rest(), b"")

    async def test_an_unmasked_frame_is_read(self):
        bare = await self.connect_bare()
        mac = new_mac()
        await bare.write(frame(json.dumps(subscribe_request(mac)).encode(), masked=False))
        self.assert_success(json.loads((await bare.read_frame())[1]), mac)

    async def test_frames_against_the_rules_end_the_connection(self):
        for name, data in (("reserved bit", frame(b"{}", first=0xC1)), ("reserved opcode", frame(b"{}", first=0x83)),
                           ("a ping above 125 bytes", frame(b"x" * 126, first=0x89)),
                           ("a ping in fragments", frame(b"x", first=0x09)),
                           ("a continuation of nothing", frame(b"x", first=0x80)),
                           ("a text within a text", frame(b"x", first=0x01) + frame(b"y", first=0x81))):
            with self.subTest(name):
                bare = await self.connect_bare()
                await bare.write(data)
                closing = await bare.rest()
                # Either nothing more or a close frame; never a message.
                self.assertIn(closing[:1], (b"", b"\x88"), closing)

    async def test_strange_closes_are_answered_with_a_close(self):
        for name, payload, answer in (("an unknown code", b"\x00\x01zz", b"\x88\x04\x03\xeazz"),
                                      ("one byte", b"\x03", b"\x88\x01\x03"),
                                      ("a code that is never sent", struct.pack("!H", 1005), b"\x88\x02\x03\xea")):
            with self.subTest(name):
                bare = await self.connect_bare()
                await bare.write(frame(payload, first=0x88))
                self.assertEqual(await bare.rest(), answer)


class Doors(WireTest):
    """Ways to the port that are not a session."""

    async def test_any_path_with_the_sub_protocol_is_a_session(self):
        for path in ("/", "/other", "/apb/rrm/deeper", "/apb/rrm?x=1", "/../../etc/passwd"):
            with self.subTest(path):
                session = await self.connect(path=path)
                self.assertEqual(session.session.subprotocol, "websock-rrm")
                self.assert_success(await session.subscribe(), session.mac)

    async def test_another_sub_protocol_is_refused(self):
        with self.assertRaises(websockets.InvalidHandshake):
            await self.connect(subprotocols=("other",))

    async def test_without_the_sub_protocol_there_is_no_session(self):
        for subprotocols in ((), ("http",)):
            with self.subTest(subprotocols):
                session = await self.connect(subprotocols=subprotocols)
                self.assertNotEqual(session.session.subprotocol, "websock-rrm")
                with self.assertRaises(websockets.ConnectionClosed):
                    await asyncio.wait_for(session.session.recv(), PATIENCE)
                await self.assert_others_are_served()

    async def test_the_sub_protocol_among_others_is_taken(self):
        session = await self.connect(subprotocols=("other", "websock-rrm"))
        self.assertEqual(session.session.subprotocol, "websock-rrm")
        self.assert_success(await session.subscribe(), session.mac)

    async def test_plain_http_is_not_found(self):
        for request in (b"GET / HTTP/1.1\r\nHost: x\r\n\r\n", b"HEAD / HTTP/1.1\r\nHost: x\r\n\r\n",
                        b"GET /apb/rrm/../x HTTP/1.1\r\nHost: x\r\n\r\n",
                        b"GET / HTTP/1.1\r\nHost: x\r\n\r\n" * 5):
            with self.subTest(request):
                bare = await self.connect_bare(upgraded=False)
                await bare.write(request)
                head = await asyncio.wait_for(bare.reader.readuntil(b"\r\n"), PATIENCE)
                self.assertEqual(head, b"HTTP/1.1 404 Not Found\r\n")

    async def test_plain_http_on_the_path_of_the_sessions_is_hung_up_on(self):
        bare = await self.connect_bare(upgraded=False)
        await bare.write(b"GET /apb/rrm HTTP/1.1\r\nHost: x\r\n\r\n")
        await self.assert_others_are_served()
        self.assertEqual(await bare.rest(), b"")

    async def test_a_request_with_a_body_is_hung_up_on(self):
        bare = await self.connect_bare(upgraded=False)
        await bare.write(b"POST /apb/rrm HTTP/1.1\r\nHost: x\r\nContent-Length: 3\r\n\r\nabc")
        await self.assert_others_are_served()
        self.assertEqual(await bare.rest(), b"")

    async def test_what_is_no_http_is_forbidden(self):
        for name, data in (("a TLS greeting", b"\x16\x03\x01\x02\x00\x01\x00"), ("chatter", b"hello\r\n\r\n"),
                           ("letters", b"A" * 20000)):
            with self.subTest(name):
                bare = await self.connect_bare(upgraded=False)
                await bare.write(data)
                self.assertEqual((await bare.rest()).split(b"\r\n")[0], b"HTTP/1.0 403 Forbidden")

    async def test_a_path_of_nine_thousand_letters_ends_the_connection(self):
        bare = await self.connect_bare(upgraded=False)
        await bare.write(b"GET /" + b"a" * 9000 + b" HTTP/1.1\r\n\r\n")
        self.assertEqual(await bare.rest(), b"")

    async def test_a_handshake_that_is_never_finished(self):
        bare = await self.connect_bare(upgraded=False)
        await bare.write(b"GET /apb/rrm HTTP/1.1\r\nHost: x\r\nUpgr")
        await self.assert_others_are_served()

    async def test_connections_that_say_nothing(self):
        for _ in range(100):
            await self.connect_bare(upgraded=False)
        await self.assert_others_are_served()


class Fields(WireTest):
    """Messages whose fields are out of their kind or range."""

    async def test_numbers_of_64_bits_are_cut_to_32(self):
        session = await self.connect()
        answer = await session.subscribe(**{"ap-mac-count": (1 << 32) + 48, "radios": [
            radio(0, channel=(1 << 32) + 6, power=(1 << 63) - 1), radio(1, channel=-(1 << 63), power=1 << 31)]})
        self.assert_success(answer, session.mac)
        self.assertEqual([(entry["channel"], entry["power"]) for entry in answer["config"]["radios"]],
                         [(6, -1), (0, -(1 << 31))])

    async def test_numbers_beyond_64_bits_and_fractions_read_as_0(self):
        session = await self.connect()
        answer = await session.subscribe(radios=[radio(0, channel=1 << 70, power=2.5), radio(1, channel=1e300)])
        self.assert_success(answer, session.mac)
        self.assertEqual([(entry["channel"], entry["power"]) for entry in answer["config"]["radios"]], [(0, 0), (0, 14)])

    async def test_limits_and_antennas_at_the_ends_of_the_range(self):
        ends = {"power": 2147483647, "power-max": 2147483647, "power-min": -2147483648, "eirp-min": 2147483647,
                "eirp-max": -2147483648, "bandwidth": 2147483647,
                "antenna-configuration": {"antenna-gain": 2147483647, "cable-loss": -2147483648}}
        session = await self.connect()
        self.assert_success(await session.subscribe(radios=[radio(0, **ends)]), session.mac)
        self.assert_success(await session.subscribe(radios=[radio(0)]), session.mac)

    async def test_negative_and_huge_radio_ids_are_skipped(self):
        session = await self.connect()
        answer = await session.subscribe(radios=[radio(0, id=-1), radio(0, id=-2147483648), radio(0, id=3),
                                                 radio(0, id=2147483647), radio(1)])
        self.assert_success(answer, session.mac)
        self.assertEqual([entry["id"] for entry in answer["config"]["radios"]], [1])

    async def test_radios_of_the_wrong_kind(self):
        for radios in ("x", 5, {}, [5, "x", None, [], {}], [[[radio(0)]]]):
            with self.subTest(radios):
                session = await self.connect()
                self.assert_success(await session.subscribe(radios=radios), session.mac)

    async def test_ten_thousand_radios(self):
        session = await self.connect()
        answer = await session.subscribe(radios=[radio(0, id=number % 3, **{"mac-offset": 16 * (number % 3)})
                                                 for number in range(10_000)])
        self.assert_success(answer, session.mac)
        self.assertEqual([entry["id"] for entry in answer["config"]["radios"]], [0, 1, 2])

    async def test_channel_lists_of_any_text(self):
        for text in ("", "-1", "99999999999999999999", "1,,6;;11", "x" * 10_000, "1 " * 10_000, "\u0661\u0662"):
            with self.subTest(text[:20]):
                session = await self.connect()
                self.assert_success(await session.subscribe(radios=[radio(0, **{"available-channels": text})]),
                                    session.mac)

    async def test_empty_and_huge_ssids(self):
        vaps = [{"id": 0, "ssid": ""}, {"id": 1, "ssid": "s" * 10_240}, {"id": 2, "ssid": "\u0000"}, {"id": 3, "ssid": 5},
                {"id": -1, "ssid": "minus"}, {"id": 2147483647, "ssid": "far"}]
        session = await self.connect()
        self.assert_success(await session.subscribe(radios=[radio(0, vaps=vaps)]), session.mac)
        self.assertEqual((await session.ask())["cmd"], "rrm-info")

    async def test_empty_and_huge_domains_are_unknown(self):
        session = await self.connect()
        await self.assert_no_answer(*(subscribe_request(session.mac, domain=name)
                                      for name in ("", "d" * 10_240, 5, ["lab"], "LAB", "lab ", "lab\u0000x")),
                                    session=session)

    async def test_an_unknown_domain_is_not_answered_and_the_session_stays(self):
        session = await self.connect()
        await self.assert_no_answer(subscribe_request(session.mac, domain="elsewhere"), session=session)

    async def test_huge_names_in_the_factory_record(self):
        session = await self.connect()
        self.assert_success(await session.subscribe(factory={"board": "b" * 10_240, "hw": "h" * 10_240, "mac": "m" * 10_240,
                                                             "serial": "%s%n%x" * 1000}), session.mac)

    async def test_without_an_address_there_is_no_answer(self):
        for mac in ("", None, 5, {}, []):
            with self.subTest(mac):
                session = await self.connect()
                message = subscribe_request(session.mac)
                message["ap-mac"] = mac
                await self.assert_no_answer(message, session=session)

    async def test_broken_addresses_read_as_zero(self):
        for mac in ("zz", "02:00", "02:00:00:00:00", "g0:00:00:00:00:01", "02-00-00-00-00-01", "020000000001",
                    "102:00:00:00:00:01", ":::::", "%s%n", "0" * 10_240):
            with self.subTest(mac[:20]):
                session = await self.connect(mac=mac)
                self.assert_success(await session.subscribe(), "00:00:00:00:00:00")
                await session.send(envelope("unsubscribe-request", mac))
                self.assert_success(await session.subscribe(), "00:00:00:00:00:00")

    async def test_loose_addresses_are_read_like_scanf(self):
        for mac in ("02:00:Bb:00:00:01:99", "2:0:bB:0:0:1", "  02:00:bb:00:00:01 "):
            with self.subTest(mac):
                session = await self.connect(mac=mac)
                self.assert_success(await session.subscribe(), "02:00:BB:00:00:01")

    async def test_broken_addresses_inside_messages(self):
        session = await self.connect()
        self.assert_success(await session.subscribe(radios=[radio(0, vaps=[
            {"id": 0, "ssid": "a", "mac": "zz"}, {"id": 1, "ssid": "b", "mac": "ff:ff:ff:ff:ff:ff"}, {"id": 2, "ssid": "c",
                                                                                                 "mac": 5}],
            assoclist=[{"mac": "zz", "ssid": "a", "rssi": -50}, {"mac": "", "ssid": "a"}, 5])]), session.mac)
        hostile = [envelope(command, session.mac, radio=number, rssi=-50, ssid="a",
                            **{"sta-mac": mac, "target-mac": mac, "state": "unstable", "need-ack": 1})
                   for command in ("rrm-client-assoc", "rrm-client-disassoc", "rrm-sta-roam", "rrm-assoc-state-changed")
                   for number in (0, -1, 99) for mac in ("zz", "", "ff:ff:ff:ff:ff:ff:ff", 5)]
        await self.assert_no_answer(*hostile, session=session)

    async def test_wrong_versions(self):
        for version in ("2.5", "1.9", "3.0", "2", "", None, 2.4, 24, "-2.4", "a", "9" * 10_240):
            with self.subTest(version if version is None else str(version)[:20]):
                await self.assert_refused(503, version=version)

    async def test_versions_that_scan_as_good_ones(self):
        for version in ("2.0", "2.4", "2.4.1", "2.04", "02.4", " 2.4", "2.4x"):
            with self.subTest(version):
                session = await self.connect()
                self.assert_success(await session.subscribe(version=version), session.mac)

    async def test_wrong_versions_of_other_messages_are_not_answered(self):
        session = await self.assert_no_answer()
        await self.assert_no_answer(*({**envelope("rrm-config-changed", session.mac, radios=[]), "version": version}
                                      for version in ("2.5", "1.9", "3.0", "", 24)), session=session)

    async def test_a_missing_or_incomplete_factory_record(self):
        whole = {"board": "B", "hw": "1", "serial": "S", "mac": "02:00:00:00:00:01"}
        for factory in (None, {}, "x", 5, [whole], *({**whole, key: ""} for key in whole),
                        *({other: whole[other] for other in whole if other != key} for key in whole)):
            with self.subTest(factory):
                await self.assert_refused(503, factory=factory)

    async def test_address_pools_that_cannot_be(self):
        for changes in ({"ap-mac-count": 0}, {"ap-mac-count": -1}, {"ap-mac-count": 16},
                        {"radios": [radio(0, **{"radio-mac-count": 0})]}, {"radios": [radio(0, **{"mac-offset": -1})]},
                        {"radios": [radio(0), radio(1, **{"mac-offset": 0})]},
                        {"radios": [radio(0, **{"radio-mac-count": 2147483647, "mac-offset": 2147483647})]}):
            with self.subTest(changes):
                await self.assert_refused(400, **changes)


class States(WireTest):
    """Messages that come at the wrong time, from the wrong side, or too often."""

    async def test_answers_that_nobody_asked_for(self):
        session = await self.connect()
        self.assert_success(await session.subscribe(), session.mac)
        environment = [[{"bssid": "zz", "channel": 1 << 40, "rssi": 5, "band": -7}], None, 5, [None], {}]
        await self.assert_no_answer(
            envelope("rrm-mode-response", session.mac, radios=[radio(0, channel=11)]),
            envelope("rrm-response", session.mac, radios=[radio(0, channel=11)], **{"rf-environment": environment}),
            envelope("rrm-probe-response", session.mac, radios=[{"id": 5, "probe-list": [{"mac": "zz"}]}]),
            envelope("rrm-disassoc-all-clients", session.mac), session=session)
        self.assertEqual((await session.ask())["radios"][0]["channel"], 1)

    async def test_messages_before_the_subscription(self):
        session = await self.connect()
        await self.assert_no_answer(
            *(envelope(command, session.mac, radios=[radio(0)])
              for command in ("unsubscribe-request", "rrm-response", "rrm-mode-response", "rrm-config-changed",
                              "rrm-client-assoc", "rrm-sta-roam")), session=session)

    async def test_unknown_commands_and_services(self):
        session = await self.connect()
        await self.assert_no_answer(
            envelope("rrm-dance", session.mac), envelope("", session.mac), envelope("c" * 10_240, session.mac),
            envelope(None, session.mac), {**envelope("subscribe-request", session.mac), "service": "RRM"},
            {**subscribe_request(session.mac), "service": None}, {**subscribe_request(session.mac), "service": 5},
            envelope("subscribe-response", session.mac, status="fail", code=503), envelope("rrm-info", session.mac),
            session=session)

    async def test_internal_services_are_refused(self):
        session = await self.connect()
        self.assert_success(await session.subscribe(), session.mac)
        await self.assert_no_answer(
            *({"service": service, "cmd": command, "domain": domain, "version": "2.4", "ap-mac": session.mac}
              for service in ("rrm-internal", "internal-ipc")
              for command in ("drop-session", "stop", "stop-load-balancer", "ping-session", "subscribe-request")
              for domain in ("lab", "elsewhere", "")), session=session)

    async def test_messages_in_the_name_of_another_session(self):
        victim, thief = await self.connect(), await self.connect()
        self.assert_success(await victim.subscribe(), victim.mac)
        await self.assert_no_answer(
            envelope("rrm-config-changed", victim.mac, radios=[]), envelope("unsubscribe-request", victim.mac),
            envelope("rrm-response", victim.mac, radios=[]), envelope("rrm-mode-response", victim.mac, radios=[]),
            session=thief)
        self.assertEqual([entry["id"] for entry in (await victim.ask())["radios"]], [0, 1])

    async def test_a_second_session_of_one_address_drops_the_first(self):
        first = await self.connect()
        self.assert_success(await first.subscribe(), first.mac)
        second = await self.connect(mac=first.mac)
        self.assert_success(await second.subscribe(), first.mac)
        self.assertEqual(await first.closed(), (1000, "done"))
        self.assertEqual((await second.ask())["cmd"], "rrm-info")

    async def test_the_address_of_a_radio_names_the_same_ap(self):
        first = await self.connect()
        self.assert_success(await first.subscribe(), first.mac)
        second = await self.connect(mac=first.mac[:-2] + "10")  # radio 1
        answer = await second.subscribe()
        self.assertEqual((answer["status"], answer["ap-mac"]), ("success", first.mac))
        self.assertEqual(await first.closed(), (1000, "done"))

    async def test_subscribing_again_and_again_on_one_session(self):
        session = await self.connect()
        for _ in range(300):
            self.assert_success(await session.subscribe(), session.mac)

    async def test_reconnecting_ten_times_a_second(self):
        mac = new_mac()
        for _ in range(30):
            began = time.monotonic()
            session = await AccessPoint.connect(self.port, mac=mac)
            self.assert_success(await session.subscribe(), mac)
            await session.close()
            await asyncio.sleep(max(0, 0.1 - (time.monotonic() - began)))

    async def test_hanging_up_without_a_close_right_behind_the_subscription(self):
        for _ in range(50):
            bare = await BareSocket.upgraded(self.port)
            await bare.write(frame(json.dumps(subscribe_request(new_mac())).encode()))
            bare.writer.transport.abort()

    async def test_one_that_never_reads(self):
        bare = await self.connect_bare()
        deaf = bare.writer.get_extra_info("socket")
        deaf.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        bare.writer.transport.pause_reading()  # or the library reads for it
        mac = new_mac()
        await bare.write(frame(json.dumps(subscribe_request(mac)).encode()) * 2000)
        for _ in range(3):
            await self.assert_others_are_served()

    async def test_a_burst_of_two_thousand_messages(self):
        session = await self.connect()
        for _ in range(2000):
            await session.send("{}")
        await self.assert_no_answer(session=session)


if __name__ == "__main__":
    unittest.main(verbosity=2)
