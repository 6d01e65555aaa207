# SPDX-License-Identifier: BSD-3-Clause
"""A live meter's profile is changed at testpmd's prompt: shapers and packets follow."""

import os
import sys
import unittest

SOURCE = os.environ["VASK_SOURCE"]
sys.path[:0] = [os.path.join(SOURCE, "tests", "system"), os.path.join(SOURCE, "tests", "app")]

import pcap_reader  # noqa: E402
from meter_reference import Meter, dropped  # noqa: E402
from telemetry_test import ask  # noqa: E402
from testpmd import Testpmd, number  # noqa: E402

CAPTURE = os.path.join(SOURCE, "tests", "data", "iperf3.pcap")
# net_pcap keeps microseconds
FRAMES = [f._replace(time_ns=f.time_ns // 1000 * 1000) for f in pcap_reader.read(CAPTURE)]


class LiveProfile(unittest.TestCase):
    def drops(self, t):
        shown = t.run("show port meter stats 0 9 no")
        return number(shown, "Pkts DROPPED"), number(shown, "Bytes DROPPED")

    def test_shapers_change_at_once_and_packets_meet_the_new_profile_from_then_on(self):
        before, after = Meter(2697, 100000, 20000, 0, 20000), Meter(2697, 400000, 20000, 0, 20000)
        packets, size, _ = dropped(before, FRAMES)
        with Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture,sfi=7",
                      f"net_pcap0,rx_pcap={CAPTURE}"]) as t:
            t.run("add port meter profile srtcm_rfc2697 0 5 100000 20000 20000 0")
            t.run("add port meter profile srtcm_rfc2697 0 6 400000 20000 20000 0")
            t.run("add port meter policy 0 7 g_actions end y_actions end r_actions drop / end")
            t.run("create port meter 0 9 5 7 yes 0x88 0 g 0")  # both sides: two shapers
            t.forward(0, len(FRAMES))
            self.assertEqual(self.drops(t), (packets, size))
            # 100000 bytes/s: with 8 % more 8 units of 100 kbit/s; the port's shaper in kbit/s
            (shapers,) = ask(t, "/net_vask1/shapers,0")
            self.assertEqual((shapers["scheduler"]["rate"], shapers["port"]["rate"]), (800000, 800000))

            t.run("set port meter profile 0 9 6")
            # 400000 bytes/s: with 8 % more 34 units of 100 kbit/s
            (shapers,) = ask(t, "/net_vask1/shapers,0")
            self.assertEqual((shapers["scheduler"]["rate"], shapers["port"]["rate"]), (3400000, 3200000))

            # Started again, the capture comes a second time. Its times lie behind the meter's, so
            # nothing is refilled: the buckets stand where the first time left them.
            t.run("port stop 0")
            t.run("port start 0")
            t.forward(0, 2 * len(FRAMES))
            after.tc, after.te, after.last = before.tc, before.te, before.last
            more, more_size, _ = dropped(after, FRAMES)
            self.assertEqual(self.drops(t), (packets + more, size + more_size))

    def test_a_profile_taken_before_the_first_packet_colours_all_of_them(self):
        packets, size, _ = dropped(Meter(2697, 400000, 20000, 0, 20000), FRAMES)
        with Testpmd(["net_vask1_0,uplink=net_pcap0,clock=capture", f"net_pcap0,rx_pcap={CAPTURE}"]) as t:
            t.run("add port meter profile srtcm_rfc2697 0 5 100000 20000 20000 0")
            t.run("add port meter profile srtcm_rfc2697 0 6 400000 20000 20000 0")
            t.run("add port meter policy 0 7 g_actions end y_actions end r_actions drop / end")
            t.run("create port meter 0 9 5 7 yes 0x8000000000000088 0 g 0")
            t.run("set port meter profile 0 9 6")
            t.forward(0, len(FRAMES))
            self.assertEqual(self.drops(t), (packets, size))


if __name__ == "__main__":
    unittest.main()
