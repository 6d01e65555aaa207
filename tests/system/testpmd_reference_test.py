# SPDX-License-Identifier: BSD-3-Clause
"""Every algorithm, mode and colour mode, on both sides at once: each frame that comes out of testpmd.

Each flow of the capture has a rule and a meter of its own on the receive side, and another one on the transmit
side, which meters what the first has left and marks what it finds green.
"""

import itertools
import os
import struct
import sys
import tempfile
import unittest

SOURCE = os.environ["VASK_SOURCE"]
sys.path[:0] = [os.path.join(SOURCE, "tests", "system"), os.path.join(SOURCE, "tests", "app")]

import pcap_reader  # noqa: E402
from meter_reference import GREEN, RED, Meter  # noqa: E402
from testpmd import Testpmd, number  # noqa: E402

CAPTURE = os.path.join(SOURCE, "tests", "data", "iperf3.pcap")
# net_pcap keeps microseconds
FRAMES = [f._replace(time_ns=f.time_ns // 1000 * 1000) for f in pcap_reader.read(CAPTURE)]
FLOWS = [("tcp", 6, 5201), ("tcp", 6, 5202), ("udp", 17, 5203), ("udp", 17, 5204), ("udp", 17, 5205)]
RECEIVE, TRANSMIT, MARK = 0x8000000000000088, 0x4000000000000088, 20

# algorithm, packets instead of bytes, colour-aware: all twelve, taken in turn
KINDS = list(itertools.product((2697, 2698, 4115), (False, True), (False, True)))
ALGORITHMS = {2697: "srtcm_rfc2697", 2698: "trtcm_rfc2698", 4115: "trtcm_rfc4115"}


def rates(flow, packets):
    """(cir, cbs, eir, ebs) that leave some of each colour in a flow."""
    if packets:
        return 20 + 5 * flow, 6, 40 + 5 * flow, 12
    if flow == 4:  # the slow one
        return 8000, 1024, 8000, 1024
    return 64000 - 8000 * flow, 12288, 96000 - 8000 * flow, 16384


def came_as(dscp):
    """RFC 2597: the drop precedence of the twelve AF code points; any other is green."""
    if 1 <= dscp >> 3 <= 4 and dscp % 2 == 0 and dscp >> 1 & 3:
        return (dscp >> 1 & 3) - 1
    return GREEN


def marked(data):
    """The frame with the DSCP that green packets get, its checksum worked out anew."""
    header = bytearray(data[14:14 + (data[14] & 15) * 4])
    header[1] = MARK << 2 | header[1] & 3
    header[10:12] = b"\0\0"
    header[10:12] = struct.pack(">H", ~pcap_reader.ones_sum(bytes(header)) & 0xFFFF)
    return data[:14] + bytes(header) + data[14 + len(header):]


class Side:
    """The meters of one side, one a flow; tells what becomes of a frame."""

    def __init__(self, first_id, kinds, marks):
        self.first_id, self.kinds, self.marks = first_id, kinds, marks
        self.meters = []
        for flow, (algorithm, packets, _) in enumerate(kinds):
            cir, cbs, eir, ebs = rates(flow, packets)
            self.meters.append(Meter(algorithm, cir, cbs, eir, ebs, packets))
        self.dropped = [[0, 0] for _ in FLOWS]

    def commands(self):
        side, mask = ("egress", TRANSMIT) if self.marks else ("ingress", RECEIVE)
        for flow, (algorithm, packets, aware) in enumerate(self.kinds):
            cir, cbs, eir, ebs = rates(flow, packets)
            i = self.first_id + flow
            numbers = (cir, cbs, ebs) if algorithm == 2697 else (cir, eir, cbs, ebs)
            yield (f"add port meter profile {ALGORITHMS[algorithm]} 0 {i} "
                   f"{' '.join(map(str, numbers))} {int(packets)}")
            yield f"create port meter 0 {i} {i} {2 if self.marks else 1} yes {mask:#x} 0 g {int(aware)}"
            proto, _, port = FLOWS[flow]
            yield (f"flow create 0 {side} pattern eth / ipv4 / {proto} dst is {port} / end "
                   f"actions meter mtr_id {i} / end")

    def pass_on(self, frame):
        """The frame as it leaves, or None."""
        ip = pcap_reader.IPv4(frame.data)
        flow = next((i for i, (_, proto, port) in enumerate(FLOWS)
                     if ip.valid and (ip.proto, ip.dport) == (proto, port)), None)
        if flow is None:
            return frame
        aware = self.kinds[flow][2]
        color = self.meters[flow].color(
            frame.time_ns, frame.length, came_as(ip.dscp) if aware else GREEN)
        if color == RED:
            self.dropped[flow][0] += 1
            self.dropped[flow][1] += frame.length
            return None
        if self.marks and color == GREEN:
            return frame._replace(data=marked(frame.data))
        return frame


class Reference(unittest.TestCase):
    def check(self, round_):
        kinds = list(itertools.islice(itertools.cycle(KINDS), round_ * 10, round_ * 10 + 10))
        receive, transmit = Side(10, kinds[:5], False), Side(20, kinds[5:], True)
        expected = [out for f in FRAMES
                    for within in [receive.pass_on(f)] if within is not None
                    for out in [transmit.pass_on(within)] if out is not None]
        self.assertLess(len(expected), len(FRAMES))

        with tempfile.TemporaryDirectory() as folder:
            out = os.path.join(folder, "out.pcap")
            with Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture",
                          f"net_pcap0,rx_pcap={CAPTURE},tx_pcap={out}"]) as t:
                t.run("add port meter policy 0 1 g_actions end y_actions end r_actions drop / end")
                t.run(f"add port meter policy 0 2 g_actions set_ipv4_dscp dscp_value {MARK} / end "
                      "y_actions end r_actions drop / end")
                for command in itertools.chain(receive.commands(), transmit.commands()):
                    said = [x for x in t.run(command) if not x.startswith("[offload_smartnic]")]
                    self.assertTrue(
                        said == [] or said[0].startswith("Flow rule"), f"{command}: {said}")
                t.forward(0, len(FRAMES))
                for side in (receive, transmit):
                    for flow, (packets, size) in enumerate(side.dropped):
                        shown = t.run(f"show port meter stats 0 {side.first_id + flow} no")
                        self.assertEqual(
                            (number(shown, "Pkts DROPPED"), number(shown, "Bytes DROPPED")),
                            (packets, size), (side.kinds[flow], FLOWS[flow]))
            sent = [f.data for f in pcap_reader.read(out)]
        self.assertEqual(sent, [f.data for f in expected])
        # the meters were not idle
        self.assertTrue(all(packets for packets, _ in receive.dropped), receive.dropped)


for number_ in range(3):
    setattr(Reference, f"test_frames_counts_and_marks_equal_the_reference_{number_ + 1}_of_3",
            lambda self, n=number_: self.check(n))


if __name__ == "__main__":
    unittest.main()
