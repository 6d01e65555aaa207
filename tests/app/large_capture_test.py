#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""A long capture: bounded memory, and not less than a third of the rate of reading it.

VASK_LARGE_CAPTURE sets the number of packets; the memory is compared with that of a tenth of them.
"""

import json
import os
import pathlib
import pty
import re
import subprocess
import sys
import tempfile
import unittest

TESTS = pathlib.Path(os.environ["VASK_SOURCE"]) / "tests"
sys.path.insert(0, str(TESTS / "system"))

from meter_reference import GREEN, YELLOW, Meter  # noqa: E402

VASK_METER = os.environ["VASK_METER"]
CAPTURE_TOOL = os.environ["CAPTURE_TOOL"]
PACKETS = int(os.environ.get("VASK_LARGE_CAPTURE", 2_000_000))
CONFIG = ("[profile 1]\nalgorithm = rfc2697\ncir = 250Mbit/s\ncbs = 64KiB\nebs = 64KiB\n"
          "[meter 1]\ndirection = rx\nprofile = 1\n")


def run(*command):
    """(output, seconds of processor, peak memory in KiB) of a command that succeeds."""
    with tempfile.TemporaryFile("w+") as out:
        with subprocess.Popen(command, stdout=out) as process:
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        assert process.returncode == 0, command
        out.seek(0)
        return out.read(), usage.ru_utime + usage.ru_stime, usage.ru_maxrss


def times_of(n):
    """The times at which capture_tool makes packets."""
    time_ns, state = 1700000000000000000, 1
    for _ in range(n):
        state = (state * 6364136223846793005 + 1442695040888963407) % 2**64
        time_ns += 500 + (state >> 33) % 1000
        yield time_ns


class LargeCapture(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(dir=os.environ["VASK_BUILD"])
        self.addCleanup(folder.cleanup)
        self.config = os.path.join(folder.name, "c.cfg")
        self.capture = os.path.join(folder.name, "large.pcap")
        self.json = os.path.join(folder.name, "out.json")
        pathlib.Path(self.config).write_text(CONFIG, encoding="ascii")

    def replay(self, packets):
        run(CAPTURE_TOOL, "make", self.capture, str(packets))
        _, seconds, peak = run(VASK_METER, "replay", self.config, self.capture, "--json", self.json)
        result = json.loads(pathlib.Path(self.json).read_text(encoding="ascii"))
        self.assertEqual(result["meters"][0]["offered"], {"packets": packets, "bytes": 64 * packets})
        return result, seconds, peak

    @unittest.skipIf(os.environ.get("VASK_SANITIZE", "none") != "none" or os.environ.get("VASK_COVERAGE") == "true",
                     "the cost of what counts or checks the build would be measured")
    def test_memory_is_bounded_and_the_rate_at_least_a_third_of_reading(self):
        _, _, small_peak = self.replay(PACKETS // 10)
        result, seconds, peak = self.replay(PACKETS)
        read, read_seconds, _ = run(CAPTURE_TOOL, "read", self.capture)
        self.assertEqual(int(read), PACKETS)
        rate, read_rate = PACKETS / seconds / 1e6, PACKETS / read_seconds / 1e6
        print(f"# {PACKETS} packets: replay {rate:.2f} Mpps, bare libpcap {read_rate:.2f} Mpps, "
              f"ratio {rate / read_rate:.2f}; peak {peak} KiB, {small_peak} KiB for a tenth of them")
        self.assertLess(peak, small_peak + 4096)
        self.assertGreaterEqual(rate / read_rate, 1 / 3)
        self.assertGreater(result["meters"][0]["dropped"]["packets"], 0)

    def test_both_interfaces_give_the_same_bytes(self):
        mtr, _, _ = self.replay(100_000)
        pathlib.Path(self.config).write_text("[setup]\ninterface = p4\n" + CONFIG, encoding="ascii")
        p4, _, _ = self.replay(100_000)
        self.assertEqual((mtr.pop("interface"), p4.pop("interface")), ("rte_mtr", "p4"))
        self.assertEqual(p4, mtr)

    def test_colours_of_100000_packets_are_the_reference_s(self):
        result, _, _ = self.replay(100_000)
        meter = Meter(2697, 31_250_000, 65536, 0, 65536)
        colours = [meter.color(t, 64) for t in times_of(100_000)]
        self.assertEqual(result["meters"][0]["green"]["packets"], colours.count(GREEN))
        self.assertEqual(result["meters"][0]["yellow"]["packets"], colours.count(YELLOW))

    def test_a_terminal_sees_a_bar_and_an_empty_line_afterwards(self):
        run(CAPTURE_TOOL, "make", self.capture, "200000")
        master, slave = pty.openpty()
        with subprocess.Popen([VASK_METER, "replay", self.config, self.capture],
                              stdout=subprocess.DEVNULL, stderr=slave) as process:
            os.close(slave)
            seen = b""
            try:
                while part := os.read(master, 4096):
                    seen += part
            except OSError:  # the end, on a pseudo terminal
                pass
        os.close(master)
        self.assertEqual(process.returncode, 0)
        # after 65536, 131072 and 196608 packets; the reader is up to a buffer ahead
        bars = re.findall(rb"\r\[(=*) *\] +(\d+)%", seen)
        self.assertEqual([int(percent) for _, percent in bars], [32, 65, 98])
        self.assertEqual([len(bar) for bar, _ in bars], [13, 26, 39])
        self.assertTrue(seen.endswith(b"%\r" + b" " * 48 + b"\r"), seen[-80:])


if __name__ == "__main__":
    unittest.main()
