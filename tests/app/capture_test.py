#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""What the committed capture holds; other tests and documents lean on these numbers."""

import collections
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import pcap_reader

CAPTURE = pathlib.Path(__file__).resolve().parents[1] / "data" / "iperf3.pcap"
TCP, UDP = 6, 17
CLIENT, SERVER = bytes([10, 0, 0, 1]), bytes([10, 0, 0, 2])


class Capture(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.frames = pcap_reader.read(CAPTURE)
        cls.packets = [pcap_reader.IPv4(f.data) for f in cls.frames]

    def count(self, proto, dscp=None, src=None):
        """Packets and bytes of a kind."""
        lengths = [f.length for f, p in zip(self.frames, self.packets)
                   if p.valid and p.proto == proto
                   and dscp in (None, p.dscp) and src in (None, p.src)]
        return len(lengths), sum(lengths)

    def test_it_is_a_few_megabytes_of_whole_frames(self):
        self.assertEqual(len(self.frames), 3585)
        self.assertEqual(sum(f.length for f in self.frames), 3167028)
        self.assertEqual([f for f in self.frames if len(f.data) != f.length], [])

    def test_no_frame_is_longer_than_1514_bytes(self):
        self.assertEqual(max(f.length for f in self.frames), 1514)

    def test_time_never_runs_backwards_and_counts_nanoseconds(self):
        times = [f.time_ns for f in self.frames]
        self.assertEqual(times, sorted(times))
        self.assertEqual(times[-1] - times[0], 3143024219)

    def test_tcp_and_udp_are_there_in_these_numbers(self):
        self.assertEqual(self.count(TCP), (2208, 2222370))
        self.assertEqual(self.count(UDP), (1375, 944574))
        other = [p for p in self.packets if not p.valid]
        self.assertEqual(len(other), 2)  # ARP, one each way

    def test_each_flow_carries_its_dscp(self):
        self.assertEqual(self.count(TCP, 10, CLIENT), (415, 592638))
        self.assertEqual(self.count(UDP, 12, CLIENT), (469, 582498))
        self.assertEqual(self.count(UDP, 14, CLIENT), (750, 331500))
        self.assertEqual(self.count(UDP, 46, CLIENT), (150, 30300))
        dscps = collections.Counter(p.dscp for p in self.packets if p.valid)
        self.assertEqual(dscps, {0: 1799, 10: 415, 12: 469, 14: 750, 46: 150})

    def test_both_directions_of_the_wire_are_there(self):
        self.assertEqual(self.count(TCP, src=CLIENT)[0], 1592)
        self.assertEqual(self.count(TCP, src=SERVER)[0], 616)

    def test_all_checksums_are_right(self):
        for number, p in enumerate(self.packets, 1):
            if p.valid:
                with self.subTest(frame=number):
                    self.assertTrue(p.header_checksum_ok())
                    self.assertTrue(p.payload_checksum_ok())


if __name__ == "__main__":
    unittest.main()
