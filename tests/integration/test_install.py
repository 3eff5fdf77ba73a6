"""What `cmake --install` puts in place, and that it works there: the controller finds the daemon beside itself."""

import os
import re
import subprocess
import sys
import tempfile
import unittest

from daemon import QUIET, Daemon

CMAKE, BUILD = (sys.argv.pop(1) for _ in range(2))


class InstallTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="zal-install-")
        self.addCleanup(directory.cleanup)
        self.prefix = directory.name
        subprocess.run([CMAKE, "--install", BUILD, "--prefix", self.prefix], stdout=subprocess.DEVNULL, timeout=60, check=True)

    def test_puts_programs_and_manual_pages_in_place(self):
        files = {os.path.relpath(os.path.join(folder, name), self.prefix) for folder, _, names in os.walk(self.prefix)
                 for name in names}
        self.assertEqual(files, {"bin/zal_rrm", "bin/zal_controller", "bin/zalctl", "share/man/man1/zal_controller.1",
                                 "share/man/man1/zalctl.1"})

    def test_the_installed_controller_starts_the_daemon_beside_it(self):
        daemon = Daemon(os.path.join(self.prefix, "bin", "zal_controller"), None, QUIET)
        self.addCleanup(daemon.directory.cleanup)
        pid = re.search(r"^zal_rrm started, pid (\d+)$", daemon.output(), re.MULTILINE)[1]
        self.assertEqual(os.readlink(f"/proc/{pid}/exe"), os.path.join(self.prefix, "bin", "zal_rrm"))
        daemon.stop()


if __name__ == "__main__":
    unittest.main(verbosity=2)
