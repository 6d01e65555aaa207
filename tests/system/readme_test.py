# SPDX-License-Identifier: BSD-3-Clause
"""What the README shows at testpmd's prompt is what testpmd prints."""

import os
import pathlib
import re
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])
sys.path.insert(0, str(SOURCE / "tests" / "system"))

from testpmd import Testpmd  # noqa: E402

CAPTURE = SOURCE / "tests" / "data" / "iperf3.pcap"
FRAMES = 3585
BLOCK = re.compile(r"^```testpmd\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def session(text):
    """(command, lines that it prints) of all testpmd blocks, in order; None for lines of three dots."""
    for block in BLOCK.findall(text):
        for part in re.split(r"^testpmd> ", block, flags=re.MULTILINE)[1:]:
            command, *printed = part.rstrip("\n").split("\n")
            yield command, None if printed == ["..."] else printed


class Readme(unittest.TestCase):
    def test_the_session_at_the_prompt_prints_what_the_readme_shows(self):
        steps = list(session((SOURCE / "README.md").read_text(encoding="utf-8")))
        self.assertGreater(len(steps), 8)
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        with Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture",
                      f"net_pcap0,rx_pcap={CAPTURE},tx_pcap={folder.name}/out.pcap"]) as t:
            for command, shown in steps:
                if command == "start":
                    self.assertIsNone(shown)
                    self.assertEqual(t.forward(0, FRAMES), FRAMES)
                    continue
                printed = [x for x in t.run(command) if not x.startswith("[offload_smartnic]")]
                self.assertEqual(printed, shown, command)


if __name__ == "__main__":
    unittest.main()
