#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""The Debian packages: built, installed in a fresh root, used, and purged."""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])
FOLDER = pathlib.Path(os.environ["VASK_BUILD"]) / "package"
sys.path[:0] = [str(SOURCE / "tests" / "system"), str(SOURCE / "tests" / "package")]

from root import Root  # noqa: E402
from testpmd import Testpmd, number  # noqa: E402

PACKAGES = ["librte-net-vask1", "librte-net-vask1-dev", "vask-meter"]
EXAMPLE = "/usr/share/doc/vask-meter/examples/metered-port.cfg"
LEFT = "left: 2472 packets, 1666174 bytes, 4.2409 Mbit/s\n"
CAPTURE = SOURCE / "tests" / "data" / "iperf3.pcap"


def setUpModule():
    if os.getuid() != 0 or not shutil.which("debootstrap"):
        raise unittest.SkipTest("needs root, and debootstrap")


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        done = subprocess.run([SOURCE / "scripts/build-deb.sh", FOLDER / "deb"], capture_output=True, text=True,
                              check=True)
        cls.debs = [pathlib.Path(line) for line in done.stdout.splitlines() if line.endswith(".deb")]
        cls.root = Root(FOLDER, "installed")
        cls.addClassCleanup(cls.root.remove)
        os.mkdir(cls.root.path / "debs")
        for deb in cls.debs:
            if "dbgsym" not in deb.name:
                shutil.copy(deb, cls.root.path / "debs")
        shutil.copy(CAPTURE, cls.root.path / "in.pcap")
        cls.root.run("apt-get", "update")
        cls.install(*(name for name in cls.names() if "-dev_" not in name))
        cls.alone = cls.root.run("vask-meter", "replay", EXAMPLE, "/in.pcap", check=False)
        cls.install("dpdk-dev", "man-db", "gcc", "pkg-config", "gnuplot-nox", *cls.names())

    @classmethod
    def install(cls, *packages):
        cls.root.run("apt-get", "install", "-y", "--no-install-recommends", *packages)

    @classmethod
    def names(cls):
        return ["/debs/" + deb.name for deb in sorted((cls.root.path / "debs").iterdir())]

    def installed(self):
        listed = self.root.run("dpkg-query", "-W", "-f", "${Package} ${db:Status-Abbrev}\n")
        return [line.split()[0] for line in listed.splitlines() if "vask" in line and line.split()[1] == "ii"]

    def test_version_is_that_of_the_sources(self):
        version = re.search(r"version: '([\d.]+)'", (SOURCE / "meson.build").read_text(encoding="utf-8"))[1]
        self.assertEqual({deb.name.split("_")[1] for deb in self.debs}, {version})
        self.assertEqual(self.installed(), PACKAGES)

    def test_dependencies_are_what_the_programs_ask_for(self):
        def field(package):
            deb, = [d for d in self.debs if d.name.startswith(package + "_")]
            return subprocess.run(["dpkg-deb", "-f", deb, "Depends"], capture_output=True, text=True,
                                  check=True).stdout
        for library in ("libc6", "librte-ethdev", "librte-mbuf", "librte-bus-vdev"):
            self.assertRegex(field("librte-net-vask1"), library)
        for library in ("librte-net-vask1 (=", "libpcap", "libfmt", "librte-cfgfile", "librte-mempool-ring"):
            self.assertIn(library, field("vask-meter"))

    @unittest.skipUnless(shutil.which("lintian"), "needs lintian")
    def test_lintian_finds_nothing(self):
        done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error,warning", *self.debs],
                              capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_testpmd_has_the_port_without_being_told_of_a_plugin(self):
        script = FOLDER / "testpmd"
        self.root.testpmd(script, "dpdk-testpmd")
        os.environ["VASK_TESTPMD"] = str(script)
        self.addCleanup(os.environ.pop, "VASK_TESTPMD")
        with Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture", "net_pcap0,rx_pcap=/in.pcap"]) as t:
            for command in ("add port meter profile srtcm_rfc2697 0 5 250000 32768 65536 0",
                            "add port meter policy 0 7 g_actions end y_actions end r_actions drop / end",
                            "create port meter 0 9 5 7 yes 0x8000000000000088 0 g 0"):
                t.run(command)
            t.forward(0, 3585)
            self.assertEqual(number(t.run("show port meter stats 0 9 no"), "Pkts DROPPED"), 1739)

    def test_vask_meter_needs_nothing_but_what_it_depends_on(self):
        self.assertIn(LEFT, self.alone)

    def test_vask_meter_replays_and_draws(self):
        printed = self.root.run("vask-meter", "replay", EXAMPLE, "/in.pcap", "--report", "/tmp/report.html")
        self.assertIn(LEFT, printed)
        self.assertIn("<svg", (self.root.path / "tmp/report.html").read_text(encoding="utf-8"))

    def test_programs_are_built_against_the_headers(self):
        self.root.run("sh", "-ec", "printf '#include <rte_pmd_net_vask1.h>\\nint main(void) { "
                      "rte_pmd_net_vask1_fault_clear(); return 0; }\\n' > /tmp/a.c; "
                      "gcc -Wall -Werror /tmp/a.c -o /tmp/a $(pkg-config --cflags --libs librte_net_vask1); /tmp/a")

    def test_manual_pages_are_found(self):
        for page in ("vask-meter", "vask-meter-config", "net_vask1"):
            self.assertIn("NAME\n", self.root.run("man", "--pager=cat", page), page)

    def test_purge_leaves_nothing_behind(self):
        before = self.root.files()
        listed = {path for package in PACKAGES for path in self.root.run("dpkg", "-L", package).splitlines()
                  if not (self.root.path / path[1:]).is_dir()}
        self.assertIn("/usr/bin/vask-meter", listed)
        self.addCleanup(self.root.run, "dpkg", "--install", *self.names())
        self.root.run("dpkg", "--purge", *reversed(PACKAGES))
        after = self.root.files()
        self.assertEqual(self.installed(), [])
        self.assertEqual(listed & after, set())
        # what man formatted is man's own to keep, and the folder of a process that ran is EAL's
        self.assertEqual({path for path in after if "vask" in path
                          and not path.startswith(("/debs/", "/var/cache/", "/run/dpdk/"))}, set())
        self.assertEqual({path for path in after - before if not path.startswith("/var/cache/")}, set())
        # once more: the second time installs and purges on top of what the first one left
        self.root.run("dpkg", "--install", *self.names())
        self.assertEqual({path for path in before - self.root.files() if "/var/cache/" not in path}, set())
        self.root.run("dpkg", "--purge", *reversed(PACKAGES))
        self.assertEqual({path for path in self.root.files() ^ after if "/var/cache/" not in path}, set())


if __name__ == "__main__":
    unittest.main()
