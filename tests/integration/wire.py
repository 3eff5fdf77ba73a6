"""Access points of a foreign WebSocket library (Debian's python3-websockets), and a bare socket for what no library
would send."""

import asyncio
import base64
import itertools
import json
import os
import struct

import websockets

PATIENCE = 20  # seconds for an answer that must come; sanitizers and a busy machine make it slow, never late by rule

_macs = itertools.count(0x0200AA000000, 0x100)


def new_mac():
    """An address of a pool that no other test uses."""
    digits = f"{next(_macs):012X}"
    return ":".join(digits[i:i + 2] for i in range(0, 12, 2))


def radio(number=0, **changes):
    channels = (1, 36, 165)
    return {"id": number, "status": 1, "channel": channels[number], "band": (2, 5, 6)[number], "power": 14,
            "power-max": 20, "power-min": 5, "bandwidth": 20, "available-channels": str(channels[number]),
            "mac-offset": 16 * number, "radio-mac-count": 16, "locked-for-balancer": 0, "locked-for-80211v": 0,
            "vaps": [{"id": 0, "ssid": "staff", "802dot11k": 1}], **changes}


def envelope(command, mac, **fields):
    return {"service": "rrm", "version": "2.4", "cmd": command, "ap-mac": mac, "domain": "lab", **fields}


def subscribe_request(mac, **changes):
    fields = {"factory": {"board": "B", "hw": "1", "serial": "S", "mac": mac}, "ap-mac-count": 48,
              "radios": [radio(0), radio(1)]}
    message = envelope("subscribe-request", mac, **fields)
    message.update(changes)
    return {key: value for key, value in message.items() if value is not None}


class AccessPoint:
    """One session with an address of its own."""

    def __init__(self, session, mac=None):
        self.session = session
        self.mac = mac or new_mac()

    @classmethod
    async def connect(cls, port, mac=None, path="/apb/rrm", subprotocols=("websock-rrm",)):
        session = await websockets.connect(f"ws://127.0.0.1:{port}{path}", subprotocols=list(subprotocols) or None,
                                           max_size=None, ping_interval=None, open_timeout=PATIENCE,
                                           close_timeout=PATIENCE)
        return cls(session, mac)

    async def send(self, message):
        await self.session.send(message if isinstance(message, (str, bytes, list)) else json.dumps(message))

    async def answer(self):
        return json.loads(await asyncio.wait_for(self.session.recv(), PATIENCE))

    async def subscribe(self, **changes):
        """Sends a subscription and returns the next message, which must be its answer."""
        await self.send(subscribe_request(self.mac, **changes))
        return await self.answer()

    async def ask(self):
        """A change of configuration, whose answer is direct."""
        await self.send(envelope("rrm-config-changed", self.mac, radios=[radio(0), radio(1)]))
        return await self.answer()

    async def closed(self):
        """Waits for the server to close; returns code and reason."""
        await asyncio.wait_for(self.session.wait_closed(), PATIENCE)
        return self.session.close_code, self.session.close_reason

    async def close(self):
        await self.session.close()


class BareSocket:
    """A TCP connection on which a test writes its own bytes."""

    def __init__(self, reader, writer):
        self.reader = reader
        self.writer = writer

    @classmethod
    async def connect(cls, port):
        return cls(*await asyncio.open_connection("127.0.0.1", port))

    @classmethod
    async def upgraded(cls, port):
        bare = await cls.connect(port)
        key = base64.b64encode(os.urandom(16)).decode()
        await bare.write((f"GET /apb/rrm HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nUpgrade: websocket\r\n"
                          f"Connection: Upgrade\r\nSec-WebSocket-Key: {key}\r\nSec-WebSocket-Version: 13\r\n"
                          "Sec-WebSocket-Protocol: websock-rrm\r\n\r\n").encode())
        head = await asyncio.wait_for(bare.reader.readuntil(b"\r\n\r\n"), PATIENCE)
        if not head.startswith(b"HTTP/1.1 101 "):
            raise AssertionError(head)
        return bare

    async def write(self, data):
        self.writer.write(data)
        await self.writer.drain()

    async def read_frame(self, seconds=PATIENCE):
        """First byte and payload of the next frame, which a server does not mask; None waits for ever."""
        first, length = await asyncio.wait_for(self.reader.readexactly(2), seconds)
        if length == 126:
            length, = struct.unpack("!H", await self.reader.readexactly(2))
        elif length == 127:
            length, = struct.unpack("!Q", await self.reader.readexactly(8))
        return first, await asyncio.wait_for(self.reader.readexactly(length), PATIENCE)

    async def rest(self):
        """What still comes until the server closes the connection."""
        try:
            return await asyncio.wait_for(self.reader.read(), PATIENCE)
        except ConnectionResetError:
            return b""

    async def close(self):
        self.writer.close()
        try:
            await self.writer.wait_closed()
        except OSError:
            pass


def frame(payload, first=0x81, masked=True, announced=None):
    """A frame as a client writes it: `first` is FIN, RSV and opcode; `announced` a length other than the payload's."""
    length = len(payload) if announced is None else announced
    bit = 0x80 if masked else 0
    if length < 126:
        head = struct.pack("!BB", first, bit | length)
    elif length < 65536:
        head = struct.pack("!BBH", first, bit | 126, length)
    else:
        head = struct.pack("!BBQ", first, bit | 127, length)
    return head + (b"\0\0\0\0" if masked else b"") + payload  # a mask of zeros leaves the payload as it is
