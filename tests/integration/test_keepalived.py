"""Debian's VRRP daemon, keepalived, drives the roles of a pair, and the access points follow the virtual address.

Two hosts and the access points' network are network namespaces, joined by a bridge. All of it, processes, namespaces,
mounts and files, lives in namespaces of this test, and ends with it however it ends; the machine's own network is not
touched."""

import contextlib
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from daemon import Daemon
from pair import DOMAIN, IDLE, MACS, BackupCopier, Member, await_that, setup, site

CONTROLLER, DAEMON, APSIM = sys.argv[1:4]
INSIDE = "--inside"
SKIPPED = 77  # what CTest takes for skipped

VIRTUAL_ADDRESS = "10.77.0.10"
PORT = 8099
SYSTEM_PATH = "/usr/local/sbin:/usr/sbin:/sbin:/usr/local/bin:/usr/bin:/bin"
KEEPALIVED = shutil.which("keepalived", path=SYSTEM_PATH)

KEEPALIVED_CONF = """\
global_defs {{
    router_id {name}
    script_user root
}}
vrrp_script zal_rrm {{
    script "{zalctl} --state {state} api groups"
    interval 1
    timeout 3
    fall 3
    rise 1
}}
vrrp_instance zal {{
    state BACKUP
    interface eth0
    virtual_router_id 51
    priority {priority}
    advert_int 1
    virtual_ipaddress {{
        {virtual_address}/24
    }}
    track_script {{
        zal_rrm
    }}
    notify_master "{zalctl} --state {state} vrrp 1"
    notify_backup "{zalctl} --state {state} vrrp 2"
    notify_fault "{zalctl} --state {state} vrrp 2"
    notify_stop "{zalctl} --state {state} vrrp 2"
}}
"""


def ip(*arguments):
    return subprocess.run(["ip", *arguments], capture_output=True, text=True, check=True).stdout


class Machine:
    """A network namespace with one interface, eth0, plugged into the bridge "lan"."""

    def __init__(self, name, address):
        self.name = name
        self.address = address
        self.within = ["nsenter", f"--net=/run/netns/{name}"]
        self.switch_on()

    def switch_on(self):
        ip("netns", "add", self.name)
        ip("link", "add", self.name, "type", "veth", "peer", "name", "eth0", "netns", self.name)
        ip("link", "set", self.name, "master", "lan", "up")
        ip("-n", self.name, "link", "set", "lo", "up")
        ip("-n", self.name, "address", "add", self.address + "/24", "dev", "eth0")
        ip("-n", self.name, "link", "set", "eth0", "up")

    def unplug(self):
        ip("link", "set", self.name, "down")

    def switch_off(self):
        """Requires: no process in it. The kernel may still hold connections there, but they lead nowhere."""
        ip("link", "delete", self.name)
        ip("netns", "delete", self.name)


