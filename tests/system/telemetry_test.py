# SPDX-License-Identifier: BSD-3-Clause
"""Telemetry of a running port through the distribution's dpdk-telemetry.py."""

import json
import os
import re
import subprocess
import sys
import unittest

SOURCE = os.environ["VASK_SOURCE"]
sys.path[:0] = [os.path.join(SOURCE, "tests", "system")]

from testpmd import Testpmd, number  # noqa: E402

CAPTURE = os.path.join(SOURCE, "tests", "data", "iperf3.pcap")
RECEIVE, TRANSMIT = 0x8000000000000088, 0x4000000000000088


def ask(testpmd, *commands):
    """The answers to telemetry commands, each without the command that names it."""
    done = subprocess.run(
        ["dpdk-telemetry.py", "-f", testpmd.prefix], input="\n".join(commands) + "\n",
        capture_output=True, text=True, timeout=60, check=True)
    decoder, text, answers = json.JSONDecoder(), done.stdout.strip(), []
    while text:
        answer, end = decoder.raw_decode(text)
        text = text[end:].strip()
        if "version" not in answer:  # its greeting
            (value,) = answer.values()
            answers.append(value)
    return answers


class Telemetry(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.testpmd = Testpmd(
            ["net_vask1_0,uplink=net_pcap0,clock=capture,sfi=7", f"net_pcap0,rx_pcap={CAPTURE}"])
        cls.addClassCleanup(cls.testpmd.__exit__, None, None, None)
        for command in [
                "add port meter profile srtcm_rfc2697 0 5 100000 20000 20000 0",
                "add port meter policy 0 7 g_actions set_ipv4_dscp dscp_value 10 / end "
                "y_actions end r_actions drop / end",
                f"create port meter 0 9 5 7 yes {RECEIVE:#x} 0 g 0"]:
            cls.testpmd.run(command)
        cls.testpmd.forward(0, 3585)

    def ask(self, *commands):
        return ask(self.testpmd, *commands)

    def test_ports_tell_their_arguments_and_bindings(self):
        self.assertEqual(self.ask("/net_vask1/ports"), [{"net_vask1_0": {
            "port_id": 0, "sfi": 7, "uplink": "net_pcap0", "uplink_present": 1,
            "clock": "capture", "shapers": "observe", "mtu": 0,
            "rx_hw_meter": 1, "tx_hw_meter": 0}}])

    def test_meter_tells_what_its_statistics_tell_and_more(self):
        shown = self.testpmd.run("show port meter stats 0 9 no")
        listed, meter = self.ask("/net_vask1/meters", "/net_vask1/meter,9")
        self.assertEqual(listed, {"total": 1, "first": 0, "count": 1, "ids": [9]})
        engine = meter.pop("ingress")
        self.assertEqual(meter, {
            "meter_id": 9, "hw_meter_id": 1, "port": "net_vask1_0", "direction": "receive",
            "enabled": 1, "profile_id": 5, "policy_id": 7, "color_aware": 0, "original_length": 0})
        self.assertEqual(engine["dropped_packets"], number(shown, "Pkts DROPPED"))
        self.assertEqual(engine["dropped_bytes"], number(shown, "Bytes DROPPED"))
        self.assertEqual(engine["red_packets"], engine["dropped_packets"])
        self.assertEqual(sum(engine[c + "_packets"] for c in ("green", "yellow", "red")), 3585)
        self.assertEqual(sum(engine[c + "_bytes"] for c in ("green", "yellow", "red")), 3167028)
        # the two ARP frames have no DSCP
        self.assertIn(engine["green_packets"] - engine["rewritten_packets"], (0, 1, 2))

    def test_profile_shows_what_was_asked_beside_what_the_card_holds(self):
        listed, profile = self.ask("/net_vask1/profiles", "/net_vask1/profiles,5")
        self.assertEqual(listed["ids"], [5])
        self.assertEqual(profile, {
            "profile_id": 5, "hw_profile_id": 1, "references": 1, "algorithm": "RFC 2697",
            "unit": "bytes", "cir_asked": 100000, "cir_held": 96000, "cbs_asked": 20000,
            "cbs_held": 19456, "eir_asked": 0, "eir_held": 0, "ebs_asked": 20000,
            "ebs_held": 19456})

    def test_policies_shapers_and_pools(self):
        policy, default, shapers, pools = self.ask(
            "/net_vask1/policies,7", "/net_vask1/policies,0", "/net_vask1/shapers,0",
            "/net_vask1/pools")
        self.assertEqual(policy, {
            "policy_id": 7, "hw_policy_id": 1, "references": 1,
            "green": "dscp 10", "yellow": "pass", "red": "drop"})
        self.assertEqual(default["hw_policy_id"], 255)
        # 100000 bytes/s, 8 % more, in 100 kbit/s: 8
        self.assertEqual(shapers["scheduler"]["rate"], 800000)
        self.assertEqual(shapers["port"]["enabled"], 0)
        self.assertEqual(shapers["enforced"], 0)
        self.assertEqual(pools, {
            "meters": {"size": 4096, "free": 4094}, "profiles": {"size": 256, "free": 254},
            "policies": {"size": 256, "free": 253}})

    def test_bad_argument_is_answered_with_what_is_accepted(self):
        answers = self.ask(
            "/net_vask1/meter", "/net_vask1/meter,x", "/net_vask1/meter,77", "/net_vask1/meters,0,0",
            "/net_vask1/meters,0,513", "/net_vask1/profiles,1", "/net_vask1/shapers",
            "/net_vask1/shapers,1", "/net_vask1/profiles,x", "/net_vask1/policies,0,513")
        self.assertEqual([a["error"] for a in answers], [
            "/net_vask1/meter,<meter id> is accepted",
            "/net_vask1/meter,<meter id> is accepted",
            "there is no meter 77; /net_vask1/meters lists them",
            "/net_vask1/meters,<first>,<count> with a count of 1 to 512 is accepted",
            "/net_vask1/meters,<first>,<count> with a count of 1 to 512 is accepted",
            "there is no profile 1; /net_vask1/profiles lists them",
            "/net_vask1/shapers,<port id> is accepted",
            "port 1 is not one of the card's; /net_vask1/ports lists them",
            "/net_vask1/profiles,<id> or <first>,<count> with a count of 1 to 512 is accepted",
            "/net_vask1/policies,<id> or <first>,<count> with a count of 1 to 512 is accepted"])

    def test_private_dump_is_reached_through_ethdevs_own_command(self):
        text, = self.ask("/ethdev/dump_priv,0")
        self.assertIn("profile 5: hardware 1, RFC 2697, byte mode, used by 1", str(text))


class Faults(unittest.TestCase):
    def test_fault_is_set_hits_and_is_lifted(self):
        with Testpmd(["net_vask1_0,uplink=net_null0", "net_null0"]) as t:
            self.set_hit_and_lift(t)

    def set_hit_and_lift(self, t):
        (fault,), = [list(a.values()) for a in ask(t, 
            "/net_vask1/faults,vask_p4_mep_add_meter_profile:2:-5:10")]
        self.assertEqual(fault, {
            "operation": "vask_p4_mep_add_meter_profile", "nth": 2, "code": -5, "delay_us": 10,
            "calls": 0, "hits": 0})
        t.run("add port meter profile srtcm_rfc2697 0 20 100000 20000 20000 0")
        refused = t.run("add port meter profile srtcm_rfc2697 0 21 100000 20000 20000 0")
        self.assertTrue(any("error" in line for line in refused), refused)
        (fault,), cleared = [list(a.values()) for a in ask(t, 
            "/net_vask1/faults", "/net_vask1/faults,clear")]
        self.assertEqual((fault["calls"], fault["hits"]), (2, 1))
        self.assertEqual(cleared, [])
        t.run("del port meter profile 0 20")
        misspelt, = ask(t, "/net_vask1/faults,vask_p4_mep_add_metre:1:-5")
        # the page that documents the operations has them all
        with open(os.path.join(SOURCE, "doc", "softcard.md"), encoding="utf-8") as page:
            table = page.read().split("| operations |")[1].split("\n\n")[0]
        self.assertEqual(sorted(misspelt["operations"]), sorted(re.findall(r"`(\w+)`", table)))
        delayed, = ask(t, "/net_vask1/faults,vask_p4_indexstack_destroy:1:-5")
        self.assertEqual(
            delayed["reason"],
            "vask_p4_indexstack_destroy returns nothing and cannot fail; code 0 delays it")
        foreign, = ask(t, "/net_vask1/faults,vask_cmd_set_shaper:\u00e9\u007f:-5")
        self.assertEqual(foreign["reason"], "'???' is neither 'every' nor a call, counted from 1")


class Paging(unittest.TestCase):
    def test_many_meters_are_listed_page_by_page(self):
        meters = list(range(3000, 4096))
        with Testpmd(["net_vask1_0,uplink=net_null0", "net_null0"],
                     eal=["--log-level=pmd.net.vask1:error"]) as t:
            t.load(["add port meter profile srtcm_rfc2697 0 5 100000 20000 20000 0"] +
                   [f"create port meter 0 {meter} 5 0 yes {TRANSMIT:#x} 0 g 0" for meter in meters])
            pages = ask(t, "/net_vask1/meters", *(
                f"/net_vask1/meters,{first},512" for first in range(512, 2048, 512)))
            self.assertEqual([p["count"] for p in pages], [512, 512, 72, 0])
            self.assertEqual(sum((p["ids"] for p in pages), []), meters)
            self.assertEqual({p["total"] for p in pages}, {len(meters)})


if __name__ == "__main__":
    unittest.main()
