#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Writes the seeds of the fuzz targets: whole sequences that the targets read as their authors meant them.

Usage: make_seeds.py CORPUS

CORPUS gets a folder for each target. Files that the fuzzer itself found stand beside these and are left alone.
"""
import pathlib
import struct
import sys


def number(value):
    """A number of any size, as Input::Number() reads it."""
    if value == 2 ** 64 - 1:
        return bytes([9])
    size = (value.bit_length() + 7) // 8
    return bytes([size]) + value.to_bytes(size, "little")


def bits(*fields):
    """(value, width)... as a record of little-endian bits."""
    word = first = 0
    for value, width in fields:
        word |= value << first
        first += width
    return word.to_bytes((first + 7) // 8, "little")


def u16(value):
    return struct.pack("<H", value)


# frames

def ipv4(payload=b"", dscp=0, protocol=17, options=b"", checksum=True):
    header = struct.pack(">BBHHHBBHII", 0x45 + len(options) // 4, dscp << 2, 20 + len(options) + len(payload), 1, 0,
                         64, protocol, 0, 0x0a000001, 0x0a000002) + options
    total = sum(struct.unpack(f">{len(header) // 2}H", header))
    while total >> 16:
        total = (total & 0xffff) + (total >> 16)
    if checksum:
        header = header[:10] + struct.pack(">H", total ^ 0xffff) + header[12:]
    return header + payload


def ethernet(ether_type, payload, tags=()):
    frame = bytes([2, 0, 0, 0, 0, 2, 2, 0, 0, 0, 0, 1])
    for tpid, tci in tags:
        frame += struct.pack(">HH", tpid, tci)
    return frame + struct.pack(">H", ether_type) + payload


UDP = struct.pack(">HHHH", 4000, 5000, 26, 0) + bytes(18)
TCP = struct.pack(">HHIIHHHH", 4000, 443, 1, 2, 0x5010, 1000, 0, 0)
IPV6_UDP = struct.pack(">IHBB", 0x60000000, 26, 17, 64) + bytes(31) + b"\1" + UDP
IPV6_EXT = struct.pack(">IHBB", 0x60000000, 34, 0, 64) + bytes(32) + bytes([17, 0, 0, 0, 0, 0, 0, 0]) + UDP
FRAMES = {
    "udp": ethernet(0x0800, ipv4(UDP)),
    "tcp": ethernet(0x0800, ipv4(TCP, protocol=6, dscp=10)),
    "af13": ethernet(0x0800, ipv4(UDP, dscp=14)),
    "options": ethernet(0x0800, ipv4(UDP, options=bytes([1] * 8))),
    "one-tag": ethernet(0x0800, ipv4(UDP), [(0x8100, 100)]),
    "two-tags": ethernet(0x0800, ipv4(UDP), [(0x88a8, 5), (0x8100, 6)]),
    "three-tags": ethernet(0x0800, ipv4(UDP), [(0x88a8, 5), (0x8100, 6), (0x8100, 7)]),
    "ipv6": ethernet(0x86dd, IPV6_UDP),
    "ipv6-hop-by-hop": ethernet(0x86dd, IPV6_EXT),
    "arp": ethernet(0x0806, bytes(28)),
    "cut-in-header": ethernet(0x0800, ipv4(UDP))[:30],
    "wrong-checksum": ethernet(0x0800, ipv4(UDP, checksum=False)),
}


# mtr: sequences of calls; the last byte of each plans faults, 0 for none

def m_profile(ident, alg=1, packets=0, cir=1000000, eir=0, cbs=65536, ebs=65536, fault=0, null=0):
    return (bytes([0, ident, alg, packets]) + number(cir) + number(eir) + number(cbs) + number(ebs) +
            bytes([null, fault]))


def m_policy(ident, *colours, validate=0, fault=0):
    """A colour is a list of actions: "drop", "void", "null" or a DSCP."""
    text = bytes([2, ident])
    for actions in colours:
        text += bytes([len(actions)])
        for action in actions:
            text += {"void": b"\0", "null": b"\1", "drop": b"\4"}.get(action) or bytes([2, action])
    return text + bytes([3 if validate else 0, fault])


def m_create(ident, profile=1, policy=1, device=0, side=4, enable=0, aware=0, stats=0x88, full=0, fault=0):
    return bytes([4, ident, device, profile, policy, enable, aware, side, stats, full, fault, 0])


def m_call(which, *arguments, fault=0):
    return bytes([which, *arguments, fault])


def m_stats(ident, mask, counters=b"", fault=0):
    return bytes([8, ident, mask]) + counters + bytes([fault, 0])


START = m_profile(1) + m_profile(2, alg=2, eir=2000000) + m_policy(1, [], [10], ["drop"])
COUNTERS = number(10) + number(9000) + number(0xffffffff) + number(2 ** 64 - 1)
ENABLE, DISABLE = bytes([6, 1]), bytes([6, 0])
MTR = {
    "life-of-a-receive-meter": START + m_create(3) + ENABLE + bytes([3, 0]) + DISABLE + bytes([3, 0]) +
        ENABLE + bytes([3, 0]) + m_stats(3, 0x88, COUNTERS) + m_call(5, 3) + m_call(1, 1) + m_call(3, 1),
    "life-of-a-transmit-meter": START + m_create(3, side=2) + m_call(7, 3, 2) + m_stats(3, 0x80, COUNTERS) +
        m_call(1, 1) + m_call(5, 3) + m_call(1, 2),
    "both-sides-and-original-length": START + m_create(3, side=1, aware=1) + m_stats(3, 8, COUNTERS) + m_call(5, 3),
    "three-algorithms-in-packets": m_profile(1, packets=1) + m_profile(2, alg=2, packets=1, cir=5, eir=5) +
        m_profile(3, alg=3, packets=2, cir=2 ** 64 - 1, eir=1, cbs=2 ** 64 - 1, ebs=2 ** 32),
    "refused-profiles": m_profile(1, alg=0) + m_profile(1, alg=4) + m_profile(1, alg=2, cir=2, eir=1) +
        m_profile(1, null=15) + m_profile(1) + m_profile(1),
    "refused-policies": m_policy(1, ["void"], [], []) + m_policy(1, [1, 2, 3], [], []) + m_policy(1, [], ["null"], []) +
        m_policy(0, [], [], []) + m_policy(1, ["drop", 63], [5, "drop"], [7, 8], validate=1) +
        m_policy(1, ["drop", 63], [5, "drop"], [7, 8]) + m_policy(1, [], [], []),
    "refused-meters": START + m_create(3, profile=4) + m_create(3, policy=4) + m_create(3, device=2) +
        m_create(3, device=3) + m_create(3) + m_create(3) + m_create(4, full=15),
    "meters-zero": START + m_create(0) + m_create(0) + m_call(7, 0, 2) + m_call(5, 0) + m_call(5, 0) + m_call(5, 0),
    "default-policy-deleted-and-added": m_call(3, 0) + m_policy(0, [], [], ["drop"]) + m_profile(1) +
        m_create(3, policy=0) + m_call(3, 0) + m_call(5, 3) + m_call(3, 0),
    "used-objects-stay": START + m_create(3) + m_create(4) + m_call(1, 1) + m_call(3, 1) + m_call(5, 3) + m_call(1, 1) +
        m_call(5, 4) + m_call(1, 1) + m_call(3, 1),
    "index-shared-after-disable": START + m_create(3) + DISABLE + bytes([3, 0]) + m_create(4) + ENABLE + bytes([3, 0]) +
        m_call(5, 3) + m_create(2) + m_call(5, 4) + m_call(5, 2),
    "profile-changed-to-itself-and-back": START + m_create(3) + m_call(7, 3, 1) + m_call(7, 3, 2) + m_call(7, 3, 1),
    "faults-in-profiles": m_profile(1, fault=1) + m_profile(1, fault=2) + m_profile(1, fault=15) + m_profile(1) +
        m_call(1, 1, fault=1) + m_call(1, 1, fault=2) + m_call(1, 1, fault=3),
    "faults-in-policies": m_policy(1, [], [], [], fault=1) + m_policy(1, [], [], [], fault=2) +
        m_policy(1, [], [], [], fault=15) + m_policy(1, [], [], []) + m_call(3, 1, fault=1) + m_call(3, 1, fault=2),
    "faults-in-creation": START + b"".join(m_create(3, side=1, fault=n) for n in (1, 2, 3, 4, 15)) + m_create(3, side=1),
    "faults-in-destruction": START + m_create(3, side=1) + b"".join(m_call(5, 3, fault=n) for n in (1, 2, 3, 4, 0)) +
        m_call(1, 1) + m_call(3, 1),
    "faults-in-profile-change": START + m_create(3, side=1) + m_call(7, 3, 2, fault=1) + m_call(7, 3, 2, fault=2) +
        m_call(7, 3, 2) + m_call(5, 3) + m_call(1, 1) + m_call(1, 2),
    "faults-in-enable-and-statistics": START + m_create(3, side=1) + DISABLE + bytes([3, 1]) + DISABLE + bytes([3, 2]) +
        DISABLE + bytes([3, 0]) + ENABLE + bytes([3, 0x21]) + ENABLE + bytes([3, 2]) + ENABLE + bytes([3, 0]) +
        m_stats(3, 0x88, COUNTERS, fault=0x21),
}


# p4: rows byte by byte

def p_profile(ident, cir=1000000, eir=0, cbs=65536, ebs=65536, packets=0, rfc=0, modify=0, fault=0):
    return bytes([0, modify, ident]) + struct.pack("<QQQQB", cir, eir, cbs, ebs, packets | rfc << 2) + bytes([fault])


def p_policer(ident, red=2, yellow=1, green=0, dscp=10, modify=0, fault=0):
    return bytes([1, modify, ident, red | dscp << 2, yellow | dscp << 2, green | dscp << 2, fault])


def p_row(profile=1, policer=1, kind=1, direction=0, port=0, aware=0, original=0, stats=0x88):
    return bits((kind, 1), (direction, 1), (1, 1), (aware, 1), (original, 1), (stats, 8), (port, 16), (profile, 8),
                (policer, 8), (0, 3))


def p_instance(ident, modify=0, fault=0, **fields):
    return bytes([4 if modify else 3, ident]) + p_row(**fields) + bytes([fault])


def p_delete(what, ident, fault=0):
    return {"profile": bytes([2, 0, ident, fault]), "policer": bytes([2, 1, ident, fault]),
            "instance": bytes([5, ident, fault])}[what]


P_START = p_profile(1) + p_profile(2, rfc=1, eir=3000000) + p_policer(1) + p_policer(2, red=3, yellow=2)
PIPELINE = bytes([6, 1, 3, 2])
P4 = {
    "life-of-a-receive-row": P_START + p_instance(3) + p_instance(3, modify=1, profile=2, policer=2) + PIPELINE +
        b"\0" + p_delete("instance", 3) + p_delete("profile", 1) + p_delete("policer", 1),
    "life-of-a-transmit-row": P_START + p_instance(3, direction=1, port=1) +
        p_instance(3, modify=1, direction=0, aware=1, original=1) + p_delete("instance", 3),
    "rewritten-in-place": P_START + p_instance(3) + p_profile(1, rfc=1, packets=1, modify=1) +
        p_profile(1, rfc=0, packets=3, cir=2 ** 64 - 1, modify=1) + p_policer(1, red=3, yellow=3, green=3, dscp=63, modify=1),
    "refused-rows": p_profile(1, rfc=3) + p_profile(1, rfc=1) + p_profile(1) + p_profile(1) + p_profile(3, modify=1) +
        p_policer(0) + p_policer(3, modify=1) + P_START + p_instance(3, kind=0) + p_instance(3, port=561) +
        p_instance(3, port=562) + p_instance(3, port=65535) + p_instance(3, profile=200) + p_instance(4, modify=1),
    "faults-in-rows": p_profile(1, fault=1) + p_profile(1, fault=2) + P_START + p_profile(1, modify=1, fault=1) +
        p_policer(1, modify=1, fault=1) + p_instance(3, fault=1) + p_instance(3, fault=2) + p_instance(3) +
        p_instance(3, modify=1, profile=2, fault=1) + p_instance(3, modify=1, profile=2) +
        p_delete("instance", 3, 1) + p_delete("instance", 3, 2) + p_delete("instance", 3),
    "faults-in-the-pipeline": P_START + p_instance(3) + PIPELINE + b"\1" + PIPELINE + b"\2" + PIPELINE + b"\0",
    "engine-record-converted": P_START + p_instance(3, stats=0x42) + bytes([7, 3]) + bytes([255] * 32) +
        p_instance(3, modify=1, stats=0) + bytes([7, 3]) + bytes([255] * 32),
    "mtu": b"".join(bytes([8, device]) + u16(mtu) + b"\0" for device in range(4) for mtu in (67, 68, 16384, 16385)),
    "default-policer": p_policer(0, modify=1) + p_delete("policer", 0) + p_policer(0) + p_profile(1) +
        p_instance(3, policer=0) + p_delete("policer", 0),
}


# frames of any make: bytes, bytes that follow as zeroes, and how each segment is cut and held

def made(frame, zeroes=0, segments=b""):
    return bytes([len(frame)]) + frame + u16(zeroes) + (segments or b"\0")


OWN, EXTERNAL, COUNTED, CLONE = range(4)


def cut(length, kind):
    return length * 4 + kind


def scattered(kind):
    """34 bytes of headers in pieces of 10, 13 and 11, the rest in one."""
    return bytes([cut(10, kind), cut(13, OWN), cut(11, kind), kind])


# engine: writes (0, dir, id, what, record) and bursts (2, dir, n, frames...)

def e_profile(ident, cir, cbs, eir, ebs, pm=0, rfc=0, direction=0):
    return bytes([0, direction, ident - 1, 0]) + bits((ebs, 20), (cbs, 20), (0, 1), (eir, 26), (cir, 26), (pm, 1),
                                                      (rfc, 1), (1, 1))


def e_policy(ident, red=2, yellow=1, green=0, dscp=(46, 12, 10), direction=0):
    return bytes([0, direction, ident - 1, 1]) + bits((red, 2), (yellow, 2), (green, 2), (dscp[0], 6), (dscp[1], 6),
                                                      (dscp[2], 6), (0, 7), (1, 1))


def e_inst(ident, profile, policy, aware=0, original=0, direction=0):
    return bytes([0, direction, ident - 1, 2]) + bits((1, 1), (profile, 8), (policy, 8), (aware, 1), (original, 1),
                                                      (0, 13)) + bytes(28)


def e_burst(meter, frames, direction=0, step=1, offload=0, capacity=7, now=2 ** 40):
    text = bytes([2, direction, len(frames)])
    for frame in frames:
        text += frame + bytes([step, meter, 0, offload])
    return text + bytes([capacity]) + number(now)


def e_write(what, *rest, direction=0, ident=1):
    return bytes([0, direction, ident - 1, what]) + b"".join(rest)


E_START = e_profile(1, 125, 1, 0, 1) + e_policy(1) + e_inst(1, 1, 1)
E_FRAMES = [made(FRAMES["udp"], 400), made(FRAMES["af13"], 400), made(FRAMES["one-tag"], 400), made(FRAMES["arp"], 400)]
ENGINE = {
    "colours-and-rewrites": E_START + e_burst(1, E_FRAMES) + e_burst(1, E_FRAMES, step=40),
    "egress-two-rates-aware": e_profile(2, 125, 2, 250, 3, rfc=1, direction=1) + e_policy(2, 1, 1, 1, direction=1) +
        e_inst(2, 2, 2, aware=1, original=1, direction=1) + e_burst(2, E_FRAMES, direction=1) +
        e_burst(2, E_FRAMES, direction=1, offload=1),
    "packets-with-excess-rate": e_profile(1, 100, 2, 50, 2, pm=1) + e_policy(1, 2, 1, 1) + e_inst(1, 1, 1) +
        e_burst(1, E_FRAMES) + e_profile(1, 125, 1, 50, 2) + e_burst(1, E_FRAMES),
    "nothing-allowed": e_profile(1, 0, 0, 0, 0) + e_policy(1, 1, 1, 1) + e_inst(1, 1, 1) + e_burst(1, E_FRAMES),
    "all-bits-set": e_profile(1, 2 ** 26 - 1, 2 ** 20 - 1, 2 ** 26 - 1, 2 ** 20 - 1, rfc=1) + e_policy(1, 3, 3, 3) +
        e_inst(1, 1, 1, 1, 1) + e_burst(1, E_FRAMES, step=255),
    "headers-across-segments": E_START + e_policy(1, 1, 1, 1) +
        e_burst(1, [made(FRAMES["udp"], 900, scattered(kind)) for kind in range(4)]),
    "shared-frames": E_START + e_policy(1, 1, 1, 1) +
        e_burst(1, [made(FRAMES[name], 0, bytes([kind])) for name in ("udp", "two-tags") for kind in (1, 2, 3)]),
    "odd-frames": E_START + e_policy(1, 1, 1, 1) +
        e_burst(1, [made(FRAMES[name]) for name in ("options", "cut-in-header", "wrong-checksum", "three-tags", "ipv6")] +
                [made(b"")]),
    "mtu": E_START + e_write(6, u16(300)) + e_burst(1, E_FRAMES) + e_write(6, u16(0)) + e_burst(1, E_FRAMES),
    "shaped-at-8-mbit": e_write(7, bits((1, 1), (0, 1), (0, 1), (1, 7), (0, 1), (80, 19), (0, 2)), u16(77),
                                struct.pack("<HHHI", 0, 0, 1, 8000)) + e_burst(0, E_FRAMES) +
        e_burst(0, E_FRAMES, direction=1, capacity=1, now=1),
    "shaper-closed": e_write(7, b"\3\0\0\0", bytes(12)) + e_burst(0, E_FRAMES),
    "deleted-under-way": E_START + e_burst(1, E_FRAMES) + e_write(4) + e_burst(1, E_FRAMES) +
        e_profile(1, 125, 1, 0, 1) + e_write(5) + e_burst(1, E_FRAMES) + e_write(3) + e_burst(1, E_FRAMES),
}


# flow: three frames with their cuts, then steps

def f_frames(*names):
    return b"".join(bytes([len(FRAMES[n])]) + FRAMES[n] + b"\0" for n in names)


ETH, VLAN, IPV4, IPV6, UDP_ITEM, TCP_ITEM, VOID_ITEM, OTHER = range(8)
SPEC, MASK, LAST = 1, 2, 4


def item(kind, *records):
    """Records are bytes, an offset in the first frame, or -1 for all ones."""
    text = bytes([kind, (1 << len(records)) - 1])
    for record in records:
        if isinstance(record, bytes):
            text += bytes([len(record)]) + record
        else:
            text += bytes([255 if record < 0 else 128 + record])
    return text


def rule(items, actions, attr=0):
    return bytes([0, attr, len(items)]) + b"".join(items) + bytes([len(actions)]) + b"".join(actions)


EGRESS = 1
METER = [bytes([0, n]) for n in range(6)]
COUNT, DROP, PASSTHRU = b"\2", b"\4", b"\5"
QUEUE = [bytes([3, n]) for n in range(5)]
COMPARE, COMPARE_OUT = bytes([5, 0, 1]), bytes([5, 1, 2])
QUERY, RESET = bytes([6, 0]), bytes([6, 1])
ANY = [item(ETH)]
FLOW = {
    "all-packets-to-a-meter": f_frames("udp", "tcp", "arp") + rule(ANY, [METER[1], COUNT]) + COMPARE + QUERY,
    "five-tuple": f_frames("udp", "tcp", "udp") +
        rule([item(ETH), item(IPV4, 14), item(UDP_ITEM, 34)], [METER[1], COUNT]) +
        rule([item(ETH), item(IPV4, 14, -1), item(UDP_ITEM, 34, -1)], [QUEUE[2], COUNT], 4) + COMPARE + COMPARE + RESET,
    "tags": f_frames("one-tag", "two-tags", "three-tags") + rule([item(ETH), item(VLAN, 14)], [METER[1], PASSTHRU]) +
        rule([item(VLAN), item(VLAN), item(IPV4)], [COUNT, DROP]) + COMPARE,
    "ipv6": f_frames("ipv6", "ipv6-hop-by-hop", "udp") + rule([item(ETH), item(IPV6, 14), item(UDP_ITEM)], [METER[2]]) +
        rule([item(IPV6, bytes(40) + b"\1", bytes(40) + b"\1")], [COUNT, QUEUE[3]]) + COMPARE,
    "passthru-counts-on": f_frames("udp", "tcp", "arp") + rule(ANY, [COUNT, PASSTHRU]) +
        rule([item(IPV4)], [METER[1], COUNT, PASSTHRU], 4) + rule([item(TCP_ITEM)], [METER[2], COUNT], 8) + COMPARE + QUERY,
    "refused-rules": f_frames("udp", "tcp", "arp") + rule(ANY, [METER[0]]) + rule(ANY, [METER[5]]) +
        rule(ANY, [QUEUE[4]]) + rule(ANY, [QUEUE[0]], EGRESS) + rule(ANY, [DROP, METER[1]]) + rule(ANY, [DROP, PASSTHRU]) +
        rule(ANY, [COUNT, COUNT]) + rule(ANY, [METER[1], METER[2]]) + rule(ANY, [b"\7\5"]) + rule([bytes([7, 60])], []) +
        rule([item(IPV4), item(ETH)], []) + rule([bytes([ETH, MASK, 255])], []) + rule(ANY, [], 64) + rule(ANY, [], 32) +
        rule([item(ETH, 0, -1, b"\1")], []),
    "five-rules-on-a-meter": f_frames("udp", "tcp", "arp") + rule(ANY, [METER[1]]) * 5 + bytes([4, 1]) +
        rule(ANY, [METER[1]]) + COMPARE,
    "meter-comes-and-goes": f_frames("udp", "tcp", "arp") + rule(ANY, [METER[1]]) + COMPARE + bytes([7, 0, 1]) + COMPARE +
        bytes([7, 0, 0, 0]) + COMPARE + bytes([7, 0, 3]) + COMPARE + bytes([7, 0, 2]) + COMPARE,
    "rules-come-and-go": f_frames("udp", "tcp", "arp") + rule([item(IPV4, 14)], [METER[1]]) +
        rule([item(IPV4, 14)], [METER[2]]) + COMPARE + bytes([4, 0]) + COMPARE + bytes([4, 0]) + COMPARE,
    "flags-behind-the-header": f_frames("udp", "one-tag", "two-tags") +
        rule([item(ETH, bytes(15), bytes(14) + b"\1")], [METER[1], COUNT, PASSTHRU]) +
        rule([item(ETH, bytes(14) + b"\1", bytes(14) + b"\1")], [METER[2], COUNT, PASSTHRU], 4) +
        rule([item(VLAN, bytes(5), bytes(4) + b"\1")], [QUEUE[1], COUNT], 8) + COMPARE + QUERY,
    "egress": f_frames("udp", "tcp", "arp") + rule(ANY, [METER[2], COUNT], EGRESS) + COMPARE + COMPARE_OUT + QUERY,
    "no-rule": f_frames("udp", "tcp", "arp") + COMPARE + COMPARE_OUT,
}


# port: port, strip, profile, rewrites, policy, meters, MTU, then steps

def b_head(enforce=0, strip=0, cir=1000000, cbs=4096, policy=None, meters=0, mtu=1500, aware=0):
    text = bytes([enforce, strip, 0, 0]) + number(cir) + number(0) + number(cbs) + number(cbs)
    text += bytes([1]) + policy if policy else bytes([0])
    text += bytes([meters]) + bytes([aware] * bin(meters).count("1"))
    return text + u16(mtu - 68)


def b_frames(what, queue, frames, step=1):
    return bytes([what, queue, len(frames)]) + b"".join(frame + bytes([step]) for frame in frames)


B_FRAMES = [made(FRAMES[name], 300) for name in ("udp", "tcp", "one-tag", "two-tags", "arp", "af13")]
REWRITE = bytes([1, 10, 1, 12, 2])
RECEIVE = [bytes([2, q]) for q in range(4)]


def b_rule(queue, meter, what, egress):
    return bytes([3, queue, meter, what, egress])


PORT = {
    "received-and-sent-as-they-are": b_head() + b_frames(0, 0, B_FRAMES) + RECEIVE[0] + b_frames(1, 1, B_FRAMES),
    "metered-both-ways": b_head(meters=3, policy=REWRITE, cbs=1024) + b_frames(0, 0, B_FRAMES) + RECEIVE[0] +
        b_frames(1, 0, B_FRAMES),
    "tags-taken-off": b_head(strip=1, meters=1, policy=REWRITE, aware=1) + b_frames(0, 0, B_FRAMES) +
        b_frames(0, 0, [made(FRAMES["one-tag"], 0, scattered(kind)) for kind in range(4)]) +
        b_frames(0, 0, [made(FRAMES["one-tag"], 0, bytes([kind])) for kind in range(4)]),
    "longer-than-the-mtu": b_head(mtu=300) + b_frames(0, 0, B_FRAMES) + b_frames(1, 0, B_FRAMES),
    "shaped-both-ways": b_head(enforce=1, meters=3, cir=100000) + b_frames(0, 0, B_FRAMES * 1) + RECEIVE[0] +
        b_frames(0, 1, B_FRAMES, 200) + RECEIVE[1] + b_frames(1, 2, B_FRAMES) + b_frames(1, 2, B_FRAMES, 200),
    "to-another-queue": b_head(meters=1) + b_rule(2, 1, 0, 0) + b_frames(0, 0, B_FRAMES) + RECEIVE[0] + RECEIVE[2],
    "to-another-queue-shaped": b_head(enforce=1, meters=1, cir=1000) + b_rule(2, 1, 0, 0) + b_frames(0, 0, B_FRAMES) +
        RECEIVE[0] + RECEIVE[2],
    "dropped-by-rule": b_head(meters=3) + b_rule(0, 1, 2, 0) + b_rule(0, 0, 2, 1) + b_frames(0, 3, B_FRAMES) +
        b_frames(1, 3, B_FRAMES),
    "metered-by-rule": b_head(meters=3, policy=REWRITE) + b_rule(0, 1, 1, 0) + b_rule(0, 0, 1, 1) +
        b_frames(0, 0, B_FRAMES) + b_frames(1, 0, B_FRAMES),
}


# texts

def argument_seed(text):
    return b"\x60" + text.encode()


ARGUMENTS = {
    "all": argument_seed("uplink=net_pcap0,sfi=42,clock=capture,tick=ns,shapers=enforce,"
                         "fault=vask_cmd_set_shaper:2:-5,fault=vask_p4_isch_shaper_csr_write:every:-1:10,trace=/dev/null"),
    "none": argument_seed(""),
    "sfi-too-large": argument_seed("sfi=16384"),
    "sfi-twice": argument_seed("sfi=1,sfi=2"),
    "unknown-key": argument_seed("speed=10"),
    "list-value": argument_seed("uplink=[a,b],tick=us"),
    "uplink-is-itself": argument_seed("uplink=net_vask1_0"),
    "long-name": argument_seed("uplink=" + "n" * 64),
    "seventeen-faults": argument_seed(",".join(["fault=qorn_meter_table_update:1:-5"] * 17)),
    "fault-long": argument_seed("fault=" + "f" * 96),
    "fault-every": argument_seed("vask_cmd_set_shaper:every:-5"),
    "fault-delay": argument_seed("vask_p4_mep_add_meter_profile:18446744073709551615:0:4294967295"),
    "fault-unknown-in-one-byte": b"\0" + b"nothing:1:-5",
    "fault-no-code": argument_seed("qorn_meter_profile_update:1:x"),
    "fault-of-what-returns-nothing": argument_seed("vask_p4_indexstack_destroy:every:-5"),
    "fault-zeroth": argument_seed("qorn_meter_profile_update:0:-5"),
}
TELEMETRY = {
    name: b"".join(bytes([command]) + text.encode() + b"\n" for command, text in requests) for name, requests in {
        "every-command": [(c, "") for c in range(8)],
        "meters-in-pages": [(1, "0,5"), (1, "5,100"), (1, "100,1"), (1, "0,0"), (1, "4294967295,256")],
        "one-meter": [(2, "1"), (2, "2"), (2, "99"), (2, "1,2"), (2, "")],
        "one-of-each": [(3, "1"), (4, "1"), (4, "0"), (5, "0"), (5, "1"), (5, "7")],
        "faults-set-and-lifted": [(7, "vask_cmd_set_shaper:1:-5"), (7, "vask_cmd_set_shaper:every:0:5"), (7, ""),
                                  (7, "clear")],
        "faults-refused": [(7, "nothing:1:-5"), (7, "vask_cmd_set_shaper:x:-5"), (7, "vask_cmd_set_shaper:1:0")],
        "numbers-out-of-range": [(1, "-1"), (1, "99999999999"), (1, "1,2,3"), (2, " 1"), (2, "0x1"), (3, "1,")],
    }.items()}

CONFIG_HEAD = """[profile 1]
algorithm = rfc2697
cir = 2Mbit/s
cbs = 16KiB
ebs = 8KiB
"""
CONFIG_METER = "[meter 9]\ndirection = rx\nprofile = 1\n"
CONFIG = {name: text.encode() for name, text in {
    "smallest": CONFIG_HEAD + CONFIG_METER,
    "everything": """; a comment
