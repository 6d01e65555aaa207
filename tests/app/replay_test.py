#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""vask-meter replay: every packet against an exact reference, and every file it writes."""

import csv
import json
import os
import pathlib
import random
import re
import signal
import struct
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(os.environ["VASK_SOURCE"]) / "tests"
sys.path[:0] = [str(TESTS / "system"), str(TESTS / "app")]

import pcap_reader  # noqa: E402
from meter_reference import GREEN, RED, YELLOW, Meter  # noqa: E402

VASK_METER = os.environ["VASK_METER"]
EXAMPLE = TESTS.parent / "examples" / "metered-port.cfg"
CAPTURE = TESTS / "data" / "iperf3.pcap"
FRAMES = pcap_reader.read(CAPTURE)
PACKETS = [pcap_reader.IPv4(f.data) for f in FRAMES]
TCP, UDP = 6, 17
COLOURS = ["green", "yellow", "red"]


def came_as(packet):
    """The colour that a DSCP stands for: drop precedence of the assured-forwarding classes."""
    if packet.valid and 1 <= packet.dscp >> 3 <= 4 and packet.dscp & 1 == 0:
        return {1: GREEN, 2: YELLOW, 3: RED}.get(packet.dscp >> 1 & 3, GREEN)
    return GREEN


class Run:
    """One run of vask-meter replay in a folder of its own."""

    def __init__(self, config=None, capture=CAPTURE, args=(), env=None):
        with tempfile.TemporaryDirectory() as folder:
            if config is None:
                config_path = str(EXAMPLE)
            else:
                config_path = os.path.join(folder, "c.cfg")
                pathlib.Path(config_path).write_text(config, encoding="ascii")
            files = {"-o": "out.pcap", "--csv": "out.csv", "--json": "out.json"}
            command = [VASK_METER, "replay", config_path, str(capture), *args]
            for option, name in files.items():
                command += [option, os.path.join(folder, name)]
            done = subprocess.run(command, capture_output=True, text=True, check=False, env=env)
            self.code, self.stderr = done.returncode, done.stderr.replace(folder + "/", "")
            self.stdout = done.stdout.replace(folder + "/", "")
            self.files = {p.name: p.read_bytes() for p in pathlib.Path(folder).iterdir()}
            if self.code == 0:
                self.json = json.loads(self.files["out.json"])
                self.csv = list(csv.DictReader(self.files["out.csv"].decode().splitlines()))
                self.left = pcap_reader.read(os.path.join(folder, "out.pcap"))


