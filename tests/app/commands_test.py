#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""vask-meter units and p4, as a person runs them."""

import os
import pathlib
import random
import re
import subprocess
import tempfile
import unittest

VASK_METER = os.environ["VASK_METER"]
SOURCE = pathlib.Path(os.environ["VASK_SOURCE"])

# Written down here on purpose, apart from the program's own tables: field and width, low bit first.
ENTRIES = {
    "profile": [("cir", 64), ("eir", 64), ("cbs", 64), ("ebs", 64),
                ("packet_mode", 2), ("meter_rfc", 2), ("rsv", 4)],
    "policer": [("red_action", 2), ("red_dscp", 6), ("yellow_action", 2), ("yellow_dscp", 6),
                ("green_action", 2), ("green_dscp", 6)],
    "instance": [("type", 1), ("dir", 1), ("meter_enable", 1), ("color_mode", 1),
                 ("origin_pkt", 1), ("stats_mask", 8), ("dpdk_port_id", 16),
                 ("profile_id", 8), ("policer_id", 8), ("rsv", 3)],
}


def run(*args, stdin=None):
    return subprocess.run([VASK_METER, *args], input=stdin, capture_output=True, text=True,
                          check=False)


def packed(table, values):
    image, at = 0, 0
    for name, width in ENTRIES[table]:
        image |= values[name] << at
        at += width
    return image.to_bytes(at // 8, "little")


class P4(unittest.TestCase):
    def test_10000_random_entries_of_each_kind_go_there_and_back(self):
        rng = random.Random(6)
        for table, fields in ENTRIES.items():
            with self.subTest(table=table):
                entries = [{name: rng.getrandbits(width) for name, width in fields}
                           for _ in range(10000)]
                lines = "".join(" ".join(f"{n}={v}" for n, v in e.items()) + "\n" for e in entries)
                encoded = run("p4", "encode", "--brief", table, "-", stdin=lines)
                self.assertEqual(encoded.stderr, "")
                self.assertEqual(encoded.stdout.split(), [packed(table, e).hex() for e in entries])
                decoded = run("p4", "decode", "--brief", table, "-", stdin=encoded.stdout)
                self.assertEqual(decoded.stdout, lines)

    def test_fields_take_units_hex_and_default_to_zero(self):
        done = run("p4", "encode", "--brief", "profile", "cir=10Mbit/s", "cbs=64KiB", "ebs=0x10000")
        expected = packed("profile", {"cir": 1250000, "eir": 0, "cbs": 65536, "ebs": 65536,
                                      "packet_mode": 0, "meter_rfc": 0, "rsv": 0})
        self.assertEqual((done.returncode, done.stdout), (0, expected.hex() + "\n"))

    def test_bytes_may_be_set_apart(self):
        done = run("p4", "decode", "--brief", "policer", "02", "3a", "0f")
        self.assertEqual(done.stdout, "red_action=2 red_dscp=0 yellow_action=2 yellow_dscp=14 "
                                      "green_action=3 green_dscp=3\n")

    def test_the_picture_and_its_notes(self):
        done = run("p4", "decode", "policer", "023a0f")
        self.assertEqual(done.stdout.splitlines(), [
            "red_action=2 red_dscp=0 yellow_action=2 yellow_dscp=14 green_action=3 green_dscp=3",
            "",
            "field              bits  value                   meaning",
            "red_action         0..1  2                       drop",
            "red_dscp           2..7  0                       the DSCP written by action 1",
            "yellow_action      8..9  2                       drop",
            "yellow_dscp      10..15  14                      as red_dscp",
            "green_action     16..17  3                       reserved",
            "green_dscp       18..23  3                       as red_dscp",
            "",
            "byte  hex  7 6 5 4 3 2 1 0  fields, high bit first",
            "   0   02  0 0 0 0 0 0 1 0  red_dscp red_action",
            "   1   3a  0 0 1 1 1 0 1 0  yellow_dscp yellow_action",
            "   2   0f  0 0 0 0 1 1 1 1  green_dscp green_action",
            "note: green_action 3 is reserved: it is taken, and packets pass",
        ])

    def test_refusals_are_one_line_and_exit_2(self):
        for args, line in [
                (("encode", "meter"), 'table "meter" is unknown; accepted are profile, policer, instance'),
                (("encode", "policer", "blue=1"),
                 '"blue=1": accepted is FIELD=NUMBER with a field of red_action red_dscp '
                 'yellow_action yellow_dscp green_action green_dscp'),
                (("encode", "policer", "red_dscp"),
                 '"red_dscp": accepted is FIELD=NUMBER with a field of red_action red_dscp '
                 'yellow_action yellow_dscp green_action green_dscp'),
                (("encode", "policer", "red_dscp=1", "red_dscp=2"),
                 '"red_dscp=2": red_dscp is given twice; accepted is each field once'),
                (("encode", "policer", "red_dscp=64"),
                 "policer.red_dscp: 64 does not fit 6 bits; accepted is 0 to 63"),
                (("encode", "policer", "red_dscp=x"), 'policer.red_dscp: "x" does not start with a number; accepted is a number and one of '
                 "bit/s kbit/s Mbit/s Gbit/s, B/s kB/s MB/s GB/s, KiB/s MiB/s GiB/s for a rate; B kB MB GB "
                 "KiB MiB GiB for a burst; pps kpps Mpps for a packet rate; packets for a burst of packets"),
                (("encode", "profile", "cir=18446744073709551616"),
                 'profile.cir: "18446744073709551616" is no number of 64 bits; accepted are decimal, 0x and '
                 "hexadecimal, or a number with its unit"),
                (("decode", "policer", "02"),
                 "1 bytes are not a policer entry; accepted are 3 bytes, 6 hexadecimal digits"),
                (("decode", "policer", "02xx"), '"02xx": \'x\' is no hexadecimal digit; accepted are 0 to 9, a to f'),
        ]:
            with self.subTest(args=args):
                done = run("p4", *args)
                self.assertEqual((done.returncode, done.stdout, done.stderr),
                                 (2, "", f"vask-meter: {line}\n"))

    def test_a_wrong_line_of_standard_input_is_named(self):
        done = run("p4", "decode", "--brief", "policer", "-", stdin="000000\n00\n")
        self.assertEqual(done.returncode, 2)
        self.assertEqual(done.stderr, "vask-meter: standard input:2: 1 bytes are not a policer entry; accepted "
                                      "are 3 bytes, 6 hexadecimal digits\n")


class Units(unittest.TestCase):
    def table(self, *args):
        done = run("units", *args)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [" ".join(line.split()) for line in done.stdout.splitlines()]

    def test_a_rate_in_every_table_and_register(self):
        # 1250000 / 8000 = 156.25; * 8 / 1000 = 10000; * 1.08 * 8 / 100000 = 108
        self.assertEqual(self.table("10Mbit/s"), [
            "10Mbit/s: 1250000 bytes/s, 10 Mbit/s",
            "table field holds effective error",
            "meter engine profile cir, eir 156 1248000 bytes/s, 9.984 Mbit/s -0.160 %",
            "pipeline meter profile cir, eir 1250000 1250000 bytes/s, 10 Mbit/s +0.000 %",
            "port shaper max_rate 10000 1250000 bytes/s, 10 Mbit/s +0.000 %",
            "ingress-scheduler shaper rate (+8 %) 108 1350000 bytes/s, 10.8 Mbit/s +8.000 %",
        ])

    def test_a_burst_in_the_two_profile_tables(self):
        self.assertEqual(self.table("1000B"), [
            "1000B: 1000 bytes",
            "table field holds effective error",
            "meter engine profile cbs, ebs 0 0 bytes -100.000 %",
            "pipeline meter profile cbs, ebs 1000 1000 bytes +0.000 %",
            "warning: meter engine profile cbs, ebs: below the resolution: the engine holds 0",
        ])

    def test_a_packet_rate_goes_through_the_byte_formula_of_the_shapers(self):
        # 5000 * 8 / 1000 = 40 units of 125 packets/s; 5000 * 1.08 * 8 / 100000 = 0
        self.assertEqual(self.table("5000pps")[2:], [
            "meter engine profile cir, eir 5000 5000 packets/s +0.000 %",
            "pipeline meter profile cir, eir 5000 5000 packets/s +0.000 %",
            "port shaper max_rate 40 5000 packets/s +0.000 %",
            "ingress-scheduler shaper rate (+8 %) 0 0 packets/s no limit",
            "warning: ingress-scheduler shaper rate (+8 %): below the resolution: the shaper does "
            "not limit",
        ])

    def test_several_quantities_one_after_the_other(self):
        lines = self.table("100bit/s", "64KiB")
        self.assertEqual(lines[0], "100bit/s: 12 bytes/s, 96 bit/s (a fraction was cut off)")
        self.assertIn("64KiB: 65536 bytes", lines)

    def test_an_unknown_unit_is_refused(self):
        done = run("units", "10furlongs")
        self.assertEqual((done.returncode, done.stdout), (2, ""))
        self.assertTrue(done.stderr.startswith('vask-meter: "10furlongs": unknown unit "furlongs"; '
                                               "accepted are bit/s kbit/s"), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1)


class Program(unittest.TestCase):
    def test_every_command_has_help_with_an_example(self):
        for command in (["replay"], ["tune"], ["units"], ["testpmd"], ["watch"], ["p4", "encode"],
                        ["p4", "decode"]):
            with self.subTest(command=command):
                done = run(*command, "--help")
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                self.assertIn("Example:\n  vask-meter " + " ".join(command), done.stdout)

    def test_every_help_has_the_exit_codes_and_only_they_end_a_command(self):
        for command in ([], ["replay"], ["tune"], ["units"], ["testpmd"], ["watch"], ["p4"], ["p4", "encode"],
                        ["p4", "decode"]):
            with self.subTest(command=command):
                codes = run(*command, "--help").stdout.split("\nExit codes:\n")[1]
                self.assertEqual(re.findall(r"^  (\d)  (\w+)", codes, re.MULTILINE),
                                 [("0", "done"), ("1", "the"), ("2", "the")])

    def test_the_examples_of_the_help_work_as_they_stand(self):
        with tempfile.TemporaryDirectory() as folder:
            for name in ("examples", "tests"):
                os.symlink(SOURCE / name, os.path.join(folder, name))
            env = dict(os.environ, PATH=os.path.dirname(VASK_METER) + os.pathsep + os.environ["PATH"])
            for command in ([], ["replay"], ["tune"], ["units"], ["testpmd"], ["p4"], ["p4", "encode"],
                            ["p4", "decode"]):  # watch has a process to look at in watch_live_test
                examples = re.findall(r"^  (vask-meter .*)$", run(*command, "--help").stdout, re.MULTILINE)
                self.assertGreater(len(examples), 0)
                for example in examples:
                    with self.subTest(example=example):
                        done = subprocess.run(example, shell=True, cwd=folder, env=env, check=False,
                                              capture_output=True, text=True)
                        self.assertEqual((done.returncode, done.stderr), (0, ""))
                        self.assertTrue(done.stdout or "-o " in example)


if __name__ == "__main__":
    unittest.main()
