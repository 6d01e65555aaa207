#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Every wrong input of vask-meter: one line that names it and what is accepted, an exit code, and no file left."""

import os
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

from program_folder import IMAGE, VASK_METER, Folder  # noqa: E402

UNITS = ("bit/s kbit/s Mbit/s Gbit/s, B/s kB/s MB/s GB/s, KiB/s MiB/s GiB/s for a rate; B kB MB GB KiB MiB GiB for "
         "a burst; pps kpps Mpps for a packet rate; packets for a burst of packets")
NOBODY = 65534

PROFILE = "[profile 1]\nalgorithm = rfc2697\ncir = 2Mbit/s\ncbs = 32KiB\nebs = 32KiB\n"
METER = "[meter 9]\ndirection = rx\nprofile = 1\n"


def packet(length, captured=None, data=None):
    captured = length if captured is None else captured
    return struct.pack("<IIII", 0, 0, captured, length) + (bytes(captured) if data is None else data)


class Options(Folder):
    def test_commands_options_and_arguments(self):
        commands = "replay, testpmd, tune, units, watch, p4"
        for args, line in [
                ([], f"a command is missing; accepted are {commands}"),
                (["nonsense"], f'"nonsense": unknown command; accepted are {commands}'),
                (["--what"], f'"--what": unknown command; accepted are {commands}'),
                (["p4"], "a command is missing; accepted are encode, decode"),
                (["p4", "x"], '"x": unknown command; accepted are encode, decode'),
                (["replay"], "CONFIG is required; see vask-meter replay --help"),
                (["replay", "c.cfg"], "CAPTURE is required; see vask-meter replay --help"),
                (["replay", "c.cfg", "in.pcap", "x"],
                 "The following argument was not expected: x; see vask-meter replay --help"),
                (["replay", "c.cfg", "in.pcap", "--what"],
                 "The following argument was not expected: --what; see vask-meter replay --help"),
                (["replay", "c.cfg", "in.pcap", "-o"],
                 "--out: 1 required TEXT missing; see vask-meter replay --help"),
                (["testpmd"], "CONFIG is required; see vask-meter testpmd --help"),
                (["tune"], "CAPTURE is required; see vask-meter tune --help"),
                (["units"], "QUANTITY is required; see vask-meter units --help"),
                (["p4", "encode"], "TABLE is required; see vask-meter p4 encode --help"),
                (["p4", "decode", "policer"], "HEX is required; see vask-meter p4 decode --help"),
        ]:
            with self.subTest(args=args):
                self.refused(2, line, *args)

    def test_values_of_options(self):
        share = "accepted is a share of the packets from 0% to 100%"
        for args, line in [
                (["tune", "in.pcap", "--loss", ""], f'--loss "": {share}'),
                (["tune", "in.pcap", "--loss", "1"], f'--loss "1": {share}'),
                (["tune", "in.pcap", "--loss", "-1%"], f'--loss "-1%": {share}'),
                (["tune", "in.pcap", "--loss", "100.1%"], f'--loss "100.1%": {share}'),
                (["tune", "in.pcap", "--loss", "nan%"], f'--loss "nan%": {share}'),
                (["tune", "in.pcap", "--algorithm", "rfc1"],
                 '--algorithm "rfc1": accepted are rfc2697, rfc2698, rfc4115'),
                (["tune", "in.pcap", "--excess", "1001"],
                 "--excess: Value 1001 not in range 0 to 1000; see vask-meter tune --help"),
                (["tune", "in.pcap", "--excess", "x"],
                 "--excess: Value x not in range 0 to 1000; see vask-meter tune --help"),
                (["tune", "in.pcap", "--filter", "udp prt"],
                 '--filter "udp prt": can\'t parse filter expression: syntax error; accepted is an expression of '
                 "pcap-filter(7)"),
                (["watch", "--interval", "0"],
                 "--interval: Value 0 not in range 0.100000 to 3600.000000; see vask-meter watch --help"),
                (["watch", "--sort", "x"], '--sort "x": accepted are meter, green, yellow, red, dropped'),
                (["watch", "--filter", "x"], '--filter "x": accepted are all, rx, tx, dropping'),
                (["units", ""], f'"" does not start with a number; accepted is a number and one of {UNITS}'),
                (["units", "5"], f'"5" has no unit; accepted are {UNITS}'),
                (["units", "1B", "5 furlong"], f'"5 furlong": unknown unit "furlong"; accepted are {UNITS}'),
                (["units", "5\nB"], f'"5\\x0aB": unknown unit "\\x0aB"; accepted are {UNITS}'),
                (["units", "-5B"], f'"-5B" does not start with a number; accepted is a number and one of {UNITS}'),
                (["units", "18446744073709551616B"],
                 '"18446744073709551616B": too large; accepted is at most 2^64 - 1 bytes'),
                (["units", "1" * 21 + "pps"], '"' + "1" * 21 + 'pps": too many digits; accepted are at most 20'),
                (["p4", "encode", "meter"],
                 'table "meter" is unknown; accepted are profile, policer, instance'),
                (["p4", "encode", "policer", "blue=1"],
                 '"blue=1": accepted is FIELD=NUMBER with a field of red_action red_dscp yellow_action yellow_dscp '
                 "green_action green_dscp"),
                (["p4", "encode", "policer", "red_dscp=1", "red_dscp=1"],
                 '"red_dscp=1": red_dscp is given twice; accepted is each field once'),
                (["p4", "encode", "policer", "red_dscp=64"],
                 "policer.red_dscp: 64 does not fit 6 bits; accepted is 0 to 63"),
                (["p4", "encode", "profile", "cir=0x"],
                 'profile.cir: "0x" is no number of 64 bits; accepted are decimal, 0x and hexadecimal, or a number '
                 "with its unit"),
                (["p4", "encode", "profile", "cir=5furlong"],
                 f'profile.cir: "5furlong": unknown unit "furlong"; accepted are {UNITS}'),
                (["p4", "decode", "policer", "0g"], '"0g": \'g\' is no hexadecimal digit; accepted are 0 to 9, a to f'),
                (["p4", "decode", "policer", "0"],
                 '"0": 1 hexadecimal digits make no whole bytes; accepted are two a byte'),
                (["p4", "decode", "policer", "00"],
                 "1 bytes are not a policer entry; accepted are 3 bytes, 6 hexadecimal digits"),
        ]:
            with self.subTest(args=args):
                done = self.run_(*args)
                self.assertEqual((done.returncode, done.stderr), (2, f"vask-meter: {line}\n"))


