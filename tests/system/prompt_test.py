# SPDX-License-Identifier: BSD-3-Clause
"""What documents show at testpmd's prompt is what testpmd prints."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from document import blocks, commands

SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])
sys.path.insert(0, str(SOURCE / "tests" / "system"))

from testpmd import Testpmd  # noqa: E402

CAPTURE = SOURCE / "tests" / "data" / "iperf3.pcap"
FRAMES = 3585


def session(path):
    """(command, lines that it prints) of all blocks at the prompt, in order."""
    for kind, block in blocks((SOURCE / path).read_text(encoding="utf-8")):
        if kind == "testpmd":
            yield from commands(kind, block)


class Prompt(unittest.TestCase):
    def follow(self, path, *options):
        steps = list(session(path))
        self.assertGreater(len(steps), 5)
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        with Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture",
                      f"net_pcap0,rx_pcap={CAPTURE},tx_pcap={folder.name}/out.pcap"], options) as t:
            for command, shown in steps:
                if command == "start":
                    self.assertEqual(shown, ["..."])
                    self.assertEqual(t.forward(0, FRAMES), FRAMES)
                    continue
                printed = [x for x in t.run(command) if not x.startswith("[offload_smartnic]")]
                self.assertEqual(printed, shown, command)

    def test_readme(self):
        """On the set-up that run.sh gives it."""
        with tempfile.NamedTemporaryFile() as setup:
            subprocess.run([os.environ["VASK_METER"], "testpmd", SOURCE / "examples/metered-port.cfg", "-o",
                            setup.name], check=True)
            self.follow("README.md", "--cmdline-file", setup.name)

    def test_tutorial_first_meter(self):
        self.follow("doc/tutorials/first_meter.md")


if __name__ == "__main__":
    unittest.main()
