#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""vask-meter watch on a running testpmd."""

import os
import pathlib
import pty
import re
import select
import subprocess
import sys
import tempfile
import time
import unittest

TESTS = pathlib.Path(os.environ["VASK_SOURCE"]) / "tests"
sys.path[:0] = [str(TESTS / "system"), str(TESTS / "app")]

from testpmd import Testpmd, number  # noqa: E402

VASK_METER = os.environ["VASK_METER"]
EXAMPLE = TESTS.parent / "examples" / "metered-port.cfg"
CAPTURE = TESTS / "data" / "iperf3.pcap"


def watch(*args):
    return subprocess.run([VASK_METER, "watch", *args], capture_output=True, text=True, check=False)


class Watch(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        commands = os.path.join(cls.folder.name, "commands")
        subprocess.run([VASK_METER, "testpmd", str(EXAMPLE), "-o", commands], check=True)
        cls.t = Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture",
                         f"net_pcap0,rx_pcap={CAPTURE},tx_pcap={cls.folder.name}/out.pcap"],
                        options=["--cmdline-file", commands])
        cls.t.run("start")
        deadline = time.monotonic() + 60
        while True:
            stats = cls.t.run("show port xstats 0")
            if number(stats, "rx_good_packets") + number(stats, "rx_meter_dropped_packets") == 3585:
                break
            if time.monotonic() > deadline:
                raise AssertionError("not all packets came")
            time.sleep(0.02)
        cls.t.run("stop")
        cls.drops = {m: number(cls.t.run(f"show port meter stats 0 {m} no"), "Pkts DROPPED")
                     for m in (9, 10, 11)}

    @classmethod
    def tearDownClass(cls):
        with cls.t:
            pass
        cls.folder.cleanup()

    def rows(self, *args):
        done = watch("--file-prefix", self.t.prefix, *args)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        titles, *lines = done.stdout.splitlines()
        self.assertEqual(titles.split(), ["meter", "port", "side", "profile", "policy", "green", "yellow",
                                          "red", "dropped", "committed", "excess"])
        return [line.replace(" B ", " ").split() for line in lines]

    def test_once_it_prints_the_totals_of_every_meter(self):
        rows = self.rows()
        self.assertEqual([r[:5] for r in rows], [["9", "net_vask1_0", "rx", "5", "7"],
                                                 ["10", "net_vask1_0", "rx", "6", "7"],
                                                 ["11", "net_vask1_0", "rx", "8", "8"]])
        self.assertEqual({int(r[0]): int(r[8]) for r in rows}, self.drops)
        self.assertGreater(min(self.drops.values()), 0)
        # all UDP to the server but the voice call
        self.assertEqual(sum(map(int, rows[1][5:8])), 914090)

    def test_it_sorts_and_filters(self):
        by_drops = sorted(self.drops, key=self.drops.get, reverse=True)
        self.assertEqual([int(r[0]) for r in self.rows("--sort", "dropped")], by_drops)
        self.assertEqual([int(r[0]) for r in self.rows("--sort", "yellow")], [10, 9, 11])
        self.assertEqual(self.rows("--filter", "tx"), [])

    def test_the_example_of_the_help_works(self):
        text = subprocess.run([VASK_METER, "watch", "--help"], capture_output=True, text=True, check=True).stdout
        example, = re.findall(r"^  vask-meter watch (.*)$", text, re.MULTILINE)
        prefix, rte, *others = example.split()
        self.assertEqual((prefix, rte), ("--file-prefix", "rte"))
        self.assertEqual(len(self.rows(*others)), 3)

    def test_on_a_terminal_keys_change_order_and_filter(self):
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        with subprocess.Popen([VASK_METER, "watch", "--file-prefix", self.t.prefix, "--interval", "0.2"],
                              stdin=slave, stdout=slave, stderr=slave,
                              env=dict(os.environ, TERM="vt100", LINES="30", COLUMNS="160")) as process:
            os.close(slave)
            self.addCleanup(process.kill)
            seen = ""

            def until(words):
                nonlocal seen
                deadline = time.monotonic() + 20
                while words not in re.sub(r"\x1b[\[(][0-9;?]*[A-Za-z]", "", seen):
                    if time.monotonic() > deadline:
                        process.kill()
                        self.fail(f"{words!r} not in {seen!r}")
                    if select.select([master], [], [], 1)[0]:
                        seen += os.read(master, 65536).decode()
            until("vask-meter watch: 3 rows; s sort: meter; f filter: all; q quit")
            until("net_vask1_0")
            # only what changes on the screen is written
            for key, words in ((b"s", "green"), (b"f", "rx; q quit"), (b"ff", "dropping; q quit")):
                seen = ""
                os.write(master, key)
                until(words)
            os.write(master, b"q")
            self.assertEqual(process.wait(timeout=20), 0)

    def test_refusals(self):
        done = watch("--file-prefix", "nobody-runs-so")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"^vask-meter: .*/dpdk/nobody-runs-so/dpdk_telemetry\.v2: No such file "
                         r"or directory; accepted is the --file-prefix of a running DPDK process with "
                         r"telemetry\n$")
        for args, line in [(("--sort", "blue"), '--sort "blue": accepted are meter, green, yellow, red, dropped'),
                           (("--filter", "x"), '--filter "x": accepted are all, rx, tx, dropping')]:
            done = watch(*args)
            self.assertEqual((done.returncode, done.stderr), (2, f"vask-meter: {line}\n"))


if __name__ == "__main__":
    unittest.main()
