"""The real daemon under the small controller, in a state directory of its own and on a port of its own."""

import json
import os
import random
import re
import signal
import socket
import subprocess
import tempfile
import time

# A domain in which nothing starts by itself, so that only answers travel.
QUIET = {
    "common": {"use_dca": 0},
    "patterns": [{"pattern": "quiet", "use_dca": 0, "use_tpc": 0, "use_balance": 0, "use_80211k": 0, "use_80211r": 0,
                  "use_80211v": 0}],
    "domains": [{"domain": "lab", "pattern": "quiet", "time_zone": "0:00"}],
}


def free_port():
    """A port that was free a moment ago, and is none of those that the kernel hands to connecting clients: a test beside
    this one may open a thousand."""
    for port in random.sample(range(20000, 32000), 100):
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue
    raise AssertionError("no free port")


class Daemon:
    """Started by the constructor with a setup, which returns when access points can connect; ended by stop()."""

    def __init__(self, controller, daemon, setup):
        self.directory = tempfile.TemporaryDirectory(prefix="zal-wire-")
        self.port = free_port()
        setup_path = os.path.join(self.directory.name, "setup.json")
        with open(setup_path, "w", encoding="utf-8") as file:
            json.dump({**setup, "global": {**setup.get("global", {}), "enabled": 1, "listen_port": self.port}}, file)
        self.output_path = os.path.join(self.directory.name, "controller.out")
        with open(self.output_path, "wb") as output:
            self.process = subprocess.Popen(
                [controller, "--state", os.path.join(self.directory.name, "state"), "--setup", setup_path, "--vrrp", "1",
                 "--daemon", daemon],
                stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
        self._await_listener()

    def output(self):
        with open(self.output_path, encoding="utf-8", errors="replace") as file:
            return file.read()

    def stop(self):
        """Orders the end; the output must show one start and one end with status 0."""
        self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(60)
        output = self.output()
        self.directory.cleanup()
        starts = re.findall(r"^zal_rrm started, pid (\d+)$", output, re.MULTILINE)
        ends = re.findall(r"^zal_rrm, pid (\d+), ended with (.*)$", output, re.MULTILINE)
        if status != 0 or len(starts) != 1 or ends != [(starts[0], "status 0")]:
            raise AssertionError(f"the controller ended with {status}, the daemon not as it should:\n{output}")

    def _await_listener(self):
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and self.process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", self.port), 1).close()
                return
            except OSError:
                time.sleep(0.05)
        output = self.output()
        self.process.kill()
        self.process.wait()
        self.directory.cleanup()
        raise AssertionError("nobody listens:\n" + output)
