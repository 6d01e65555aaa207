#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""vask-meter tune: its shares and its smallest rates against the exact reference."""

import csv
import math
import os
import pathlib
import re
import struct
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
UNITS = {"bit/s": 1, "kbit/s": 10**3, "Mbit/s": 10**6, "KiB": 1 << 10, "MiB": 1 << 20, "pps": 1, "packet": 1,
         "packets": 1}


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


class Report(unittest.TestCase):
    """The page of --report: its tables hold the sweep, and its charts are drawn from it."""

    @classmethod
    def setUpClass(cls):
        cls.page, cls.rows, cls.text = cls.report()
        cls.sections = re.findall(r"<section>.*?</section>", cls.page, re.DOTALL)
        cls.bursts = sorted({row["burst"] for row in cls.rows})
        cls.rates = sorted({row["rate"] for row in cls.rows})

    @staticmethod
    def report():
        with tempfile.TemporaryDirectory() as folder:
            page, sweep = os.path.join(folder, "tune.html"), os.path.join(folder, "sweep.csv")
            done = tune("--report", page, "--csv", sweep, "--filter", "udp port 5203", "--loss", "1%")
            assert (done.returncode, done.stderr) == (0, ""), done.stderr
            with open(sweep, encoding="ascii", newline="") as f:
                rows = [{k: int(v) for k, v in row.items()} for row in csv.DictReader(f)]
            text = done.stdout.replace(folder, "")
            return pathlib.Path(page).read_text(encoding="utf-8"), rows, text

    @staticmethod
    def cells(section):
        """The rows of its table, as texts of their cells."""
        return [re.findall(r"<t[hd][^>]*>([^<]*)</t[hd]>", row)
                for row in re.findall(r"<tr.*?</tr>", section[section.index("<tbody>"):], re.DOTALL)]

    def row(self, rate, burst):
        found, = (r for r in self.rows if (r["rate"], r["burst"]) == (rate, burst))
        return found

    def shares(self, row):
        return [100 * row[c + "_packets"] / len(FRAMES) for c in ("green", "yellow", "red")]

    @staticmethod
    def polygon(svg, number):
        """The corners of a plot, in pixels."""
        plot = svg[svg.index(f"_plot_{number}\""):]
        points = re.search(r"<(?:polygon|path)[^>]*?(?:points|d) ?= ?'([^']*)'", plot).group(1)
        return [tuple(map(float, p)) for p in re.findall(r"(-?[\d.]+),(-?[\d.]+)", points)]

    def test_it_needs_nothing_from_elsewhere_and_runs_nothing(self):
        self.assertNotIn("<script", self.page)
        links = set(re.findall(r"(?:href|src|url)\s*[=(]\s*[\"']?([^\"')>\s]+)", self.page))
        self.assertEqual([x for x in links if not x.startswith(("#", "data:,"))], [])
        self.assertEqual(self.report()[0], self.page)

    def test_the_tables_hold_the_sweep(self):
        panels = self.sections[-len(self.bursts):]
        for burst, panel in zip(self.bursts, panels, strict=True):
            expected = []
            for rate in self.rates:
                shares = [f"{s:.1f}" for s in self.shares(self.row(rate, burst))]
                expected.append([f"{rate * 8 / 1e6:.3f}", *shares])
            with self.subTest(burst=burst):
                self.assertEqual(self.cells(panel), expected)
                within = [self.row(rate, burst)["red_packets"] <= len(FRAMES) / 100 for rate in self.rates]
                self.assertEqual(["within" in tr for tr in re.findall(r"<tr[^>]*>", panel)[1:]], within)

    def test_the_smallest_rates_are_those_of_the_text(self):
        table = self.text[self.text.index("smallest committed rate"):].splitlines()[2:12]
        for (burst, rate, *shares), line in zip(self.cells(self.sections[0]), table, strict=True):
            words = line.split()
            self.assertEqual(burst, " ".join(words[:2]))
            self.assertAlmostEqual(float(rate) * 1e6, float(words[2]) * UNITS[words[3]])
            self.assertEqual("/".join(shares), words[4])

    def test_the_panels_draw_the_shares(self):
        # green lies at the bottom, then yellow, then red up to 100 %; rates double at even distances
        for burst, panel in zip(self.bursts, self.sections[-len(self.bursts):], strict=True):
            svg = panel[panel.index("<svg"):panel.index("</svg>")]
            green, yellow, red = (self.polygon(svg, n) for n in (3, 2, 1))
            bottom, top = max(y for _, y in red), min(y for _, y in red)
            left, right = min(x for x, _ in red), max(x for x, _ in red)
            span = math.log(self.rates[-1] / self.rates[0])
            for index, rate in enumerate(self.rates):
                x = left + (right - left) * math.log(rate / self.rates[0]) / span
                share = self.shares(self.row(rate, burst))
                for corners, percent in ((green, share[0]), (yellow, share[0] + share[1])):
                    self.assertAlmostEqual(corners[index][0], x, delta=0.02)
                    self.assertAlmostEqual(corners[index][1], bottom + (top - bottom) * percent / 100,
                                           delta=0.02, msg=f"burst {burst} rate {rate}")

    def test_rates_far_apart_are_drawn_on_a_logarithmic_scale(self):
        title = "Smallest committed rate, in {}, by burst{}</h3>"
        self.assertIn(title.format("Mbit/s", ""), self.page)
        with tempfile.TemporaryDirectory() as folder:
            page = os.path.join(folder, "tune.html")
            # 1035197 packets/s with a burst of 1, 460 with one of 512
            tune("--report", page, "--packets", "--algorithm", "rfc4115", "--loss", "0%").check_returncode()
            text = pathlib.Path(page).read_text(encoding="utf-8")
        self.assertIn(title.format("packets/s", ", on a logarithmic scale"), text)
        for decade in ("1000", "10000", "100000", "1000000"):
            self.assertRegex(text, f">{decade}</tspan>")

    def test_the_bars_are_as_high_as_the_smallest_rates(self):
        svg = self.page[self.page.index("<svg"):]
        plot = svg[svg.index("_plot_1\""):svg.index("_plot_2\"")]
        heights = []
        for points in re.findall(r"<polygon[^>]*points ?= ?'([^']*)'", plot):
            ys = [float(y) for y in re.findall(r",(-?[\d.]+)", points)]
            heights.append(max(ys) - min(ys))
        rates = [float(cells[1]) for cells in self.cells(self.sections[0])]
        self.assertEqual(len(heights), len(rates))
        for height, rate in zip(heights, rates):
            self.assertAlmostEqual(height / heights[0], rate / rates[0], delta=0.001)


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
        table = text[text.index("smallest committed rate"):].splitlines()[2:12]
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

    def test_slow_traffic_has_no_rate_twice(self):
        # every packet a second apart: 1 unit is more than the mean
        frames = FRAMES[:3]
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "slow.pcap")
            with open(path, "wb") as f:
                f.write(struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 65535, 1))
                for second, frame in enumerate(frames):
                    f.write(struct.pack("<IIII", second, 0, frame.length, frame.length) + frame.data)
            sweep = os.path.join(folder, "sweep.csv")
            done = subprocess.run([VASK_METER, "tune", path, "--csv", sweep], capture_output=True, text=True,
                                  check=True)
            with open(sweep, encoding="ascii", newline="") as f:
                rates = [int(row["rate"]) for row in csv.DictReader(f)]
        self.assertIn("3 packets, mean rate 64 kbit/s", done.stdout)
        self.assertEqual(sorted(set(rates)), [8000, 16000, 24000, 32000])
        self.assertEqual(len(rates), 40)

    def test_without_a_filter_all_packets_count(self):
        self.assertTrue(tune().stdout.startswith("3585 packets, "))

    def test_refusals(self):
        for args, line in [
                (("--filter", "udp prt"), '--filter "udp prt": can\'t parse filter expression: syntax error; '
                 "accepted is an expression of pcap-filter(7)"),
                (("--filter", "port 1"), f'{CAPTURE}: no frames that pass --filter "port 1"; accepted are '
                 "captures with at least one"),
                (("--loss", "5"), '--loss "5": accepted is a share of the packets from 0% to 100%'),
                (("--loss", "101%"), '--loss "101%": accepted is a share of the packets from 0% to 100%'),
                (("--algorithm", "red"), '--algorithm "red": accepted are rfc2697, rfc2698, rfc4115')]:
            with self.subTest(args=args):
                done = tune(*args)
                self.assertEqual((done.returncode, done.stdout, done.stderr),
                                 (2, "", f"vask-meter: {line}\n"))


if __name__ == "__main__":
    unittest.main()