class Host(Member):
    """One of the pair: its machine with a controller, its daemon and, once started, keepalived."""

    def __init__(self, name, address, priority):
        self.machine = Machine(name, address)
        super().__init__(Daemon(CONTROLLER, DAEMON, setup(away_timeout=300), vrrp=2, port=PORT, prefix=self.machine.within))
        self.name = name
        self.directory = self.daemon.directory.name
        self.keepalived = None
        with open(self._path("keepalived.conf"), "w", encoding="utf-8") as file:
            file.write(KEEPALIVED_CONF.format(name=name, priority=priority, virtual_address=VIRTUAL_ADDRESS,
                                              zalctl=self.daemon.zalctl_program, state=self.daemon.state))

    def start_keepalived(self):
        with open(self._path("keepalived.log"), "ab") as log:
            self.keepalived = subprocess.Popen(
                [*self.machine.within, KEEPALIVED, "--vrrp", "--dont-fork", "--no-syslog", "--log-console", "--log-detail",
                 "--use-file", self._path("keepalived.conf"), "--pid", self._path("keepalived.pid"), "--vrrp_pid",
                 self._path("vrrp.pid")], stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)

    def stop_keepalived(self):
        if self.keepalived:
            self.keepalived.terminate()
            status = self.keepalived.wait(30)
            self.keepalived = None
            if status != 0:
                raise AssertionError(f"keepalived on {self.name} ended with {status}:\n{self.keepalived_log()}")

    def lose_power(self):
        """Everything ends, and nobody hears of it."""
        self.machine.unplug()
        with open(self._path("vrrp.pid"), encoding="utf-8") as file:
            vrrp = int(file.read())
        self.keepalived.send_signal(signal.SIGSTOP)  # it would start its child anew, or its end would tell the child
        os.kill(vrrp, signal.SIGKILL)
        self.keepalived.kill()
        self.keepalived.wait()
        self.keepalived = None
        os.waitpid(vrrp, 0)  # an orphan of this first process
        self.kill()
        self.machine.switch_off()
        for name in ("keepalived.pid", "vrrp.pid"):  # as a machine's /run is empty when it starts
            os.remove(self._path(name))

    def return_of_power(self):
        self.machine.switch_on()
        self.start_controller()

    def start_controller(self):
        """After kill(), with the role that the address tells: keepalived, where it runs, may not have noticed a thing."""
        self.daemon.start_again(vrrp=1 if self.has_address() else 2)
        self.lives = True

    def signal_daemon(self, number):
        os.kill(self.daemon.zalctl("status")["pid"], number)

    def has_address(self):
        return VIRTUAL_ADDRESS in ip("-n", self.name, "-4", "address", "show", "dev", "eth0")

    def role(self):
        return self.daemon.zalctl("status")["role"]

    def sessions(self):
        return self.daemon.zalctl("api", "sessions")["websock-sessions"]

    def keepalived_log(self):
        with open(self._path("keepalived.log"), encoding="utf-8") as file:
            return file.read()

    def _path(self, name):
        return os.path.join(self.directory, name)


