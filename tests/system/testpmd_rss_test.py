# SPDX-License-Identifier: BSD-3-Clause
"""Receive-side scaling in software: testpmd with more receive queues than its uplink has."""

import os
import struct
import sys
import tempfile
import unittest

SOURCE = os.environ["VASK_SOURCE"]
sys.path[:0] = [os.path.join(SOURCE, "tests", "system"), os.path.join(SOURCE, "tests", "app")]

import pcap_reader  # noqa: E402
from testpmd import Testpmd, number  # noqa: E402

CAPTURE = os.path.join(SOURCE, "tests", "data", "iperf3.pcap")
FRAMES = 3585


def flow(frame):
    """Addresses, protocol and ports of an untagged IPv4 frame without options; None for others."""
    if frame[12:14] != b"\x08\x00":
        return None
    return frame[26:34], frame[23], struct.unpack("!2H", frame[34:38])


class Rss(unittest.TestCase):
    def test_a_capture_is_spread_over_two_queues_flow_by_flow(self):
        with tempfile.TemporaryDirectory() as folder:
            outs = [os.path.join(folder, f"{queue}.pcap") for queue in range(2)]
            with Testpmd(["net_vask1_0,uplink=net_pcap0",
                          f"net_pcap0,rx_pcap={CAPTURE}," + ",".join(f"tx_pcap={o}" for o in outs)],
                         options=["--rxq=2", "--txq=2"]) as t:
                # by ports too: testpmd asks for the addresses alone
                t.run("port config all rss all")
                t.forward(0, FRAMES)
                stats = t.run("show port xstats 0")
                shown = t.run("show port info 0")
            self.assertEqual(number(shown, "Redirection table size"), 128)
            counts = [number(stats, f"rx_q{queue}_packets") for queue in range(2)]
            self.assertEqual(sum(counts), FRAMES)
            self.assertEqual(number(stats, "rx_queue_dropped_packets"), 0)
            flows = []
            for out, count in zip(outs, counts):
                frames = [frame.data for frame in pcap_reader.read(out)]
                self.assertEqual(len(frames), count)
                self.assertGreater(count, 0)
                flows.append({flow(frame) for frame in frames} - {None})
            self.assertEqual(flows[0] & flows[1], set())


if __name__ == "__main__":
    unittest.main()
