# SPDX-License-Identifier: BSD-3-Clause
"""Reads classic pcap files, exactly: microseconds or nanoseconds, either byte order."""

import collections
import struct

Frame = collections.namedtuple("Frame", "time_ns length data")

MAGICS = {
    b"\xd4\xc3\xb2\xa1": ("<", 1000),
    b"\xa1\xb2\xc3\xd4": (">", 1000),
    b"\x4d\x3c\xb2\xa1": ("<", 1),
    b"\xa1\xb2\x3c\x4d": (">", 1),
}


def read(path):
    """The frames of a capture, a list of Frame(time_ns, length on the wire, bytes captured)."""
    with open(path, "rb") as f:
        image = f.read()
    order, scale = MAGICS[image[:4]]
    frames, at = [], 24
    while at < len(image):
        sec, frac, captured, length = struct.unpack_from(order + "IIII", image, at)
        at += 16
        data = image[at:at + captured]
        if len(data) != captured:
            raise ValueError(f"{path}: cut short at byte {at}")
        frames.append(Frame(sec * 10**9 + frac * scale, length, data))
        at += captured
    return frames


def ones_sum(data):
    """RFC 1071: the ones' complement sum of 16-bit words, folded."""
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(f">{len(data) // 2}H", data))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return total


class IPv4:
    """What the tests ask of an Ethernet frame that carries IPv4; None of another frame."""

    def __init__(self, frame):
        l3 = 14
        ethertype, = struct.unpack_from(">H", frame, 12)
        while ethertype in (0x8100, 0x88A8):
            ethertype, = struct.unpack_from(">H", frame, l3 + 2)
            l3 += 4
        self.valid = ethertype == 0x0800
        if not self.valid:
            return
        header = (frame[l3] & 15) * 4
        total, = struct.unpack_from(">H", frame, l3 + 2)
        self.header = frame[l3:l3 + header]
        self.payload = frame[l3 + header:l3 + total]
        self.dscp = frame[l3 + 1] >> 2
        self.ecn = frame[l3 + 1] & 3
        self.proto = frame[l3 + 9]
        self.src = frame[l3 + 12:l3 + 16]
        self.dst = frame[l3 + 16:l3 + 20]
        self.sport, self.dport = struct.unpack_from(">HH", self.payload)

    def header_checksum_ok(self):
        return ones_sum(self.header) == 0xFFFF

    def payload_checksum_ok(self):
        pseudo = self.src + self.dst + struct.pack(">HH", self.proto, len(self.payload))
        return ones_sum(pseudo + self.payload) == 0xFFFF
