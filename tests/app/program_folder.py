# SPDX-License-Identifier: BSD-3-Clause
"""A folder in which vask-meter is run, and what it must say and leave behind when it refuses."""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

TESTS = pathlib.Path(os.environ["VASK_SOURCE"]) / "tests"
VASK_METER = os.environ["VASK_METER"]
IMAGE = (TESTS / "data" / "iperf3.pcap").read_bytes()
EXAMPLE = (TESTS.parent / "examples" / "metered-port.cfg").read_text(encoding="ascii")


class Folder(unittest.TestCase):
    """Each case runs in a folder of its own, which holds good input."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.write("c.cfg", EXAMPLE)
        self.write("in.pcap", IMAGE)

    def write(self, name, content):
        if isinstance(content, str):
            content = content.encode()
        (self.folder / name).write_bytes(content)

    def run_(self, *args, **options):
        return subprocess.run([VASK_METER, *args], cwd=self.folder, check=False, timeout=120,
                              **{"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                                 "stderr": subprocess.PIPE, "text": True, **options})

    def refused(self, code, line, *args, **options):
        """Runs it: exactly this line (or one that matches a pattern), and the folder is as before."""
        before = {p: p.read_bytes() for p in self.folder.iterdir() if p.is_file()}
        done = self.run_(*args, **options)
        if isinstance(line, re.Pattern):
            self.assertRegex(done.stderr, re.compile(f"^vask-meter: {line.pattern}\n$"))
        else:
            self.assertEqual(done.stderr, f"vask-meter: {line}\n")
        self.assertEqual(done.returncode, code)
        after = {p: p.read_bytes() for p in self.folder.iterdir() if p.is_file()}
        self.assertEqual(after, before)