[setup]
interface = rte_mtr
shapers = enforce
mtu = 1500
[profile 5]
algorithm = rfc2698
cir = 1Mbit/s
pir = 2Mbit/s
cbs = 16KiB
pbs = 32KiB
[profile 8]
algorithm = rfc4115
cir = 40pps
eir = 20pps
cbs = 4packets
ebs = 4packets
[policy 7]
green = pass
yellow = dscp 14 ; AF13
red = drop
[meter 9]
port = 0
direction = both
profile = 5
policy = 7
[flow 1]
meter = 9
protocol = tcp
src = 10.0.0.0/8
dst = 10.0.0.2
sport = 4000
dport = 5205
vlan = 100
dscp = 46
priority = 1
[flow 2]
meter = 9
src = 2001:db8::/32
""",
    "unknown-key": CONFIG_HEAD + "speed = 1\n",
    "no-profile": CONFIG_METER,
    "twice": CONFIG_HEAD + CONFIG_HEAD + CONFIG_METER,
    "key-before-section": "cir = 1\n" + CONFIG_HEAD,
    "no-end-of-line": (CONFIG_HEAD + CONFIG_METER)[:-1],
    "long-value": "[profile 1]\ncir = " + "1" * 300 + "\n",
    "empty": "",
    "quantity-rate": "1.25Gbit/s",
    "quantity-burst": "64 KiB",
    "quantity-packets": "5000pps",
    "quantity-too-large": "18446744073709551616B",
    "quantity-fraction": "0.0000000000000000001Gbit/s",
}.items()}

PCAP_HEAD = struct.pack("<IHHiIII", 0xa1b23c4d, 2, 4, 0, 0, 262144, 1)


def record(frame, seconds=1, nanoseconds=5, length=None):
    return struct.pack("<IIII", seconds, nanoseconds, len(frame), length or len(frame)) + frame


def pcapng(frame):
    def block(kind, body):
        body += bytes(-len(body) % 4)
        return struct.pack("<II", kind, len(body) + 12) + body + struct.pack("<I", len(body) + 12)
    return (block(0x0a0d0d0a, struct.pack("<IHHq", 0x1a2b3c4d, 1, 0, -1)) + block(1, struct.pack("<HHI", 1, 0, 262144)) +
            block(6, struct.pack("<IIIII", 0, 1, 2, len(frame), len(frame)) + frame))


CAPTURE = {
    "nanoseconds": PCAP_HEAD + record(FRAMES["udp"]) + record(FRAMES["tcp"], 2),
    "microseconds": struct.pack("<I", 0xa1b2c3d4) + PCAP_HEAD[4:] + record(FRAMES["udp"]),
    "big-endian": struct.pack(">IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 262144, 1) +
        struct.pack(">IIII", 1, 2, 60, 60) + FRAMES["udp"],
    "pcapng": pcapng(FRAMES["udp"]),
    "no-frame": PCAP_HEAD,
    "cut-short": (PCAP_HEAD + record(FRAMES["udp"]))[:-10],
    "part-of-a-frame": PCAP_HEAD + record(FRAMES["udp"], length=1500),
    "frame-too-short": PCAP_HEAD + record(FRAMES["udp"][:13]),
    "no-ethernet": PCAP_HEAD[:-4] + struct.pack("<I", 101) + record(FRAMES["udp"]),
    "text": b"this is no capture",
}

if len(sys.argv) != 2:
    sys.exit(__doc__)
for target, seeds in {"mtr": MTR, "p4": P4, "engine": ENGINE, "flow": FLOW, "port": PORT, "arguments": ARGUMENTS,
                      "telemetry": TELEMETRY, "config": CONFIG, "capture": CAPTURE}.items():
    folder = pathlib.Path(sys.argv[1]) / target
    folder.mkdir(parents=True, exist_ok=True)
    for name, seed in seeds.items():
        (folder / name).write_bytes(seed)
