"""The address at which access points find the present master of a pair: a relay on the loopback that leads to one
server at a time, and that reads along, so that a test knows what every access point said and was told, and when."""

import asyncio
import json
import threading
import time
from typing import NamedTuple

OPCODE_CONTINUATION, OPCODE_TEXT = 0, 1


class Message(NamedTuple):
    """`at` is by the monotonic clock; `port` is that of the server at the other end."""
    at: float
    port: int
    mac: str
    to_ap: bool
    content: dict

    @property
    def command(self):
        return self.content.get("cmd")


class TextReader:
    """Takes the bytes of one direction of a WebSocket connection as they come, and returns the texts that are whole."""

    def __init__(self):
        self.upgraded = False
        self.rest = bytearray()
        self.text = bytearray()

    def feed(self, data):
        self.rest += data
        if not self.upgraded:
            head, end, behind = self.rest.partition(b"\r\n\r\n")
            if not end:
                return []
            if b"sec-websocket-extensions" in head.lower():
                raise ValueError("nobody can read along when the texts are compressed")
            self.upgraded, self.rest = True, behind
        return list(self._texts())

    def _texts(self):
        while frame := self._take_frame():
            final, opcode, payload = frame
            if opcode not in (OPCODE_CONTINUATION, OPCODE_TEXT):
                continue
            self.text += payload
            if final:
                yield self.text.decode()
                self.text.clear()

    def _take_frame(self):
        if len(self.rest) < 2:
            return None
        first, second = self.rest[:2]
        length, at = second & 0x7F, 2
        if length >= 126:
            at += 2 if length == 126 else 8
            length = int.from_bytes(self.rest[2:at], "big")
        mask = self.rest[at:at + 4] if second & 0x80 else b"\0\0\0\0"
        at += 4 if second & 0x80 else 0
        if len(self.rest) < at + length:
            return None
        payload = bytes(byte ^ mask[i % 4] for i, byte in enumerate(self.rest[at:at + length]))
        del self.rest[:at + length]
        return first & 0x80 != 0, first & 0x0F, payload


class Session:
    """One connection of an access point and the one behind it."""

    def __init__(self, port, writers):
        self.port = port
        self.writers = writers
        self.mac = None

    def close(self):
        for writer in self.writers:
            writer.close()


class VirtualAddress:
    """Leads nowhere at first: whoever connects is turned away. Its connections live on a thread of its own."""

    def __init__(self):
        self._target = None
        self._admits = True
        self._sessions = set()
        self._tasks = set()
        self._messages = []
        self._faults = []
        self._loop = asyncio.new_event_loop()
        self._thread = threading.Thread(target=self._loop.run_forever)
        self._thread.start()
        self._server = self._call(asyncio.start_server(self._serve, "127.0.0.1", 0))
        self.port = self._server.sockets[0].getsockname()[1]

    def lead_to(self, port):
        """To the server on this port, or nowhere. All connections end."""
        self._target = port
        self._call(self._end_sessions(lambda session: True))

    def admit(self, admits):
        """While it admits nobody, those that connect are turned away; those that are connected stay."""
        self._admits = admits

    def cut_off(self, mac):
        """Ends the connection of one access point."""
        self._call(self._end_sessions(lambda session: session.mac == mac))

    def messages(self, since=0.0):
        return [message for message in list(self._messages) if message.at >= since]

    def close(self):
        """Raises if anything passed that could not be read."""
        self._call(self._shut_down())
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join()
        self._loop.close()
        if self._faults:
            raise AssertionError(f"the virtual address could not read along: {self._faults}")

    def _call(self, coroutine):
        return asyncio.run_coroutine_threadsafe(coroutine, self._loop).result(20)

    async def _end_sessions(self, chosen):
        for session in [session for session in self._sessions if chosen(session)]:
            session.close()

    async def _shut_down(self):
        self._server.close()
        await self._end_sessions(lambda session: True)
        await asyncio.gather(*self._tasks)

    async def _serve(self, reader, writer):
        task = asyncio.current_task()
        self._tasks.add(task)
        try:
            port = self._target
            if port is None or not self._admits:
                return
            server_reader, server_writer = await asyncio.open_connection("127.0.0.1", port)
            session = Session(port, (writer, server_writer))
            self._sessions.add(session)
            if port != self._target:  # it has moved on meanwhile
                session.close()
            await asyncio.gather(self._relay(reader, server_writer, session, False),
                                 self._relay(server_reader, writer, session, True))
            self._sessions.discard(session)
        except OSError:
            pass  # the server is gone, which the access point learns from the end of its connection
        finally:
            writer.close()
            self._tasks.discard(task)

    async def _relay(self, reader, writer, session, to_ap):
        texts = TextReader()
        try:
            while data := await reader.read(65536):
                for text in texts.feed(data):
                    self._note(session, to_ap, text)
                writer.write(data)
                await writer.drain()
        except OSError:
            pass  # either side has gone; the other one learns it now
        except ValueError as fault:
            self._faults.append(fault)
        finally:
            session.close()

    def _note(self, session, to_ap, text):
        content = json.loads(text)
        session.mac = session.mac or content["ap-mac"].lower()
        self._messages.append(Message(time.monotonic(), session.port, session.mac, to_ap, content))
