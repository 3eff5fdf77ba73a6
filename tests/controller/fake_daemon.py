#!/usr/bin/python3
"""A daemon that behaves as FAKE_DAEMON tells, to see what the controller does about it. It also shows how little it takes
to join the bus.

  alarms   raises two alarms, answers message 173 with a reply and every other one with error 4
  deaf     runs, and does not end when it is ordered to
  dying    ends with status 7 at once
  mute     runs, and answers nothing
  scripted answers as the JSON file FAKE_SCRIPT tells, an object of types to the frame that answers them, null for none;
           a type that is not in it is answered with error 4. Prints every frame that it serves
"""
import json
import os
import signal
import socket
import struct
import sys


def send(bus, **fields):
    payload = json.dumps(fields).encode()
    bus.sendall(struct.pack("<I", len(payload)) + payload)


def read_exactly(bus, count):
    data = b""
    while len(data) < count:
        part = bus.recv(count - len(data))
        if not part:
            sys.exit(0)
        data += part
    return data


def receive(bus):
    (length,) = struct.unpack("<I", read_exactly(bus, 4))
    return json.loads(read_exactly(bus, length))


def answer(bus, frame):
    if "id" not in frame:
        return
    if frame["type"] == 173:
        send(bus, type=174, id=frame["id"], role=1, result=1)
    send(bus, type=1004, id=frame["id"], error=0 if frame["type"] == 173 else 4)


def answer_by_script(bus, frame):
    with open(os.environ["FAKE_SCRIPT"]) as file:
        script = json.load(file)
    asker = frame.pop("id", None)
    print(json.dumps(frame, separators=(",", ":")), flush=True)
    reply = script.get(str(frame["type"]))
    if asker is None:
        return
    if reply:
        send(bus, id=asker, **reply)
    send(bus, type=1004, id=asker, error=0 if str(frame["type"]) in script else 4)


def main():
    behaviour = os.environ["FAKE_DAEMON"]
    if behaviour == "dying":
        sys.exit(7)
    if behaviour == "deaf":
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
    bus = socket.socket(socket.AF_UNIX)
    bus.connect(os.environ["ZAL_BUS"])
    send(bus, type=1000, port=8, pid=os.getpid(), running=False)
    send(bus, type=1001)
    while receive(bus)["type"] != 1002:
        pass
    if behaviour == "alarms":
        send(bus, type=1003, location="office", status=3)
        send(bus, type=1003, location="hall", status=0)
    while True:
        frame = receive(bus)
        if frame["type"] == 33 and behaviour != "deaf":
            sys.exit(0)
        if behaviour == "alarms":
            answer(bus, frame)
        if behaviour == "scripted":
            answer_by_script(bus, frame)


main()
