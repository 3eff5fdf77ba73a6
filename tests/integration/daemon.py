"""The real daemon under the small controller, in a state directory of its own and on a port of its own."""

import contextlib
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
    """Started by the constructor with a setup, which returns when the daemon serves: as master (vrrp 0 and 1) when access
    points can connect, otherwise when it answers. Ended by stop(), or by kill() as a crash would. `state` is its state
    directory, `port` the access points' port. `prefix` stands before the controller's command, for a network namespace of
    its own; there whoever holds the address can say when it serves, and nothing is awaited but the answer."""

    def __init__(self, controller, daemon, setup, vrrp=1, port=None, prefix=()):
        self.directory = tempfile.TemporaryDirectory(prefix="zal-wire-")
        self.state = os.path.join(self.directory.name, "state")
        self.port = port or free_port()
        self.zalctl_program = os.path.join(os.path.dirname(controller), "zalctl")
        setup_path = os.path.join(self.directory.name, "setup.json")
        with open(setup_path, "w", encoding="utf-8") as file:
            json.dump({**setup, "global": {**setup.get("global", {}), "enabled": 1, "listen_port": self.port}}, file)
        self.output_path = os.path.join(self.directory.name, "controller.out")
        self._command = [*prefix, controller, "--state", self.state, "--setup", setup_path]
        if daemon:  # otherwise the one beside the controller
            self._command += ["--daemon", daemon]
        self._start(vrrp, self._listens if vrrp < 2 and not prefix else self._answers)

    def start_again(self, vrrp):
        """After kill(), a new controller with a new daemon on the state directory as it was left; returns when it answers."""
        self._start(vrrp, self._answers)

    def _start(self, vrrp, serves):
        with open(self.output_path, "wb") as output:
            self.process = subprocess.Popen([*self._command, "--vrrp", str(vrrp)], stdout=output, stderr=subprocess.STDOUT,
                                            stdin=subprocess.DEVNULL)
        try:
            self._await("does not serve", serves)
        except BaseException:
            self.process.kill()
            self.process.wait()
            self.directory.cleanup()
            raise

    def output(self):
        with open(self.output_path, encoding="utf-8", errors="replace") as file:
            return file.read()

    def zalctl(self, *arguments):
        """What zalctl answers with --json, parsed; raises with its words if it fails."""
        run = subprocess.run([self.zalctl_program, "--state", self.state, "--json", *arguments], capture_output=True,
                             text=True, timeout=60, check=False)
        if run.returncode != 0:
            raise RuntimeError(f"zalctl {' '.join(arguments)}: {run.stderr.strip()}")
        return json.loads(run.stdout) if run.stdout.strip() else None

    def stop(self, kills=0):
        """Orders the end; the output must show one start and one end with status 0, and so many kills before."""
        self.process.send_signal(signal.SIGTERM)
        status = self.process.wait(60)
        output = self.output()
        self.directory.cleanup()
        starts = re.findall(r"^zal_rrm started, pid (\d+)$", output, re.MULTILINE)
        ends = re.findall(r"^zal_rrm, pid (\d+), (ended with status \d+|was killed by signal \d+)", output, re.MULTILINE)
        wanted = ["was killed by signal 9"] * kills + ["ended with status 0"]
        if status != 0 or ends != list(zip(starts, wanted, strict=False)) or len(starts) != len(wanted):
            raise AssertionError(f"the controller ended with {status}, the daemon not as it should:\n{output}")

    def kill(self):
        """Ends the controller first, which so cannot tell the daemon anything nor start another, then the daemon, each by
        SIGKILL. The state directory stays."""
        pid = int(re.findall(r"^zal_rrm started, pid (\d+)$", self.output(), re.MULTILINE)[-1])
        self.process.kill()
        with contextlib.suppress(ProcessLookupError):  # it dies with its controller
            os.kill(pid, signal.SIGKILL)
        self.process.wait()

    def _listens(self):
        try:
            socket.create_connection(("127.0.0.1", self.port), 1).close()
            return True
        except OSError:
            return False

    def _answers(self):
        try:
            return self.zalctl("status")["role"] in ("master", "backup")
        except RuntimeError:
            return False

    def _await(self, complaint, condition):
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and self.process.poll() is None:
            if condition():
                return
            time.sleep(0.05)
        raise AssertionError(f"zal_rrm {complaint}:\n{self.output()}")
