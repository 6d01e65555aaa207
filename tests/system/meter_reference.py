# SPDX-License-Identifier: BSD-3-Clause
"""What a meter does to a trace, in exact rational arithmetic straight from the RFCs.

Rates and bursts are the card's: 8000 bytes/s and 1024 bytes a unit, cut off, or packets as they stand.
"""

from fractions import Fraction

GREEN, YELLOW, RED = range(3)


class Meter:
    """One of RFC 2697, 2698 and 4115; colour-blind unless a packet comes with a colour."""

    def __init__(self, algorithm, cir, cbs, eir, ebs, packet_mode=False):
        rate, burst = (1, 1) if packet_mode else (8000, 1024)
        self.algorithm = algorithm
        self.packet_mode = packet_mode
        self.cir = Fraction(cir // rate * rate, 10**9)
        self.eir = Fraction(eir // rate * rate, 10**9)
        self.cbs = Fraction(cbs // burst * burst)
        self.ebs = Fraction(ebs // burst * burst)
        self.tc, self.te = self.cbs, self.ebs
        self.last = None

    def color(self, now_ns, length, came_as=GREEN):
        """The colour of the next packet."""
        elapsed = 0 if self.last is None else max(0, now_ns - self.last)
        self.last = now_ns if self.last is None else max(self.last, now_ns)
        self._fill(elapsed)
        size = 1 if self.packet_mode else length
        return getattr(self, f"_rfc{self.algorithm}")(size, came_as)

    def _fill(self, elapsed):
        grown = self.tc + self.cir * elapsed
        self.tc = min(grown, self.cbs)
        more = grown - self.tc if self.algorithm == 2697 else self.eir * elapsed
        self.te = min(self.te + more, self.ebs)

    def _rfc2697(self, size, came_as):
        if came_as == GREEN and self.tc >= size:
            self.tc -= size
            return GREEN
        if came_as != RED and self.te >= size:
            self.te -= size
            return YELLOW
        return RED

    _rfc4115 = _rfc2697

    def _rfc2698(self, size, came_as):
        if came_as == RED or self.te < size:
            return RED
        self.te -= size
        if came_as == YELLOW or self.tc < size:
            return YELLOW
        self.tc -= size
        return GREEN


def dropped(meter, frames, drops=(RED,)):
    """(packets, bytes, the frames that stay) of a trace under a policy that drops these colours."""
    kept, lost = [], []
    for frame in frames:
        (lost if meter.color(frame.time_ns, frame.length) in drops else kept).append(frame)
    return len(lost), sum(f.length for f in lost), kept
