#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""What `meson install` installs is found and works: by DPDK, by the compiler, by the shell, by man."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD = os.environ["VASK_BUILD"]
SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])
DRIVERS = pathlib.Path(os.environ["VASK_DRIVER_DIR"])
PREFIX = pathlib.Path(os.environ["VASK_PREFIX"])
LIBDIR = PREFIX / os.environ["VASK_LIBDIR"]
sys.path.insert(0, str(SOURCE / "tests" / "system"))

from testpmd import Testpmd  # noqa: E402

CAPTURE = SOURCE / "tests" / "data" / "iperf3.pcap"
EAL = ["--no-huge", "--no-pci", "-m", "256"]

# The folders that were installed to, with what was installed laid over what is there, for one command.
OVERLAID = """set -e
root=$1; shift
while [ "$1" != -- ]; do
	mount -t overlay overlay -o "lowerdir=$root$1:$1" "$1"
	shift
done
shift
exec "$@"
"""


def installed(folder):
    return {"/" + str(f.relative_to(folder)) for f in pathlib.Path(folder).rglob("*") if not f.is_dir()}


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.root = folder.name
        subprocess.run(["meson", "install", "-C", BUILD, "--no-rebuild", "--destdir", cls.root],
                       stdout=subprocess.DEVNULL, check=True)

    def test_every_file_lies_where_it_is_looked_for(self):
        files = installed(self.root)
        self.assertIn(str(DRIVERS / "librte_net_vask1.so"), files)
        self.assertIn(str(PREFIX / "bin/vask-meter"), files)
        self.assertIn(str(LIBDIR / "pkgconfig/librte_net_vask1.pc"), files)
        headers = {os.path.basename(f) for f in files if f.startswith(str(PREFIX / "include/vask1/"))}
        self.assertIn("rte_pmd_net_vask1.h", headers)
        doc = PREFIX / "share/doc/vask1-meter"
        for name in ("README.md", "doc/vask-meter.md", "doc/tutorials/first_meter.md",
                     "examples/metered-port.cfg"):
            self.assertIn(str(doc / name), files)
        self.assertEqual({f for f in files if not f.startswith((str(PREFIX) + "/", str(DRIVERS) + "/"))},
                         set())

    def test_documents_link_to_what_is_installed_beside_them(self):
        """But for what is for those who have the sources, tests and fuzz targets say."""
        folder = (pathlib.Path(self.root + str(PREFIX)) / "share/doc/vask1-meter").resolve()
        links = 0
        for page in folder.rglob("*.md"):
            for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", page.read_text(encoding="utf-8")):
                target = (page.parent / link).resolve()
                if target.is_relative_to(folder / "doc") or target.is_relative_to(folder / "examples"):
                    links += 1
                    self.assertTrue(target.exists(), f"{page.relative_to(folder)}: {link}")
        self.assertGreater(links, 10)

    def test_plugin_names_its_arguments(self):
        done = subprocess.run(["dpdk-pmdinfo.py", self.root + str(DRIVERS / "librte_net_vask1.so")],
                              capture_output=True, text=True, check=True)
        driver, = [d for d in json.loads(done.stdout) if d["name"] == "net_vask1"]
        self.assertIn("uplink=", driver["params"])

    def test_another_driver_folder_and_another_prefix_can_be_asked_for(self):
        """Set-up reads the options; the plan of what would be installed tells where."""
        with tempfile.TemporaryDirectory() as build:
            # the driver headers need not be fetched once more
            shutil.copytree(os.path.join(BUILD, "dpdk-headers"), os.path.join(build, "dpdk-headers"))
            subprocess.run(["meson", "setup", build, SOURCE, "--prefix=/opt/vask1", "-Dtests=false",
                            "-Ddriver_dir=/opt/drivers"], stdout=subprocess.DEVNULL, check=True)
            plan = json.loads(subprocess.run(["meson", "introspect", "--installed", build],
                                             capture_output=True, text=True, check=True).stdout)
        places = {os.path.basename(place): place for place in plan.values()}
        self.assertEqual(places["librte_net_vask1.so"], "/opt/drivers/librte_net_vask1.so")
        self.assertEqual(places["vask-meter"], "/opt/vask1/bin/vask-meter")


