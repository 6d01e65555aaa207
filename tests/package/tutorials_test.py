#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Each tutorial from its first line to its last, in a fresh root with a clean clone."""

import os
import pathlib
import shutil
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])
FOLDER = pathlib.Path(os.environ["VASK_BUILD"]) / "package"
CLONE = "/root/vask1-meter"
FRAMES = 3585
sys.path[:0] = [str(SOURCE / "tests" / "system"), str(SOURCE / "tests" / "package")]

from document import Shell, blocks, commands, matches  # noqa: E402
from root import Root  # noqa: E402
from testpmd import Testpmd  # noqa: E402


def setUpModule():
    if os.getuid() != 0 or not shutil.which("debootstrap"):
        raise unittest.SkipTest("needs root, and debootstrap")


class FreshRoot(unittest.TestCase):
    def follow(self, path):
        root = Root(FOLDER, "tutorial")
        self.addCleanup(root.remove)
        subprocess.run(["git", "clone", "--quiet", "--no-hardlinks", SOURCE, str(root.path) + CLONE], check=True)
        shell = Shell(prefix=root.command(folder=CLONE), timeout=1800)
        self.addCleanup(shell.close)
        for kind, block in blocks((root.path / CLONE[1:] / path).read_text(encoding="utf-8")):
            if kind == "testpmd":
                self.prompt(root, block)
            if kind not in ("sh", "console"):
                continue
            for command, documented in commands(kind, block):
                printed = shell.run(command, documented)
                if kind == "sh":
                    self.assertEqual(shell.status, 0, f"{command}\n{printed}")
                elif not matches(printed, documented):
                    self.assertEqual(printed.split("\n"), documented, command)

    def prompt(self, root, block):
        """A block at the prompt of the testpmd that the tutorial says how to start."""
        script = FOLDER / "tutorial-testpmd"
        root.testpmd(script, "env", f"LD_LIBRARY_PATH={CLONE}/build/drivers", "dpdk-testpmd", "-d",
                     "librte_net_vask1.so")
        os.environ["VASK_TESTPMD"] = str(script)
        self.addCleanup(os.environ.pop, "VASK_TESTPMD")
        with Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture",
                      f"net_pcap0,rx_pcap={CLONE}/tests/data/iperf3.pcap,tx_pcap=/tmp/out.pcap"]) as t:
            for command, documented in commands("testpmd", block):
                if command == "start":
                    t.forward(0, FRAMES)
                    continue
                printed = [line for line in t.run(command) if not line.startswith("[offload_smartnic]")]
                self.assertEqual(printed, documented, command)

    def test_choosing_parameters(self):
        self.follow("doc/tutorials/choosing_parameters.md")

    def test_p4_control_plane(self):
        self.follow("doc/tutorials/p4_control_plane.md")

    def test_first_meter(self):
        self.follow("doc/tutorials/first_meter.md")


if __name__ == "__main__":
    unittest.main()
