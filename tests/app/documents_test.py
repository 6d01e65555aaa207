#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Every command in a document's console blocks gives the output that the document prints."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from document import Shell, blocks, commands, matches

SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])
PROGRAMS = [os.path.dirname(os.environ["VASK_METER"]), os.path.dirname(os.environ["P4_CONTROL_PLANE"])]


class Documents(unittest.TestCase):
    def folder(self):
        """Where a reader stands: the source tree's files, and a build folder to write to."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        for name in ("examples", "tests"):
            os.symlink(SOURCE / name, pathlib.Path(folder.name) / name)
        os.mkdir(os.path.join(folder.name, "build"))
        return folder.name

    def run_document(self, path):
        env = dict(os.environ, PATH=os.pathsep.join(PROGRAMS + [os.environ["PATH"]]),
                   LD_LIBRARY_PATH=os.path.dirname(os.environ["VASK_PLUGIN"]))
        shell = Shell(cwd=self.folder(), env=env)
        self.addCleanup(shell.close)
        found = 0
        for kind, block in blocks((SOURCE / path).read_text(encoding="utf-8")):
            if kind != "console":
                continue
            for command, documented in commands(kind, block):
                found += 1
                with self.subTest(document=path, command=command):
                    printed = shell.run(command, documented)
                    if not matches(printed, documented):
                        self.assertEqual(printed.split("\n"), documented)
        self.assertGreater(found, 0, path)

    def test_readme(self):
        self.run_document("README.md")

    def test_p4_tables(self):
        self.run_document("doc/p4_tables.md")

    def test_vask_meter(self):
        self.run_document("doc/vask-meter.md")

    def test_tutorial_choosing_parameters(self):
        self.run_document("doc/tutorials/choosing_parameters.md")

    def test_tutorial_p4_control_plane(self):
        self.run_document("doc/tutorials/p4_control_plane.md")

    @unittest.skipIf(os.environ["VASK_SANITIZE"] != "none",
                     "a program that the reader compiles has no sanitizer, and the plugin has")
    def test_tutorial_first_meter(self):
        self.run_document("doc/tutorials/first_meter.md")

    def test_tutorial_first_meter_shows_lines_of_the_program(self):
        program = (SOURCE / "examples/first_meter.c").read_text(encoding="utf-8")
        shown = [block for kind, block in
                 blocks((SOURCE / "doc/tutorials/first_meter.md").read_text(encoding="utf-8")) if kind == "c"]
        self.assertGreater(len(shown), 3)
        for block in shown:
            self.assertIn(block, program)


class Guide(unittest.TestCase):
    @unittest.skipUnless(shutil.which("sphinx-build"), "needs sphinx-build (python3-sphinx)")
    def test_the_nic_guide_builds_without_a_warning(self):
        with tempfile.TemporaryDirectory() as folder:
            conf = pathlib.Path(folder, "conf.py")
            conf.write_text("project = 'vask1'\nroot_doc = 'vask1'\nexclude_patterns = ['features']\n")
            done = subprocess.run(["sphinx-build", "-q", "-W", "-c", folder, SOURCE / "doc/guides/nics",
                                   os.path.join(folder, "out")], capture_output=True, text=True, check=False)
            self.assertEqual((done.returncode, done.stderr), (0, ""))


class P4ControlPlane(unittest.TestCase):
    def test_the_example_prints_what_its_tables_do(self):
        # 500-byte packets and no time: 10240 / 500 = 20 green, 5120 / 500 = 10 yellow, 20 red; the second
        # batch finds both buckets below 500
        done = subprocess.run([os.environ["P4_CONTROL_PLANE"], "--no-huge", "--no-pci", "--no-telemetry",
                               "--no-shconf", "--log-level", "*:critical"],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.stdout.splitlines(), [
            "strict: sent 50, received 30; green 20, yellow 10 (DSCP rewritten in 10), red 20, "
            "dropped 20 packets of 10000 bytes",
            "lenient: sent 50, received 50; green 20, yellow 10 (DSCP rewritten in 10), red 70, "
            "dropped 20 packets of 10000 bytes",
            "removed: meter 9 is gone"])
        self.assertEqual(done.returncode, 0, done.stderr)


if __name__ == "__main__":
    unittest.main()
