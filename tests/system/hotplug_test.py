# SPDX-License-Identifier: BSD-3-Clause
"""Ports that come and go in a running testpmd, while another one forwards."""

import os
import sys
import time
import unittest

SOURCE = os.environ["VASK_SOURCE"]
sys.path[:0] = [os.path.join(SOURCE, "tests", "system")]

from testpmd import Testpmd, number  # noqa: E402

RECEIVE = 0x8000000000000088


class HotPlug(unittest.TestCase):
    def received(self, t, port):
        return number(t.run(f"show port stats {port}"), "RX-packets")

    def wait_for_more(self, t, port):
        """Packets keep coming."""
        before, deadline = self.received(t, port), time.monotonic() + 30
        while self.received(t, port) <= before:
            self.assertLess(time.monotonic(), deadline)

    def ports(self, t):
        return [line.split()[2] for line in t.run("show port summary all") if "net_" in line]

    def test_port_comes_meters_goes_and_comes_again_while_another_forwards(self):
        with Testpmd(["net_vask1_0,uplink=net_null0", "net_null0"]) as t:
            t.run("start")
            for uplink in ("net_null1", "net_null2"):
                # the port first, then the uplink that it waits for
                self.assertIn("Port 2 is attached. Now total ports is 2",
                              t.run(f"port attach net_vask1_1,uplink={uplink}"))
                t.run(f"port attach {uplink}")
                self.assertEqual(self.ports(t), ["net_vask1_0", "net_vask1_1"])
                self.wait_for_more(t, 0)
                t.run("add port meter profile srtcm_rfc2697 2 5 100000 20000 20000 0")
                t.run(f"create port meter 2 9 5 0 yes {RECEIVE:#x} 0 g 0")
                t.run("flow create 2 ingress pattern eth / ipv4 / end actions meter mtr_id 9 / end")

                t.run("stop")
                t.run("port start 2")
                t.run("set portlist 0,2")
                t.run("start")
                self.wait_for_more(t, 2)
                t.run("stop")
                t.run("set portlist 0")
                t.run("start")

                t.run("port stop 2")
                self.assertIn("Device is detached", t.run("port detach 2"))
                self.assertEqual(self.ports(t), ["net_vask1_0"])
                # its meter went with it, its profile is the card's and stays for the other port
                self.assertEqual(
                    t.run("del port meter 0 9"), [])
                t.run("del port meter profile 0 5")
                self.assertNotIn("error", "\n".join(t.run("show port meter cap 0")))
                self.wait_for_more(t, 0)
            t.run("stop")
            self.assertEqual(t.quit(), 0)

    def test_uplink_is_removed_first(self):
        with Testpmd(["net_vask1_0,uplink=net_null0", "net_null0"]) as t:
            t.run("start")
            self.wait_for_more(t, 0)
            t.run("stop")
            said = t.run("device detach net_null0")
            self.assertIn("[offload_smartnic] uplink_disappears net_vask1_0: uplink net_null0 is gone",
                          said)
            self.assertIn("down", "".join(t.run("show port summary 0")))
            t.run("start")
            before = self.received(t, 0)
            self.assertEqual(self.received(t, 0), before)
            t.run("stop")
            t.run("port stop 0")
            self.assertTrue(any("uplink net_null0 is gone" in line for line in t.run("port start 0")))

            # it comes back and the port runs again
            t.run("port attach net_null0")
            t.run("port config all max-pkt-len 1518")
            t.run("port start 0")
            t.run("set portlist 0")
            t.run("start")
            self.wait_for_more(t, 0)
            t.run("stop")
            self.assertEqual(t.quit(), 0)

    def test_refused_attach_leaves_the_running_port_alone(self):
        with Testpmd(["net_vask1_0,uplink=net_null0", "net_null0"]) as t:
            t.run("start")
            for arguments, why in [
                    ("uplink=net_null0", "is refused: net_vask1_0 has uplink=net_null0"),
                    ("sfi=0", "sfi=0 is refused: it is the number of net_vask1_0"),
                    ("fault=nothing:1:2", "fault=nothing:1:2 is refused")]:
                said = "\n".join(t.run(f"port attach net_vask1_1,{arguments}"))
                self.assertIn(why, said)
                self.assertEqual(self.ports(t), ["net_vask1_0"])
            self.wait_for_more(t, 0)
            t.run("stop")


if __name__ == "__main__":
    unittest.main()