class Files(Folder):
    def test_input_that_is_not_there_or_is_something_else(self):
        config, capture = "accepted is a configuration file", "accepted is a capture, pcap or pcapng"
        os.mkfifo(self.folder / "fifo")
        for code, args, line in [
                (2, ["replay", "none.cfg", "in.pcap"], f"none.cfg: No such file or directory; {config}"),
                (2, ["testpmd", "none.cfg"], f"none.cfg: No such file or directory; {config}"),
                (2, ["replay", "c.cfg/x", "in.pcap"], f"c.cfg/x: Not a directory; {config}"),
                (2, ["replay", "", "in.pcap"], f'"": the empty path; {config}'),
                (2, ["replay", ".", "in.pcap"], f".: is a directory; {config}"),
                (2, ["replay", "fifo", "in.pcap"], f"fifo: is no regular file; {config}"),
                (2, ["replay", "c.cfg", "none.pcap"], f"none.pcap: No such file or directory; {capture}"),
                (2, ["replay", "c.cfg", "."], f".: is a directory; {capture}"),
                (2, ["tune", "none.pcap"], f"none.pcap: No such file or directory; {capture}"),
                (2, ["tune", "."], f".: is a directory; {capture}"),
                (2, ["tune", "c.cfg"], "c.cfg: not a capture (unknown file format); accepted are pcap and pcapng"),
                (2, ["replay", "in.pcap", "in.pcap"],
                 'CAPTURE "in.pcap": is the CONFIG file too; accepted is a file of its own'),
        ]:
            with self.subTest(args=args):
                self.refused(code, line, *args)

    def test_captures_that_are_broken_or_foreign(self):
        header = IMAGE[:24]
        linux = header[:20] + struct.pack("<I", 113)
        for name, image, line in [
                ("empty", b"", "not a capture (truncated dump file; tried to read 4 file header bytes, only got 0); "
                 "accepted are pcap and pcapng"),
                ("text", b"profile\n" * 9, "not a capture (unknown file format); accepted are pcap and pcapng"),
                ("half a header", header[:10], re.compile(r"not a capture \(truncated dump file; .*\); accepted are "
                                                          "pcap and pcapng")),
                ("no frames", header, "no frames; accepted are captures with at least one"),
                ("cut short", IMAGE[:-1], re.compile("frame 3585: truncated dump file.*")),
                ("another link", linux, "link type LINUX_SLL; accepted is EN10MB (Ethernet)"),
                ("cut frames", header + packet(100, 60),
                 "frame 1: 60 of 100 bytes captured; accepted are whole frames (tcpdump -s 0)"),
                ("short", header + packet(13), "frame 1: 13 bytes; accepted are frames of 14 to 16402 bytes"),
                ("long", header + packet(16403), "frame 1: 16403 bytes; accepted are frames of 14 to 16402 bytes"),
        ]:
            self.write("x.pcap", image)
            line = re.compile("x.pcap: " + line.pattern) if isinstance(line, re.Pattern) else f"x.pcap: {line}"
            for args in (["replay", "c.cfg", "x.pcap", "-o", "out.pcap", "--csv", "out.csv"],
                         ["tune", "x.pcap", "--csv", "out.csv"]):
                with self.subTest(name=name, args=args):
                    self.refused(2, line, *args)

    def test_output_that_cannot_be_written(self):
        (self.folder / "d").mkdir()
        for option in ("-o", "--csv", "--json", "--packets", "--report"):
            others = ["--csv", "other.csv"] if option != "--csv" else ["--json", "other.json"]
            replay = ["replay", "c.cfg", "in.pcap", *others, option]
            with self.subTest(option=option):
                self.refused(1, "d: cannot be written: Is a directory", *replay, "d")
                self.refused(1, "none/x: cannot be written: No such file or directory", *replay, "none/x")
                self.refused(1, "/dev/full: cannot be written: No space left on device", *replay, "/dev/full")
        for args in (["tune", "in.pcap", "--csv"], ["tune", "in.pcap", "--report"], ["testpmd", "c.cfg", "-o"]):
            with self.subTest(args=args):
                self.refused(1, "none/x: cannot be written: No such file or directory", *args, "none/x")
                self.refused(1, "/dev/full: cannot be written: No space left on device", *args, "/dev/full")
                self.assertTrue(pathlib.Path("/dev/full").is_char_device())
        empty = "the path is empty; accepted is the path of a file; see vask-meter"
        self.refused(2, f"--out: {empty} replay --help", "replay", "c.cfg", "in.pcap", "-o", "")
        self.refused(2, f"--csv: {empty} tune --help", "tune", "in.pcap", "--csv", "")

    def test_a_file_that_is_named_twice(self):
        os.symlink("in.pcap", self.folder / "link")
        own = "accepted is a file of its own"
        for args, line in [
                (["replay", "c.cfg", "in.pcap", "-o", "in.pcap"], '--out "in.pcap": is the CAPTURE file too'),
                (["replay", "c.cfg", "in.pcap", "-o", "link"], '--out "link": is the CAPTURE file too'),
                (["replay", "c.cfg", "in.pcap", "--csv", "./c.cfg"], '--csv "./c.cfg": is the CONFIG file too'),
                (["replay", "c.cfg", "in.pcap", "--csv", "x", "--json", "./x"], '--json "./x": is the --csv file too'),
                (["tune", "in.pcap", "--csv", "in.pcap"], '--csv "in.pcap": is the CAPTURE file too'),
                (["tune", "in.pcap", "--csv", "x", "--report", "x"], '--report "x": is the --csv file too'),
                (["testpmd", "c.cfg", "-o", "c.cfg"], '--out "c.cfg": is the CONFIG file too'),
        ]:
            with self.subTest(args=args):
                self.refused(2, f"{line}; {own}", *args)

    def test_a_link_is_written_through_and_a_device_twice(self):
        self.write("old", "old")
        os.symlink("old", self.folder / "link")
        done = self.run_("replay", "c.cfg", "in.pcap", "--csv", "link", "--json", "/dev/null", "--packets", "/dev/null")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertTrue((self.folder / "link").is_symlink())
        self.assertTrue((self.folder / "old").read_text().startswith("meter,port,direction,"))
        self.assertTrue(pathlib.Path("/dev/null").is_char_device())

    def test_a_failure_leaves_the_file_that_was_there(self):
        self.write("out.pcap", b"yesterday's")
        self.write("x.pcap", IMAGE[:-1])
        self.refused(2, re.compile("x.pcap: frame 3585: .*"), "replay", "c.cfg", "x.pcap", "-o", "out.pcap")

    def as_nobody(self):
        """Options of a run as a user without rights; skips where that user cannot reach the program."""
        if os.getuid() != 0:
            self.skipTest("needs root, to become somebody else")
        copy = self.folder / "program"
        shutil.copy(VASK_METER, copy)
        os.chmod(copy, 0o755)
        os.chmod(self.folder, 0o755)
        # the plugin is found beside the program, or here
        env = dict(os.environ, LD_LIBRARY_PATH=str(pathlib.Path(os.environ["VASK_PLUGIN"]).parent))
        who = {"user": NOBODY, "group": NOBODY, "extra_groups": [], "env": env}
        ran = subprocess.run([copy, "--version"], check=False, capture_output=True, **who)
        if ran.returncode != 0:
            self.skipTest("another user cannot run the program where it lies")
        return {"executable": copy, **who}

    @unittest.skipIf(os.environ.get("VASK_COVERAGE") == "true", "counting writes to files of the build")
    def test_files_of_somebody_else(self):
        nobody = self.as_nobody()
        closed = self.folder / "closed"
        closed.mkdir(mode=0o700)
        for name in ("secret.cfg", "secret.pcap", "kept.csv"):
            self.write(name, "x")
            os.chmod(self.folder / name, 0o600)
        for args, line in [
                (["replay", "secret.cfg", "in.pcap"], "secret.cfg: cannot be read: Permission denied"),
                (["replay", "closed/c.cfg", "in.pcap"], "closed/c.cfg: cannot be read: Permission denied"),
                (["tune", "secret.pcap"], "secret.pcap: cannot be read: Permission denied"),
                (["replay", "c.cfg", "in.pcap", "--csv", "new.csv"], "new.csv: cannot be written: Permission denied"),
                (["replay", "c.cfg", "in.pcap", "--csv", "kept.csv"], "kept.csv: cannot be written: Permission denied"),
                (["tune", "in.pcap", "--csv", "closed/x"], "closed/x: cannot be written: Permission denied"),
        ]:
            with self.subTest(args=args):
                self.refused(1, line, *args, **nobody)

    @unittest.skipUnless(shutil.which("mount") and os.getuid() == 0, "needs root, to mount")
    def test_a_disk_that_is_full_while_it_is_written(self):
        disk = self.folder / "disk"
        disk.mkdir()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "none", disk], check=False,
                                 capture_output=True)
        if mounted.returncode != 0:
            self.skipTest("no rights to mount a tmpfs")
        self.addCleanup(subprocess.run, ["umount", disk], check=True)
        for option in ("-o", "--packets", "--report"):
            with self.subTest(option=option):
                self.refused(1, "disk/x: cannot be written: No space left on device", "replay", "c.cfg", "in.pcap",
                             option, "disk/x")
                self.assertEqual(os.listdir(disk), [])


