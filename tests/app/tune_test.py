#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""vask-meter tune: its shares and its smallest rates against the exact reference."""

import csv
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(os.environ["VASK_SOURCE"]) / "tests"
sys.path[:0] = [str(TESTS / "system"), str(TESTS / "app")]

import pcap_reader  # noqa: E402
from meter_reference import RED, Meter  # noqa: E402

VASK_METER = os.environ["VASK_METER"]
CAPTURE = TESTS / "data" / "iperf3.pcap"
UNITS = {"bit/s": 1, "kbit/s": 10**3, "Mbit/s": 10**6, "KiB": 1 << 10, "MiB": 1 << 20, "pps": 1, "packets": 1}


def udp_5203():
    frames = []
    for frame in pcap_reader.read(CAPTURE):
        p = pcap_reader.IPv4(frame.data)
        if p.valid and p.proto == 17 and 5203 in (p.sport, p.dport):
            frames.append(frame)
    return frames


FRAMES = udp_5203()


def tune(*args):
    return subprocess.run([VASK_METER, "tune", str(CAPTURE), *args], capture_output=True, text=True,
                          check=False)


def meter(algorithm, rate, burst, packets, excess=100):
    """The excess that the options ask for, in the card's units."""
    rate_unit, burst_unit = (1, 1) if packets else (8000, 1024)
    rate, burst = rate // rate_unit, burst // burst_unit
    share = 100 + excess if algorithm == 2698 else excess
    second = 0 if algorithm == 2697 else rate * share // 100
    return Meter(algorithm, rate * rate_unit, burst * burst_unit, second * rate_unit,
                 burst * share // 100 * burst_unit, packets)


def counts(m, frames=None):
    colours = [m.color(f.time_ns, f.length) for f in frames or FRAMES]
    return [colours.count(c) for c in range(3)]


class Tune(unittest.TestCase):
    def sweep(self, *args):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "sweep.csv")
            done = tune("--csv", path, "--filter", "udp port 5203", *args)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            with open(path, encoding="ascii", newline="") as f:
                return done.stdout, [{k: int(v) for k, v in row.items()} for row in csv.DictReader(f)]

    def smallest(self, text):
        """(burst, rate) of the second table, in bytes and bytes/s, or packets."""
        table = text[text.index("smallest committed rate"):].splitlines()[2:]
        for line in table:
            burst, burst_unit, rate, rate_unit = line.split()[:4]
            bits = 8 if rate_unit.endswith("bit/s") else 1
            yield int(burst) * UNITS[burst_unit], round(float(rate) * UNITS[rate_unit] / bits)

    def test_the_sweep_is_the_reference_s(self):
        for algorithm, packets in ((2697, False), (2698, True), (4115, False)):
            args = ["--algorithm", f"rfc{algorithm}"] + (["--packets"] if packets else [])
            with self.subTest(args=args):
                _, rows = self.sweep(*args)
                self.assertEqual(len(rows), 100)
                for row in rows[::7]:
                    self.assertEqual(
                        [row["green_packets"], row["yellow_packets"], row["red_packets"]],
                        counts(meter(algorithm, row["rate"], row["burst"], packets)), row)

    def test_the_smallest_rate_keeps_the_loss_and_one_unit_less_does_not(self):
        allowed = len(FRAMES) / 100
        for algorithm, packets, excess in ((2697, False, 100), (2698, False, 50), (4115, True, 25)):
            args = ["--algorithm", f"rfc{algorithm}", "--loss", "1%", "--excess", str(excess)]
            args += ["--packets"] if packets else []
            with self.subTest(args=args):
                text, _ = self.sweep(*args)
                found = list(self.smallest(text))
                self.assertEqual(len(found), 10)
                unit = 1 if packets else 8000
                for burst, rate in found:
                    red = counts(meter(algorithm, rate, burst, packets, excess))[RED]
                    self.assertLessEqual(red, allowed)
                    if rate > unit:
                        red = counts(meter(algorithm, rate - unit, burst, packets, excess))[RED]
                        self.assertGreater(red, allowed)

    def test_the_table_prints_shares_of_the_sweep(self):
        text, rows = self.sweep()
        row = rows[0]
        total = len(FRAMES)
        self.assertIn(f"{total} packets, mean rate 1.536 Mbit/s, rfc2697, excess 100 %\n", text)
        shares = "/".join(f"{100 * row[c + '_packets'] / total:.1f}" for c in ("green", "yellow", "red"))
        self.assertRegex(text, r"\n +768 kbit/s +" + re.escape(shares) + " ")

    def test_without_a_filter_all_packets_count(self):
        self.assertTrue(tune().stdout.startswith("3585 packets, "))

    def test_refusals(self):
        for args, line in [
                (("--filter", "udp prt"), 'filter "udp prt": can\'t parse filter expression: syntax error; '
                 "accepted is an expression of pcap-filter(7)"),
                (("--filter", "port 1"), f'{CAPTURE}: no frames that pass "port 1"'),
                (("--loss", "5"), '--loss "5": accepted is a share of the packets from 0% to 100%'),
                (("--loss", "101%"), '--loss "101%": accepted is a share of the packets from 0% to 100%'),
                (("--algorithm", "red"), '--algorithm "red": accepted are rfc2697, rfc2698, rfc4115')]:
            with self.subTest(args=args):
                done = tune(*args)
                self.assertEqual((done.returncode, done.stdout, done.stderr),
                                 (2, "", f"vask-meter: {line}\n"))


if __name__ == "__main__":
    unittest.main()
