#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""vask-meter testpmd: the commands set testpmd up so that it drops what replay drops."""

import json
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(os.environ["VASK_SOURCE"]) / "tests"
sys.path[:0] = [str(TESTS / "system"), str(TESTS / "app")]

import pcap_reader  # noqa: E402
from testpmd import Testpmd, number  # noqa: E402

VASK_METER = os.environ["VASK_METER"]
EXAMPLE = TESTS.parent / "examples" / "metered-port.cfg"
FRAMES = pcap_reader.read(TESTS / "data" / "iperf3.pcap")

EVERYTHING = """\
[setup]
ports = 2
mtu = 1400
[profile 1]
algorithm = rfc2697
cir = 2Mbit/s
cbs = 32KiB
ebs = 64KiB
[profile 2]
algorithm = rfc4115
cir = 100pps
eir = 50pps
cbs = 10packets
ebs = 10packets
[policy 3]
green = dscp 1
yellow = dscp 2
red = drop
[meter 4]
direction = rx
profile = 1
policy = 3
color_aware = yes
original_length = yes
[meter 5]
port = 1
direction = tx
profile = 2
policy = 3
[meter 6]
direction = both
profile = 1
enable = no
[flow 1]
meter = 4
src = 10.0.0.0/31
[flow 2]
meter = 5
protocol = tcp
sport = 5201
dst = 10.0.0.1
[flow 3]
meter = 5
priority = 3
dscp = 14
[flow 4]
meter = 4
src = 2001:db8::/32
dst = ::1
dscp = 46
protocol = udp
vlan = 7
[flow 5]
meter = 6
direction = egress
protocol = udp
dport = 5203
"""


def microseconds(folder):
    """The capture as net_pcap keeps it."""
    path = os.path.join(folder, "in.pcap")
    with open(path, "wb") as f:
        f.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 1))
        for frame in FRAMES:
            sec, ns = divmod(frame.time_ns, 10**9)
            f.write(struct.pack("<IIII", sec, ns // 1000, frame.length, frame.length) + frame.data)
    return path


class TestpmdCommand(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.capture = microseconds(self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def compare(self, config, ports):
        pathlib.Path(self.path("c.cfg")).write_text(config, encoding="ascii")
        subprocess.run([VASK_METER, "testpmd", self.path("c.cfg"), "-o", self.path("commands")],
                       check=True)
        subprocess.run([VASK_METER, "replay", self.path("c.cfg"), self.capture,
                        "--json", self.path("replay.json"), "-o", self.path("replay.pcap")],
                       check=True, stdout=subprocess.DEVNULL)
        replayed = json.loads(pathlib.Path(self.path("replay.json")).read_text(encoding="ascii"))
        vdevs = [f"net_vask1_{n},uplink=net_pcap{n},clock=capture" for n in range(ports)]
        vdevs += [f"net_pcap{n},{f'rx_pcap={self.capture},' if n == 0 else ''}"
                  f"tx_pcap={self.path(f'out{n}.pcap')}" for n in range(ports)]
        with Testpmd(vdevs, options=["--cmdline-file", self.path("commands")]) as t:
            self.assertNotIn("Bad arguments", t.banner)
            self.assertNotIn("(error", t.banner)
            self.assertEqual(t.banner.count("Flow rule #"), config.count("[flow "))
            t.run("start")
            for _ in range(200):
                stats = t.run("show port xstats 0")
                if sum(number(stats, f"rx_{n}_packets") for n in
                       ("good", "meter_dropped", "mtu_dropped")) == len(FRAMES):
                    break
            t.run("stop")
            sums = {}
            for meter in replayed["meters"]:
                packets, size = sums.get(meter["id"], (0, 0))
                sums[meter["id"]] = (packets + meter["dropped"]["packets"],
                                     size + meter["dropped"]["bytes"])
            for meter in {m["id"]: m for m in replayed["meters"]}.values():
                lines = t.run(f"show port meter stats {meter['port']} {meter['id']} no")
                with self.subTest(meter=meter["id"]):
                    self.assertEqual((number(lines, "Pkts DROPPED"), number(lines, "Bytes DROPPED")),
                                     sums[meter["id"]])
        self.assertEqual([f.data for f in pcap_reader.read(self.path(f"out{ports - 1}.pcap"))],
                         [f.data for f in pcap_reader.read(self.path("replay.pcap"))])
        return sums

    def test_the_example(self):
        sums = self.compare(EXAMPLE.read_text(encoding="ascii"), 1)
        self.assertTrue(all(packets > 0 for packets, _ in sums.values()), sums)

    def test_every_kind_of_key(self):
        sums = self.compare(EVERYTHING, 2)
        self.assertGreater(sums[4][0], 0)
        self.assertGreater(sums[5][0], 0)
        self.assertEqual(sums[6], (0, 0))

    def test_standard_output_has_the_same_as_the_file(self):
        done = subprocess.run([VASK_METER, "testpmd", str(EXAMPLE)], capture_output=True, text=True,
                              check=True)
        subprocess.run([VASK_METER, "testpmd", str(EXAMPLE), "-o", self.path("commands")], check=True)
        self.assertEqual(pathlib.Path(self.path("commands")).read_text(encoding="ascii"), done.stdout)
        self.assertTrue(done.stdout.startswith("# The set-up of "))


if __name__ == "__main__":
    unittest.main()