class Configurations(Folder):
    def test_each_wrong_line_is_named(self):
        good = PROFILE + METER
        for text, line in [
                ("", ": no meters; accepted is at least one [meter N]"),
                ("\x1b[2J\n", ':1: "\\x1b[2J": accepted are [section], key = value and ; comment'),
                ("\0\n", ":1: a byte of value 0; accepted is text"),
                ("x = 1\n", ':1: "x = 1" stands before the first [section]; accepted are keys in one'),
                ("[meter 9\n", ':1: "[meter 9": accepted is [name] or [name number]'),
                ("[color 1]\n", ":1: [color 1]: unknown section; accepted are setup, profile N, policy N, meter N, "
                 "flow N"),
                ("[meter nine]\n", ":1: [meter nine]: accepted is a number from 0 to 4294967295"),
                (good + good, ":9: [profile 1]: stands twice; accepted is one section for each id"),
                ("[setup]\nshape = enforce\n",
                 ':2: shape: "enforce": unknown key; accepted are interface, shapers, ports, mtu'),
                ("[setup]\nmtu = 1500\nmtu = 1500\n",
                 ':3: mtu: "1500": given twice in this section; accepted is each key once'),
                ("[setup]\nmtu = 60\n", ':2: mtu: "60": accepted is a number from 68 to 16384'),
                (good.replace("2Mbit/s", "2Mbits"), f':3: cir: "2Mbits": unknown unit "Mbits"; accepted are {UNITS}'),
                (good.replace("32KiB", "32pps"),
                 ':4: cbs: "32pps": accepted is a burst such as 64KiB, as cir counts bytes'),
                (PROFILE.replace("ebs = 32KiB\n", ""),
                 ":1: [profile 1]: ebs is missing; accepted is a burst such as 64KiB"),
                (METER, ':3: profile: "1": there is no [profile 1]; accepted is the number of a [profile N]'),
                (good + "policy = 7\n",
                 ':9: policy: "7": there is no [policy 7]; accepted is the number of a [policy N], or 0'),
                (good + "[flow 1]\nmeter = 8\n",
                 ':10: meter: "8": there is no [meter 8]; accepted is the number of a [meter N]'),
                (good + "[flow 1]\nmeter = 9\nsport = 1\n",
                 ':11: sport: "1": accepted is a port beside protocol = tcp or udp'),
        ]:
            self.write("x.cfg", text)
            for args in (["replay", "x.cfg", "in.pcap", "-o", "out.pcap"], ["testpmd", "x.cfg", "-o", "out"]):
                with self.subTest(text=text, command=args[0]):
                    self.refused(2, "x.cfg" + line, *args)

    def test_what_the_port_refuses_is_named_by_its_section(self):
        rules = "".join(f"[flow {n}]\nmeter = 9\nprotocol = udp\ndport = {n}\n" for n in range(1, 6))
        self.write("x.cfg", PROFILE + METER + rules)
        self.refused(1, re.compile(r"x\.cfg:25: \[flow 5\]: refused by the port: .+"), "replay", "x.cfg", "in.pcap",
                     "-o", "out.pcap")
        profiles = "".join(PROFILE.replace("[profile 1]", f"[profile {n}]") for n in range(1, 300))
        self.write("x.cfg", profiles + METER)
        self.refused(1, re.compile(r"x\.cfg:\d+: \[profile \d+\]: refused by the port: .+"), "replay", "x.cfg",
                     "in.pcap", "-o", "out.pcap")


if __name__ == "__main__":
    unittest.main()