class KeepalivedTest(unittest.TestCase):
    def setUp(self):
        ip("link", "add", "lan", "type", "bridge")
        ip("link", "set", "lan", "up")
        self.copier = None
        self.first, self.second = self.hosts = [self.host("first", "10.77.0.1", 150), self.host("second", "10.77.0.2", 100)]
        self.addCleanup(self.stop_copying)

    def host(self, name, address, priority):
        host = Host(name, address, priority)
        self.addCleanup(host.end)
        self.addCleanup(host.stop_keepalived)
        return host

    def test_the_roles_and_the_access_points_follow_the_virtual_address(self):
        self.first.start_keepalived()
        self.second.start_keepalived()
        self.await_master(self.first)
        self.start_access_points()
        self.keep_in_step(self.first, self.second)
        planned = self.await_plan(self.first, self.second)

        with self.takes_over(self.first, "its controller died and was started again", planned):
            self.first.kill()
            self.first.start_controller()

        self.stop_copying()
        with self.takes_over(self.second, "its peer lost power", planned):
            self.first.lose_power()
        self.first.return_of_power()
        self.assertEqual(self.first.role(), "backup")

        self.keep_in_step(self.second, self.first)
        with self.takes_over(self.first, "it is back, with the higher priority", planned):
            self.first.start_keepalived()
        self.await_standby(self.second)

        self.keep_in_step(self.first, self.second)
        with self.takes_over(self.second, "the keepalived of its peer was stopped", planned):
            self.first.stop_keepalived()
        self.await_standby(self.first)

        self.keep_in_step(self.second, self.first)
        with self.takes_over(self.first, "its keepalived runs again", planned):
            self.first.start_keepalived()
        self.await_standby(self.second)

        self.keep_in_step(self.first, self.second)
        with self.takes_over(self.second, "the daemon of its peer hangs", planned):
            self.first.signal_daemon(signal.SIGSTOP)

        self.keep_in_step(self.second, self.first)
        with self.takes_over(self.first, "its daemon goes on", planned):
            self.first.signal_daemon(signal.SIGCONT)
        self.await_standby(self.second)

    # What the hosts are to be

    def await_master(self, host):
        self.await_that(lambda: self.holders() == [host] and host.role() == "master", f"{host.name} is master")

    def await_standby(self, host):
        self.await_that(lambda: host.role() == "backup", f"{host.name} is standby")
        self.assertEqual((host.sessions(), host.group()), ([], None))

    @contextlib.contextmanager
    def takes_over(self, host, reason, planned):
        """What happens within makes the host master of all access points, and changes nothing at them."""
        began = time.monotonic()
        yield
        self.await_master(host)
        promoted = time.monotonic()
        self.await_all_served(host)
        print(f"{host.name}: {reason}; master after {promoted - began:.1f} s, all {len(MACS)} access points served after "
              f"{time.monotonic() - began:.1f} s", flush=True)
        self.assertEqual(host.picture(), planned)

    def await_all_served(self, host):
        self.await_that(lambda: host.counts() == (len(MACS), 0, 0) and len(host.sessions()) == len(MACS),
                        f"all access points are with {host.name}")

    def holders(self):
        return [host for host in self.hosts if host.lives and host.has_address()]

    def await_plan(self, master, standby):
        """The picture of the first plan, once the standby's backup has all of it."""
        self.await_that(lambda: os.path.exists(os.path.join(self.plans, "plan.json")), "the first plan is made")
        self.await_that(lambda: standby.saved() == (IDLE, [], master.picture()), "the plan is in the standby's backup")
        radios, keys = planned = master.picture()
        self.assertEqual((sorted(radios), sorted(keys)), (MACS, MACS))
        for radio in range(3):  # no radio is as its neighbours are, so that a plan that was lost would show
            self.assertGreater(len({radios[mac][radio][0] for mac in MACS}), 1)
        self.assertEqual(len({key for vaps in keys.values() for _, _, key, _ in vaps.values()}), 3 * len(MACS))
        return planned

    # What is around them

    def start_access_points(self):
        access_points = Machine("aps", "10.77.0.100")
        directory = self.enterContext(tempfile.TemporaryDirectory(prefix="zal-vrrp-"))
        self.plans = os.path.join(directory, "plans")
        path = os.path.join(directory, "site.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(site(), file)
        simulation = subprocess.Popen(
            [*access_points.within, APSIM, "--site", path, "--out", self.plans, "--server",
             f"ws://{VIRTUAL_ADDRESS}:{PORT}/apb/rrm"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(simulation.wait, 30)
        self.addCleanup(simulation.terminate)

    def keep_in_step(self, master, standby):
        """From now on; returns when the standby has what the master has."""
        self.stop_copying()
        self.copier = BackupCopier(master.backups, standby.backups)
        self.await_that(lambda: master.saved() == standby.saved(), f"{standby.name} has the backup of {master.name}")

    def stop_copying(self):
        if self.copier:
            self.copier.stop()
            self.copier = None

    def await_that(self, condition, what):
        try:
            return await_that(condition, what)
        except AssertionError as failure:
            logs = "".join(f"\n{host.name}:\n{host.keepalived_log()}" for host in self.hosts)
            raise AssertionError(f"{failure}{logs}") from None


def enter_namespaces():
    """Goes on as the first process of namespaces of its own. Ends as skipped where there is nothing to test with."""
    if not KEEPALIVED:
        skip("keepalived is not installed")
    reasons = []
    for as_root in ([], ["--user", "--map-root-user", "--map-auto"]):
        command = ["unshare", *as_root, "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
        # keepalived sets the groups of the scripts that it runs, which a user namespace without mapped groups forbids.
        run = subprocess.run([*command, sys.executable, "-c", "import os; os.setgroups([0])"], capture_output=True, text=True,
                             check=False)
        if run.returncode == 0:
            os.execvp(command[0], [*command, sys.executable, *sys.argv, INSIDE])
        reasons.append(run.stderr.strip())
    skip("no network namespaces in which keepalived can run scripts:\n" + "\n".join(reasons))


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


if __name__ == "__main__":
    if sys.argv[-1] != INSIDE:
        enter_namespaces()
    # Below /run ip names its namespaces. So it is a directory of this test's own, in memory, and all its files go there.
    subprocess.run(["mount", "-t", "tmpfs", "zal-test", "/run"], check=True)
    tempfile.tempdir = "/run"
    unittest.main(argv=sys.argv[:1], verbosity=2)
