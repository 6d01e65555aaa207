# SPDX-License-Identifier: BSD-3-Clause
"""Meters of a port in the distribution's dpdk-testpmd, from its prompt, on the recorded capture."""

import os
import sys
import tempfile
import unittest

SOURCE = os.environ["VASK_SOURCE"]
sys.path[:0] = [os.path.join(SOURCE, "tests", "system"), os.path.join(SOURCE, "tests", "app")]

import pcap_reader  # noqa: E402
from meter_reference import GREEN, RED, YELLOW, Meter, dropped  # noqa: E402
from testpmd import Testpmd, number  # noqa: E402

CAPTURE = os.path.join(SOURCE, "tests", "data", "iperf3.pcap")
# net_pcap keeps microseconds
FRAMES = [f._replace(time_ns=f.time_ns // 1000 * 1000) for f in pcap_reader.read(CAPTURE)]

RECEIVE, TRANSMIT, BOTH = 0x8000000000000088, 0x4000000000000088, 0x88

CAPABILITIES = """\
****   Port Meter Object Capabilities ****
cap.n_max 4095
cap.n_shared_max 4095
cap.identical 0
cap.shared_identical 0
cap.shared_n_flows_per_mtr_max 4
cap.chaining_n_mtrs_per_flow_max 1
cap.chaining_use_prev_mtr_color_supported 0
cap.chaining_use_prev_mtr_color_enforced 0
cap.meter_srtcm_rfc2697_n_max 4095
cap.meter_trtcm_rfc2698_n_max 4095
cap.meter_trtcm_rfc4115_n_max 0
cap.meter_rate_max 1099511627775
cap.color_aware_srtcm_rfc2697_supported 0
cap.color_aware_trtcm_rfc2698_supported 0
cap.color_aware_trtcm_rfc4115_supported 0
cap.srtcm_rfc2697_byte_mode_supported 1
cap.srtcm_rfc2697_packet_mode_supported 1
cap.trtcm_rfc2698_byte_mode_supported 1
cap.trtcm_rfc2698_packet_mode_supported 1
cap.trtcm_rfc4115_byte_mode_supported 1
cap.trtcm_rfc4115_packet_mode_supported 1
cap.stats_mask 88
cap.input_color_proto_mask 0x0
cap.separate_input_color_table_per_port 0""".split("\n")

PROFILES = {
    5: "srtcm_rfc2697 {port} 5 100000 20000 20000 0",
    6: "trtcm_rfc2698 {port} 6 100000 200000 20000 40000 0",
    8: "trtcm_rfc4115 {port} 8 100000 50000 20000 10000 0",
}
POLICIES = {
    7: "7 g_actions end y_actions end r_actions drop / end",
    3: "3 g_actions set_ipv4_dscp dscp_value 10 / end y_actions end r_actions drop / end",
}


def udp(frame):
    ip = pcap_reader.IPv4(frame.data)
    return ip.valid and ip.proto == 17


class Session(unittest.TestCase):
    """A testpmd whose port is ours; each test says which."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.out = os.path.join(folder.name, "out.pcap")
        self.vask = "net_vask1_0,uplink=net_pcap0,clock=capture"
        self.pcap = f"net_pcap0,rx_pcap={CAPTURE},tx_pcap={self.out}"

    def prepare(self, t, port=0):
        """Profiles and policies; each command is answered by nothing but log lines."""
        for command in [f"add port meter profile {p.format(port=port)}" for p in PROFILES.values()]:
            self.answers(t, command)
        for policy in POLICIES.values():
            self.answers(t, f"add port meter policy {port} {policy}")

    def answers(self, t, command, *expected):
        """A command's output but for the driver's log lines."""
        lines = [x for x in t.run(command) if not x.startswith("[offload_smartnic]")]
        self.assertEqual(lines, list(expected), command)

    def create(self, t, meter, profile, policy, mask, port=0):
        self.answers(t, f"create port meter {port} {meter} {profile} {policy} yes {mask:#x} 0 g 0")

    def forward(self, t, port=0, frames=len(FRAMES)):
        """Runs the capture through; returns once the port has seen all of it."""
        self.assertEqual(t.forward(port, frames), frames)

    def drops(self, t, meter, port=0):
        lines = t.run(f"show port meter stats {port} {meter} no")
        return number(lines, "Pkts DROPPED"), number(lines, "Bytes DROPPED")


class TestpmdMeter(Session):
    def test_capability_report_is_the_modules(self):
        with Testpmd([self.vask, self.pcap]) as t:
            self.answers(t, "show port meter cap 0", *CAPABILITIES)

    def test_receive_meter_drops_what_the_reference_drops_and_its_life_is_refused_and_granted(self):
        packets, size, kept = dropped(Meter(2697, 100000, 20000, 0, 20000), FRAMES)
        with Testpmd([self.vask, self.pcap]) as t:
            self.prepare(t)
            self.create(t, 9, 5, 7, RECEIVE)
            self.assertEqual(self.drops(t, 9), (0, 0))
            self.forward(t)
            self.assertEqual(self.drops(t, 9), (packets, size))
            self.answers(t, "create port meter 0 9 5 7 yes 0x88 0 g 0",
                         "meter id: meter id repeat err (error 5)")
            self.answers(t, "create port meter 0 10 1 7 yes 0x88 0 g 0",
                         "meter profile id: add meter but not find profile (error 2)")
            self.answers(t, "create port meter 0 10 5 1 yes 0x88 0 g 0",
                         "meter policy id: add meter but not find policy (error 13)")
            self.answers(t, "del port meter profile 0 5",
                         "meter profile null: meter profile reference not 0! (error 3)")
            self.answers(t, "del port meter policy 0 7",
                         "meter policy null: meter policy reference not 0! (error 14)")
            self.answers(t, "enable port meter 0 9")
            self.answers(t, "disable port meter 0 9")
            self.answers(t, "disable port meter 0 9")
            self.answers(t, "enable port meter 0 9")
            self.answers(t, "enable port meter 0 77",
                         "meter id: meter id not found! (error 5)")
            self.answers(t, "del port meter 0 9")
            self.answers(t, "del port meter 0 9")
            self.answers(t, "show port meter stats 0 9 no")
            for profile in PROFILES:
                self.answers(t, f"del port meter profile 0 {profile}")
            for policy in POLICIES:
                self.answers(t, f"del port meter policy 0 {policy}")
        self.assertEqual([f.data for f in pcap_reader.read(self.out)], [f.data for f in kept])

    def test_uplink_named_first_makes_ours_port_1_and_hides_itself(self):
        packets, size, kept = dropped(Meter(2698, 100000, 20000, 200000, 40000), FRAMES)
        with Testpmd([self.pcap, self.vask]) as t:
            self.assertNotIn("Configuring Port 0", t.banner)
            self.assertIn("Configuring Port 1", t.banner)
            self.prepare(t, port=1)
            self.create(t, 9, 6, 7, RECEIVE, port=1)
            self.forward(t, port=1)
            self.assertEqual(self.drops(t, 9, port=1), (packets, size))
        self.assertEqual([f.data for f in pcap_reader.read(self.out)], [f.data for f in kept])

    def test_rule_with_meter_action_meters_its_packets_alone(self):
        packets, size, kept = dropped(
            Meter(4115, 100000, 20000, 50000, 10000), [f for f in FRAMES if udp(f)])
        with Testpmd([self.vask, self.pcap]) as t:
            self.prepare(t)
            self.create(t, 9, 8, 7, RECEIVE)
            self.answers(
                t, "flow create 0 ingress pattern eth / ipv4 / udp / end "
                "actions meter mtr_id 9 / end", "Flow rule #0 created")
            self.forward(t)
            self.assertEqual(self.drops(t, 9), (packets, size))
            self.answers(t, "flow destroy 0 rule 0", "Flow rule #0 destroyed")
        stays = {f.time_ns for f in kept}
        self.assertEqual([f.data for f in pcap_reader.read(self.out)],
                         [f.data for f in FRAMES if not udp(f) or f.time_ns in stays])

    def test_transmit_and_both_sides_meters_drop_on_their_sides(self):
        udp_frames = [f for f in FRAMES if udp(f)]
        rx_packets, rx_size, kept = dropped(Meter(2697, 100000, 20000, 0, 20000), udp_frames)
        tx_packets, tx_size, _ = dropped(Meter(2697, 100000, 20000, 0, 20000), kept)
        with Testpmd([self.vask, self.pcap]) as t:
            self.prepare(t)
            self.create(t, 11, 5, 7, BOTH)
            self.create(t, 10, 6, 7, TRANSMIT)
            for side, proto, meter in [
                    ("ingress", "udp", 11), ("egress", "udp", 11), ("egress", "tcp", 10)]:
                t.run(f"flow create 0 {side} pattern eth / ipv4 / {proto} / end "
                      f"actions meter mtr_id {meter} / end")
            self.forward(t)
            self.assertEqual(self.drops(t, 11), (rx_packets + tx_packets, rx_size + tx_size))
            arp = [f for f in FRAMES if not pcap_reader.IPv4(f.data).valid]
            self.assertEqual(len(arp), 2)
            tcp_packets, tcp_size, _ = dropped(
                Meter(2698, 100000, 20000, 200000, 40000),
                [f for f in FRAMES if not udp(f) and pcap_reader.IPv4(f.data).valid])
            self.assertEqual(self.drops(t, 10), (tcp_packets, tcp_size))

    def test_dscp_is_rewritten_in_green_packets_with_a_right_checksum(self):
        meter = Meter(2697, 100000, 20000, 0, 20000)
        with Testpmd([self.vask, self.pcap]) as t:
            self.prepare(t)
            self.create(t, 9, 5, 3, RECEIVE)
            self.forward(t)
            self.assertEqual(self.drops(t, 9), dropped(meter, FRAMES)[:2])
        meter, colored = Meter(2697, 100000, 20000, 0, 20000), []
        for frame in FRAMES:
            color = meter.color(frame.time_ns, frame.length)
            if color != RED:
                colored.append((frame, color))
        sent = pcap_reader.read(self.out)
        self.assertEqual(len(sent), len(colored))
        for got, (frame, color) in zip(sent, colored):
            before, after = pcap_reader.IPv4(frame.data), pcap_reader.IPv4(got.data)
            if not before.valid:
                self.assertEqual(got.data, frame.data)
                continue
            self.assertEqual(after.dscp, 10 if color == GREEN else before.dscp)
            self.assertEqual(after.ecn, before.ecn)
            self.assertEqual(after.payload, before.payload)
            self.assertTrue(after.header_checksum_ok())
        self.assertIn(YELLOW, [color for _, color in colored])


if __name__ == "__main__":
    unittest.main()