def packet_lines(config):
    """(meters, left_ns) of each packet as --packets tells, and the run."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "packets.csv")
        run = Run(config, args=["--packets", path])
        assert run.code == 0, run.stderr
        with open(path, encoding="ascii", newline="") as f:
            rows = list(csv.DictReader(f))
    return rows, run


class Example(unittest.TestCase):
    """The committed example: three meters by flow rule."""

    @classmethod
    def setUpClass(cls):
        cls.config = EXAMPLE.read_text(encoding="ascii")
        cls.rows, cls.single = packet_lines(cls.config)
        cls.run_ = Run()
        meters = {
            9: Meter(2697, 2_000_000 // 8, 32 * 1024, 0, 64 * 1024),
            10: Meter(2698, 1_000_000 // 8, 16 * 1024, 2_000_000 // 8, 32 * 1024),
            11: Meter(4115, 40, 4, 20, 4, packet_mode=True),
        }
        cls.expected = []  # (meter, colour) or None
        for frame, packet in zip(FRAMES, PACKETS):
            meter = None
            if packet.valid and packet.proto == TCP:
                meter = 9
            elif packet.valid and packet.proto == UDP and packet.dport == 5205:
                meter = 11
            elif packet.valid and packet.proto == UDP and packet.dst == bytes([10, 0, 0, 2]):
                meter = 10
            cls.expected.append(
                meter and (meter, meters[meter].color(frame.time_ns, frame.length)))

    def survives(self, verdict):
        return verdict is None or verdict[1] == GREEN or (verdict[1] == YELLOW and verdict[0] != 11)

    def test_the_colour_of_every_packet_is_the_reference_s(self):
        self.assertEqual(len(self.rows), len(FRAMES))
        for number, (row, frame, verdict) in enumerate(zip(self.rows, FRAMES, self.expected), 1):
            words = "" if verdict is None else f"rx {verdict[0]} {COLOURS[verdict[1]]}"
            left = str(frame.time_ns) if self.survives(verdict) else ""
            self.assertEqual(row, {"packet": str(number), "arrived_ns": str(frame.time_ns),
                                   "length": str(frame.length), "meters": words, "left_ns": left})

    def test_all_colours_of_all_meters_occur(self):
        seen = set(filter(None, self.expected))
        self.assertEqual(len(seen), 8)  # the voice call never exceeds both buckets
        self.assertNotIn((11, RED), seen)

    def test_counters_are_the_sums_of_the_reference(self):
        for meter in self.run_.json["meters"]:
            verdicts = [(f.length, v[1]) for f, v in zip(FRAMES, self.expected)
                        if v and v[0] == meter["id"]]
            with self.subTest(meter=meter["id"]):
                def sums(colours):
                    lengths = [n for n, c in verdicts if c in colours]
                    return {"packets": len(lengths), "bytes": sum(lengths)}
                dropped = (YELLOW, RED) if meter["id"] == 11 else (RED,)
                self.assertEqual(meter["offered"], sums((GREEN, YELLOW, RED)))
                for colour, name in enumerate(COLOURS):
                    self.assertEqual(meter[name], sums((colour,)))
                self.assertEqual(meter["dropped"], sums(dropped))
                self.assertEqual(meter["passed"],
                                 sums([c for c in (GREEN, YELLOW, RED) if c not in dropped]))
                self.assertEqual(meter["rewritten"]["packets"],
                                 0 if meter["id"] == 11 else sums((YELLOW,))["packets"])

    def test_what_leaves_is_what_arrived_but_for_drops_and_the_yellow_dscp(self):
        kept = [(f, p, v) for f, p, v in zip(FRAMES, PACKETS, self.expected) if self.survives(v)]
        self.assertEqual(len(self.run_.left), len(kept))
        for out, (frame, packet, verdict) in zip(self.run_.left, kept):
            self.assertEqual((out.time_ns, out.length), (frame.time_ns, frame.length))
            if verdict and verdict[1] == YELLOW:
                rewritten = pcap_reader.IPv4(out.data)
                self.assertEqual((rewritten.dscp, rewritten.ecn), (14, packet.ecn))
                self.assertTrue(rewritten.header_checksum_ok())
                self.assertEqual(out.data[:15] + out.data[16:24] + out.data[26:],
                                 frame.data[:15] + frame.data[16:24] + frame.data[26:])
            else:
                self.assertEqual(out.data, frame.data)

    def test_packets_one_at_a_time_give_the_same_as_in_bursts(self):
        self.assertEqual(self.single.files["out.json"], self.run_.files["out.json"])
        self.assertEqual(self.single.files["out.pcap"], self.run_.files["out.pcap"])

    def test_a_second_run_gives_the_same_bytes(self):
        again = Run()
        self.assertEqual(again.files, self.run_.files)
        self.assertEqual(again.stdout, self.run_.stdout)

    def test_through_the_p4_tables_everything_is_the_same(self):
        p4 = Run(self.config.replace("interface = rte_mtr", "interface = p4"))
        self.assertEqual(p4.code, 0, p4.stderr)
        for name in ("out.pcap", "out.csv"):
            self.assertEqual(p4.files[name], self.run_.files[name])
        self.assertEqual(p4.json.pop("interface"), "p4")
        mtr = dict(self.run_.json)
        self.assertEqual(mtr.pop("interface"), "rte_mtr")
        self.assertEqual(p4.json, mtr)
        self.assertEqual(p4.stdout.replace("the P4 tables", "rte_mtr"), self.run_.stdout)

    def test_csv_and_json_say_the_same(self):
        for line, meter in zip(self.run_.csv, self.run_.json["meters"], strict=True):
            self.assertEqual(line["meter"], str(meter["id"]))
            for key in ("offered", "green", "yellow", "red", "dropped", "passed"):
                self.assertEqual(line[key + "_packets"], str(meter[key]["packets"]))
                self.assertEqual(line[key + "_bytes"], str(meter[key]["bytes"]))
            self.assertEqual(line["passed_rate"], f"{meter['passed_rate']:.3f}")

    def test_asked_and_held_values_are_shown_side_by_side(self):
        # 250000 / 8000 = 31.25: 31 units are 248000 bytes/s
        self.assertEqual(self.run_.json["profiles"][0], {
            "id": 5, "algorithm": "rfc2697", "mode": "bytes", "cir": {"asked": 250000, "held": 248000},
            "cbs": {"asked": 32768, "held": 32768}, "ebs": {"asked": 65536, "held": 65536}})
        self.assertIn("5 rfc2697       cir             2 Mbit/s      1.984 Mbit/s\n", self.run_.stdout)
        self.assertIn("committed rate: asked 2 Mbit/s, the card holds 1.984 Mbit/s", self.run_.stdout)

    def test_the_text_has_a_table_for_each_meter(self):
        for meter in self.run_.json["meters"]:
            self.assertIn(f"\nmeter {meter['id']}: port 0 rx, ", self.run_.stdout)
            for name in ("offered", "green", "yellow", "red", "dropped"):
                self.assertRegex(self.run_.stdout, r"\n  %s +%d +%d +[0-9.]+ \w" % (
                    name, meter[name]["packets"], meter[name]["bytes"]))
        self.assertIn(f"left: {len(self.run_.left)} packets", self.run_.stdout)
        self.assertTrue(self.run_.stdout.endswith(
            "wrote out.pcap\nwrote out.csv\nwrote out.json\n"), self.run_.stdout[-200:])
        self.assertEqual(self.run_.stderr, "")


class Report(unittest.TestCase):
    """The page of --report."""

    @classmethod
    def setUpClass(cls):
        cls.run_, cls.page = cls.report()

    @staticmethod
    def report():
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "report.html")
            run = Run(args=["--report", path])
            assert (run.code, run.stderr) == (0, ""), run.stderr
            return run, pathlib.Path(path).read_text(encoding="utf-8")

    def test_it_needs_nothing_from_elsewhere_and_runs_nothing(self):
        self.assertNotIn("<script", self.page)
        self.assertNotIn("<img", self.page)
        links = set(re.findall(r"(?:href|src|url)\s*[=(]\s*[\"']?([^\"')>\s]+)", self.page))
        self.assertEqual([x for x in links if not x.startswith(("#", "data:,"))], [])
        self.assertLess(len(self.page), 1 << 20)

    def test_each_meter_has_its_numbers_and_two_charts(self):
        sections = re.findall(r"<section.*?</section>", self.page, re.DOTALL)
        self.assertEqual(len(sections), 2 + len(self.run_.json["meters"]))  # at a glance, profiles
        for section, meter in zip(sections[2:], self.run_.json["meters"]):
            self.assertIn(f"<h2>Meter {meter['id']}, port 0 receive</h2>", section)
            for name in ("offered", "green", "yellow", "red", "dropped"):
                packets = meter[name]["packets"]
                share = 100 * packets / meter["offered"]["packets"]
                self.assertIn(f"{name}</th><td>{packets:,}</td><td>{share:.1f}</td>"
                              f"<td>{meter[name]['bytes']:,}</td>", section)
            self.assertEqual(section.count("<svg"), 4)  # each for wide places and for narrow ones
            self.assertEqual(section.count("</svg>"), 4)
            for words in ("committed rate", "came through", "committed bucket"):
                self.assertIn(words, section)

    def test_a_second_run_gives_the_same_page_and_sampling_changes_no_result(self):
        self.assertEqual(self.report()[1], self.page)
        self.assertEqual(Run().json, self.run_.json)

    def test_without_gnuplot_it_is_refused_and_nothing_stays(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "report.html")
            run = Run(args=["--report", path], env={"PATH": "/nonexistent"})
            self.assertEqual((run.code, run.stderr), (1, "vask-meter: the report's charts need gnuplot, "
                             "which is not installed (Debian: gnuplot-nox)\n"))
            self.assertEqual(os.listdir(folder), [])


class RandomMeters(unittest.TestCase):
    """One meter on the whole port, of every algorithm and mode, at parameters that hurt."""

    def test_every_packet_of_30_random_meters(self):
        rng = random.Random(2697)
        for number in range(30):
            algorithm = (2697, 2698, 4115)[number % 3]
            packets = rng.random() < 0.3
            aware = rng.random() < 0.4
            if packets:
                cir, eir = rng.randint(1, 1500), rng.randint(1, 1500)
                cbs, ebs = rng.randint(0, 40), rng.randint(0, 40)
            else:
                cir, eir = rng.randint(8000, 1_500_000), rng.randint(8000, 1_500_000)
                cbs, ebs = rng.randint(0, 1 << 17), rng.randint(0, 1 << 17)
            if algorithm == 2698:
                cir, eir = sorted((cir, eir))
            second, burst = {2697: ("", "ebs"), 2698: ("pir", "pbs"), 4115: ("eir", "ebs")}[algorithm]
            rate_unit, burst_unit = ("pps", "packets") if packets else ("B/s", "B")
            egress = rng.random() < 0.3
            config = (
                f"[profile 1]\nalgorithm = rfc{algorithm}\ncir = {cir}{rate_unit}\n"
                f"cbs = {cbs}{burst_unit}\n{burst} = {ebs}{burst_unit}\n"
                + (f"{second} = {eir}{rate_unit}\n" if second else "")
                + "[policy 2]\nred = drop\n"
                f"[meter 3]\nprofile = 1\npolicy = 2\ncolor_aware = {'yes' if aware else 'no'}\n"
                f"direction = {'tx' if egress else 'rx'}\n" + ("[flow 1]\nmeter = 3\n" if egress else ""))
            with self.subTest(number=number, config=config):
                rows, _ = packet_lines(config)
                reference = Meter(algorithm, cir, cbs, eir, ebs, packets)
                side = "tx 3" if egress else "rx 3"
                for row, frame, packet in zip(rows, FRAMES, PACKETS, strict=True):
                    colour = reference.color(frame.time_ns, frame.length,
                                             came_as(packet) if aware else GREEN)
                    self.assertEqual(row["meters"], f"{side} {COLOURS[colour]}", row)
                    self.assertEqual(row["left_ns"], "" if colour == RED else row["arrived_ns"])


PROFILE = "[profile 1]\nalgorithm = rfc2697\ncir = 2Mbit/s\ncbs = 32KiB\nebs = 32KiB\n"
DROP_RED = "[policy 7]\nred = drop\n"


class Setups(unittest.TestCase):
    def replayed(self, config, **options):
        run = Run(config, **options)
        self.assertEqual((run.code, run.stderr), (0, ""))
        return run

    def reference(self, frames=FRAMES):
        meter = Meter(2697, 250000, 32768, 0, 32768)
        return [meter.color(f.time_ns, f.length) for f in frames]

    def test_a_receive_meter_without_rules_meets_the_whole_port(self):
        run = self.replayed(PROFILE + DROP_RED + "[meter 9]\nprofile = 1\npolicy = 7\ndirection = rx\n")
        colours = self.reference()
        self.assertEqual(run.json["meters"][0]["offered"]["packets"], len(FRAMES))
        self.assertEqual(run.json["meters"][0]["dropped"]["packets"], colours.count(RED))
        self.assertEqual([f.data for f in run.left],
                         [f.data for f, c in zip(FRAMES, colours) if c != RED])

    def test_policy_0_drops_red(self):
        run = self.replayed(PROFILE + "[meter 9]\nprofile = 1\ndirection = rx\n")
        self.assertEqual(run.json["meters"][0]["dropped"], run.json["meters"][0]["red"])
        self.assertGreater(run.json["meters"][0]["red"]["packets"], 0)

    def test_a_disabled_meter_meets_nothing(self):
        run = self.replayed(PROFILE + "[meter 9]\nprofile = 1\ndirection = rx\nenable = no\n")
        self.assertEqual(run.json["meters"][0]["offered"], {"packets": 0, "bytes": 0})
        self.assertEqual(len(run.left), len(FRAMES))

    def test_two_ports_are_crossed_and_metered_on_both_sides(self):
        run = self.replayed("[setup]\nports = 2\n" + PROFILE + DROP_RED +
                            "[meter 9]\nport = 0\nprofile = 1\npolicy = 7\ndirection = rx\n"
                            "[meter 10]\nport = 1\nprofile = 1\npolicy = 7\ndirection = tx\n"
                            "[flow 1]\nmeter = 10\n")
        first, second = run.json["meters"]
        self.assertEqual((first["direction"], second["direction"], second["port"]), ("rx", "tx", 1))
        # the second meter has the same profile, so what the first one passed has a second loss
        survivors = [f for f, c in zip(FRAMES, self.reference()) if c != RED]
        colours = self.reference(survivors)
        self.assertEqual(second["offered"]["packets"], len(survivors))
        self.assertEqual(second["offered"], first["passed"])
        self.assertEqual(second["dropped"]["packets"], colours.count(RED))
        self.assertEqual(len(run.left), len(survivors) - colours.count(RED))

    def test_a_both_sides_meter_has_a_table_for_each_engine(self):
        run = self.replayed(PROFILE + DROP_RED + "[meter 9]\nprofile = 1\npolicy = 7\ndirection = both\n"
                            "[flow 1]\nmeter = 9\ndirection = egress\nprotocol = udp\n")
        first, second = run.json["meters"]
        self.assertEqual([(m["id"], m["direction"]) for m in (first, second)], [(9, "rx"), (9, "tx")])
        kept = [p for f, p, c in zip(FRAMES, PACKETS, self.reference()) if c != RED]
        self.assertEqual(first["offered"]["packets"], len(FRAMES))
        self.assertEqual(second["offered"]["packets"], sum(p.valid and p.proto == UDP for p in kept))

    def test_a_transmit_meter_that_no_rule_names_is_pointed_out(self):
        run = self.replayed(PROFILE + "[meter 9]\nprofile = 1\ndirection = tx\n")
        self.assertIn("note: meter 9 is for tx and no flow rule names it: no packet meets it\n",
                      run.stdout)
        self.assertEqual(run.json["meters"][0]["offered"]["packets"], 0)

    def test_rules_match_addresses_ports_and_dscp(self):
        def offered(rule):
            run = self.replayed(PROFILE + "[meter 9]\nprofile = 1\ndirection = rx\n[flow 1]\nmeter = 9\n" +
                                rule)
            return run.json["meters"][0]["offered"]["packets"]

        def count(match):
            return sum(1 for p in PACKETS if p.valid and match(p))

        self.assertEqual(offered("src = 10.0.0.1\n"), count(lambda p: p.src[3] == 1))
        self.assertEqual(offered("src = 10.0.0.0/31\n"), count(lambda p: p.src[3] < 2))
        self.assertEqual(offered("dst = 10.0.0.1\nprotocol = tcp\n"),
                         count(lambda p: p.dst[3] == 1 and p.proto == TCP))
        self.assertEqual(offered("dscp = 14\n"), count(lambda p: p.dscp == 14))
        self.assertEqual(offered("protocol = udp\ndport = 5203\n"),
                         count(lambda p: p.proto == UDP and p.dport == 5203))
        self.assertEqual(offered("protocol = tcp\nsport = 5201\n"),
                         count(lambda p: p.proto == TCP and p.sport == 5201))
        self.assertEqual(offered("src = 2001:db8::/32\n"), 0)
        self.assertEqual(offered("vlan = 7\n"), 0)
        self.assertEqual(offered(""), len(FRAMES))

    def test_frames_above_the_mtu_are_dropped_and_counted(self):
        run = self.replayed("[setup]\nmtu = 1000\n" + PROFILE +
                            "[meter 9]\nprofile = 1\ndirection = rx\nenable = no\n")
        long = sum(1 for f in FRAMES if f.length > 1000 + 14)
        self.assertEqual(run.json["drops"], {"port 0 rx_mtu_dropped_packets": long})
        self.assertEqual(len(run.left), len(FRAMES) - long)

    def test_enforced_shapers_delay_and_keep_the_times_of_departure(self):
        # a policy without drops: 8 Mbit/s of traffic behind a register of 54 units of 100 kbit/s
        run = self.replayed("[setup]\nshapers = enforce\n"
                            "[profile 1]\nalgorithm = rfc2697\ncir = 5Mbit/s\ncbs = 32KiB\nebs = 32KiB\n"
                            "[policy 7]\ngreen = pass\n"
                            "[meter 9]\nprofile = 1\npolicy = 7\ndirection = rx\n")
        self.assertEqual(len(run.left), len(FRAMES))
        times = [f.time_ns for f in run.left]
        self.assertEqual(times, sorted(times))
        delays = [out.time_ns - f.time_ns for out, f in zip(run.left, FRAMES)]
        self.assertGreaterEqual(min(delays), 0)
        self.assertEqual(run.json["delayed"], {"packets": sum(d > 0 for d in delays),
                                               "longest_ns": max(delays)})
        busy = [i for i, d in enumerate(delays) if d > 0]
        first, last = busy[0], busy[-1]
        sent = sum(f.length for f in run.left[first + 1:last + 1])
        self.assertAlmostEqual(sent * 8e9 / (times[last] - times[first]) / 5_400_000, 1, delta=0.01)
        self.assertIn("delayed by shapers: ", run.stdout)

    def test_rates_that_wrap_or_vanish_are_warned_about(self):
        run = self.replayed("[profile 1]\nalgorithm = rfc2697\ncir = 7999B/s\ncbs = 1GiB\nebs = 1023B\n"
                            "[meter 9]\nprofile = 1\ndirection = rx\n")
        self.assertIn("warning: below the resolution: the engine holds 0", run.stdout)
        self.assertIn("warning: wraps: 1048576 does not fit and is cut to 0", run.stdout)


class Refusals(unittest.TestCase):
    CONFIG = PROFILE + "[meter 9]\nprofile = 1\ndirection = rx\n"

    def refused(self, code, line, config=CONFIG, capture=CAPTURE, args=()):
        run = Run(config, capture=capture, args=args)
        self.assertEqual((run.code, run.stderr), (code, f"vask-meter: {line}\n"))
        self.assertEqual(set(run.files), {"c.cfg"}, "something half-written stayed")

    def image(self, image):
        with tempfile.NamedTemporaryFile(delete=False) as f:
            f.write(image)
        self.addCleanup(os.unlink, f.name)
        return f.name

    def test_a_wrong_configuration(self):
        self.refused(2, 'c.cfg:3: cir: "2Mbit/s x": unknown unit "Mbit/s x"; accepted are '
                     "bit/s kbit/s Mbit/s Gbit/s, B/s kB/s MB/s GB/s, KiB/s MiB/s GiB/s for a rate; "
                     "B kB MB GB KiB MiB GiB for a burst; pps kpps Mpps for a packet rate; packets "
                     "for a burst of packets", config=self.CONFIG.replace("2Mbit/s", "2Mbit/s x"))

    def test_what_the_port_refuses_names_the_object(self):
        rules = "".join(f"[flow {n}]\nmeter = 9\nprotocol = udp\ndport = {n}\n" for n in range(1, 6))
        run = Run(self.CONFIG + rules)
        self.assertEqual(run.code, 1)
        self.assertRegex(run.stderr, r"^vask-meter: c\.cfg:25: \[flow 5\]: refused by the port: .+\n$")
        self.assertEqual(set(run.files), {"c.cfg"})

    def test_a_missing_capture(self):
        self.refused(2, "no-such.pcap: No such file or directory; accepted is a capture, pcap or pcapng", capture="no-such.pcap")

    def test_a_folder(self):
        self.refused(2, "/usr: is a directory; accepted is a capture, pcap or pcapng", capture="/usr")

    def test_a_foreign_file(self):
        path = self.image(b"GIF89a" + bytes(100))
        self.refused(2, f"{path}: not a capture (unknown file format); accepted are pcap and pcapng",
                     capture=path)

    def test_another_link_type(self):
        image = bytearray(CAPTURE.read_bytes()[:24])
        image[20:24] = struct.pack("<I", 113)
        path = self.image(bytes(image))
        self.refused(2, f"{path}: link type LINUX_SLL; accepted is EN10MB (Ethernet)", capture=path)

    def test_a_capture_cut_short(self):
        path = self.image(CAPTURE.read_bytes()[:-1])
        run = Run(self.CONFIG, capture=path)
        self.assertEqual(run.code, 2)
        self.assertRegex(run.stderr, rf"^vask-meter: {re.escape(path)}: frame 3585: truncated dump file.*\n$")
        self.assertEqual(set(run.files), {"c.cfg"})

    def test_frames_that_are_not_whole(self):
        header = CAPTURE.read_bytes()[:24]
        path = self.image(header + struct.pack("<IIII", 0, 0, 60, 100) + bytes(60))
        self.refused(2, f"{path}: frame 1: 60 of 100 bytes captured; accepted are whole frames "
                     "(tcpdump -s 0)", capture=path)

    def test_frames_that_no_port_takes(self):
        header = CAPTURE.read_bytes()[:24]
        for length in (13, 16403):
            path = self.image(header + struct.pack("<IIII", 0, 0, length, length) + bytes(length))
            self.refused(2, f"{path}: frame 1: {length} bytes; accepted are frames of 14 to 16402 bytes",
                         capture=path)

    def test_times_that_are_none(self):
        image = CAPTURE.read_bytes()[:24]
        frame = bytes(60)
        for seconds, nanoseconds in (1, 10 ** 9), (1, -1), (-1, 0):
            path = self.image(image + struct.pack("<iiII", seconds, nanoseconds, 60, 60) + frame)
            self.refused(2, f"{path}: frame 1: {seconds} s and {nanoseconds} ns; accepted are times "
                         "from 1970 to 2038", capture=path)

    def test_a_capture_without_frames(self):
        path = self.image(CAPTURE.read_bytes()[:24])
        self.refused(2, f"{path}: no frames; accepted are captures with at least one", capture=path)

    def test_an_output_that_cannot_be_written(self):
        done = subprocess.run([VASK_METER, "replay", str(EXAMPLE), str(CAPTURE), "-o",
                               "/no-such-folder/out.pcap"], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"^vask-meter: /no-such-folder/out\.pcap: cannot be written: .*\n$")

    def test_a_full_disk(self):
        done = subprocess.run([VASK_METER, "replay", str(EXAMPLE), str(CAPTURE), "-o", "/dev/full"],
                              capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr),
                         (1, "vask-meter: /dev/full: cannot be written: No space left on device\n"))
        self.assertTrue(pathlib.Path("/dev/full").is_char_device())

    def test_an_interrupted_replay_leaves_nothing_behind(self):
        with tempfile.TemporaryDirectory() as folder:
            fifo = os.path.join(folder, "fifo")
            os.mkfifo(fifo)
            out = os.path.join(folder, "out.pcap")
            with subprocess.Popen([VASK_METER, "replay", str(EXAMPLE), fifo, "-o", out],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True) as p:
                image = CAPTURE.read_bytes()
                with open(fifo, "wb", buffering=0) as feed:
                    feed.write(image[:100_000])  # more than a pipe holds: the program is reading
                    self.assertEqual([n for n in os.listdir(folder) if n.startswith("out.pcap")],
                                     [f"out.pcap.part.{p.pid}"])
                    p.send_signal(signal.SIGINT)
                    try:
                        feed.write(image[100_000:])
                    except BrokenPipeError:
                        pass
                stderr = p.stderr.read()
            self.assertEqual(p.returncode, 1)
            self.assertRegex(stderr, r"^vask-meter: .*/fifo: interrupted at frame \d+\n$")
            self.assertEqual(os.listdir(folder), ["fifo"])

    @unittest.skipIf(os.environ.get("VASK_SANITIZE", "none") != "none", "a sanitizer needs more by itself")
    def test_too_little_memory(self):
        done = subprocess.run(["prlimit", "--as=400000000", VASK_METER, "replay", str(EXAMPLE), str(CAPTURE)],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"^vask-meter: EAL does not start: .+\n$")

    def test_runs_side_by_side_leave_each_other_alone(self):
        command = [VASK_METER, "replay", str(EXAMPLE), str(CAPTURE)]
        runs = [subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
                for _ in range(4)]
        outputs = {run.communicate()[0] for run in runs}
        self.assertEqual(len(outputs), 1, outputs)
        self.assertEqual([run.returncode for run in runs], [0] * 4)

    def test_jumbo_frames_pass(self):
        header = CAPTURE.read_bytes()[:24]
        frame = bytes(12) + b"\x08\x06" + bytes(range(256)) * 64
        path = self.image(header + struct.pack("<IIII", 1, 2, len(frame), len(frame)) + frame)
        run = Run(self.CONFIG.replace("32KiB", "64KiB"), capture=path)
        self.assertEqual((run.code, run.stderr), (0, ""))
        self.assertEqual(run.left, [pcap_reader.Frame(10**9 + 2, len(frame), frame)])


if __name__ == "__main__":
    unittest.main()