def overlays_work():
    """A user with the right, and a kernel that does it: in a mount namespace of one's own."""
    with tempfile.TemporaryDirectory() as folder:
        for name in ("a", "b"):
            os.mkdir(os.path.join(folder, name))
        return os.getuid() == 0 and subprocess.run(
            ["unshare", "--mount", "mount", "-t", "overlay", "overlay", "-o",
             f"lowerdir={folder}/a:{folder}/b", f"{folder}/b"], check=False, stderr=subprocess.DEVNULL,
        ).returncode == 0


@unittest.skipUnless(overlays_work(), "needs root, who may mount an overlay")
class Used(unittest.TestCase):
    """As after a real installation, but for the processes of this test only."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        os.chmod(folder.name, 0o755)
        cls.folder = folder.name
        cls.root = os.path.join(folder.name, "root")
        subprocess.run(["meson", "install", "-C", BUILD, "--no-rebuild", "--destdir", cls.root],
                       stdout=subprocess.DEVNULL, check=True)
        cls.prefix = ["unshare", "--mount", "sh", "-c", OVERLAID, "sh", cls.root, str(PREFIX), str(DRIVERS),
                      "--"]

    def run_there(self, *command, **options):
        return subprocess.run([*self.prefix, *command], capture_output=True, text=True, check=True,
                              timeout=120, **options).stdout

    def test_testpmd_finds_the_port_without_being_told_of_a_plugin(self):
        testpmd = os.path.join(self.folder, "testpmd")
        quoted = " ".join(f"'{word}'" for word in self.prefix)
        pathlib.Path(testpmd).write_text(f"#!/bin/sh\nexec {quoted} dpdk-testpmd \"$@\"\n", encoding="utf-8")
        os.chmod(testpmd, 0o755)
        before = os.environ.get("VASK_TESTPMD")
        os.environ["VASK_TESTPMD"] = testpmd
        self.addCleanup(lambda: os.environ.update({"VASK_TESTPMD": before}) if before
                        else os.environ.pop("VASK_TESTPMD"))
        with Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture", f"net_pcap0,rx_pcap={CAPTURE}"]) as t:
            self.assertEqual(t.forward(0, 3585), 3585)

    def test_program_of_ones_own_finds_the_port(self):
        program = os.path.join(self.folder, "first_meter")
        flags = subprocess.run(["pkg-config", "--cflags", "--libs", "libdpdk"], capture_output=True, text=True,
                               check=True).stdout.split()
        subprocess.run(["cc", "-O2", "-DALLOW_EXPERIMENTAL_API", SOURCE / "examples/first_meter.c", "-o",
                        program, *flags], check=True)
        printed = self.run_there(program, *EAL, "--no-telemetry", "--file-prefix", f"first{os.getpid()}",
                                 "--vdev=net_vask1_0,uplink=net_pcap0,clock=capture",
                                 f"--vdev=net_pcap0,rx_pcap={CAPTURE}")
        self.assertRegex(printed, r"(?m)^\d+ packets came through$")

    def test_program_that_links_the_plugin_is_built_by_pkg_config_and_runs(self):
        program = os.path.join(self.folder, "p4_control_plane")
        pc = str(LIBDIR / "pkgconfig")
        self.run_there("sh", "-ec", f"c++ -std=c++20 -DALLOW_EXPERIMENTAL_API "
                       f"{SOURCE}/examples/p4_control_plane.cpp -o {program} "
                       f"$(PKG_CONFIG_PATH={pc} pkg-config --cflags --libs librte_net_vask1) "
                       "-lrte_net_ring -lrte_bus_vdev")
        printed = self.run_there(program, "--no-huge", "--no-pci", "--no-telemetry", "--no-shconf",
                                 "--log-level", "*:critical")
        self.assertIn("removed: meter 9 is gone\n", printed)

    def test_vask_meter_finds_what_it_needs(self):
        printed = self.run_there("vask-meter", "replay", SOURCE / "examples/metered-port.cfg", CAPTURE)
        self.assertIn("meter 9: port 0 rx, profile 5, policy 7, flow 1\n", printed)

    @unittest.skipUnless(os.environ["MANUAL_PAGES"] and shutil.which("man"), "needs manual pages, and man")
    def test_man_finds_the_pages(self):
        for page, says in (("vask-meter", "what would these meters do"), ("vask-meter-config", "[profile N]"),
                           ("net_vask1", "uplink=<name>")):
            with self.subTest(page=page):
                shown = self.run_there("man", "--pager=cat", page, env=dict(os.environ, MANWIDTH="80"))
                self.assertIn(says.lower(), shown.lower())


if __name__ == "__main__":
    unittest.main()
