#!/usr/bin/env python3
"""Every fault of every operation in every small state, one at a time and in pairs, against a runner.

    exhaustive.py --runner PATH [--depth N]

The states are all that the steps of ALPHABET reach from the start in at most N steps, two states being one
when their state texts are equal. In each, each operation of OPERATIONS is executed as it is, then once for
each lower-layer call and allocation that it makes, failing, and once for each pair of one failing and a later
one that is still made failing too. After each the same operation is repeated without a fault. All is compared
with the reference model; the set is counted and printed.
"""

import argparse
import re
import sys
import time
from collections import Counter

import model
from card import FAILING
from process import Ended
from run import Campaign

RX, TX = 1 << 63, 1 << 62
PORTS = [[0, 5], [1, 6]]
CODES = (-11, 9)  # of the first and the second fault of a pair; singly, each is tried
P2697 = [1, 0, 1250000, 65536, 65536, 0]
P2698 = [2, 1, 1000, 2000, 64, 128]
P4115 = [3, 0, 125000000, 125000000, 1 << 20, 1 << 21]
GREEN_MARK = [[["S", 10]], [], [["D"]]]
EMPTY = [[], [], []]
ROW = "00" * 33


def meter(side, profile=1, policy=0):
    return [profile, 0, 1, side | 0x88, policy, 0]


def row(kind, side, profile, policer, port=0):
    """An instance row: type, dir, meter_enable 1, both drop counters."""
    value = kind | side << 1 | 1 << 2 | 0x88 << 5 | port << 13 | profile << 29 | policer << 37
    return value.to_bytes(6, "little").hex()


def profile_row(rfc):
    return b"".join(word.to_bytes(8, "little") for word in (8000, 16000, 2048, 4096)).hex() + f"{rfc << 2:02x}"


def step(name, *arguments):
    return {"o": name, "a": list(arguments)}


ALPHABET = [
    step("init"),
    step("padd", 0, 1, P2697, 1),
    step("padd", 0, 2, P2698, 1),
    step("qadd", 0, 1, GREEN_MARK, 1),
    step("create", 0, 1, meter(RX), 0, 1),
    step("create", 0, 1, meter(TX, 1, 1), 0, 1),
    step("create", 1, 1, meter(0, 2), 0, 1),
    step("create", 1, 2, meter(RX, 2, 1), 0, 1),
    step("create", 0, 0, meter(0), 0, 1),
    step("inst_create", 0, 1, meter(0), 0, 1, 3, 1),
    step("disable", 0, 1, 1),
    step("pdel", 0, 1, 1),
    step("poke", "M", 0, 3, 2),
]

OPERATIONS = [
    step("init"), step("fini"), step("default", 0), step("default", 7),
    step("padd", 0, 1, P2697, 1), step("padd", 0, 3, P2698, 1), step("padd", 0, 4, P4115, 0),
    step("padd", 0, 5, [2, 0, 2, 1, 0, 0], 1), step("padd", 0, 6, None, 1),
    step("pdel", 0, 1, 1), step("pdel", 0, 2, 0), step("pdel", 0, 3, 1),
    step("pupd", 0, 1, 1, 1), step("pupd", 0, 1, 2, 1), step("pupd", 0, 2, 1, 1), step("pupd", 0, 0, 1, 1),
    step("qval", 0, GREEN_MARK, 1), step("qadd", 0, 1, EMPTY, 1), step("qadd", 0, 3, GREEN_MARK, 1),
    step("qadd", 0, 0, EMPTY, 0), step("qadd", 0, 4, [[["N"]], [], []], 1),
    step("qdel", 0, 0, 1), step("qdel", 0, 1, 1), step("qdel", 0, 3, 0),
    step("create", 0, 3, meter(RX), 0, 1), step("create", 0, 3, meter(TX, 1, 1), 1, 1),
    step("create", 1, 3, meter(0, 2), 0, 0), step("create", 0, 1, meter(RX), 0, 1),
    step("create", 0, 0, meter(RX), 0, 1), step("create", 5, 3, meter(RX), 0, 1),
    step("destroy", 0, 0, 1), step("destroy", 0, 1, 1), step("destroy", 0, 2, 0), step("destroy", 0, 3, 1),
    step("enable", 0, 1, 1), step("enable", 0, 2, 1), step("disable", 0, 1, 1), step("disable", 0, 2, 0),
    step("stats", 0, 1, 0x88, 0, 1, 1), step("stats", 0, 0, 8, 1, 1, 1), step("mtu", 0, 1500), step("mtu", 9, 1500),
    step("cfg_2_pol", 0, 0, 1), step("del_2_pol", 1), step("upd_2_hw", 0, 0), step("upd_2_hw", 1, 0),
    step("p2hw", 0), step("pdel2hw", 0), step("q2hw", 0), step("qdel2hw", 0), step("m2hw", 0),
    step("mdel2hw", 0), step("port_add", 0, 0, 1), step("port_add", 1, 0, 1), step("port_add", 2, 0, 1),
    step("port_del", 0, 0), step("port_del", 1, 0), step("port_del", 2, 0),
    step("inst_create", 0, 4, meter(0), 0, 0, 3, 1), step("inst_create", 1, 4, meter(0), 2, 0, 9, 1),
    step("t_padd", 3, profile_row(1)), step("t_pmod", 1, profile_row(2)), step("t_pdel", 1),
    step("t_qadd", 3, "4a8b26"), step("t_qmod", 1, "4a8b26"), step("t_qmod", 0, "4a8b26"), step("t_qdel", 1),
    step("t_iadd", 4, row(1, 0, 1, 0)), step("t_iadd", 4, row(1, 1, 1, 1)), step("t_iadd", 4, row(0, 1, 1, 0)),
    step("t_imod", 1, row(1, 0, 1, 0)), step("t_imod", 1, row(1, 1, 2, 1)), step("t_imod", 2, row(0, 0, 1, 1)),
    step("t_idel", 1), step("t_idel", 0),
]

CALL = re.compile(r"(\w+)\(")


def calls(result):
    """The (operation, n) of each call in a step's events that can fail, in order."""
    seen, out = Counter(), []
    for event in result["ev"]:
        name = CALL.match(event)
        if name and name[1] in FAILING:
            seen[name[1]] += 1
            out.append((name[1], seen[name[1]]))
    return out


def scenario(steps):
    return {"id": 0, "ports": PORTS, "tx": "a5" * 28, "steps": steps}


def after(path, last=()):
    """The model after the steps, with the result of `last` when given."""
    machine = model.Model(scenario([]))
    for item in path:
        machine.step(item)
    if not last:
        return machine
    return model.loads(machine.step(last))


def states(depth):
    """Shortest paths to every state, and how many were new at each depth."""
    known, paths, counts, layer = set(), [], [], [[]]
    known.add(after([]).text())
    while layer and len(counts) <= depth:
        counts.append(len(layer))
        paths += layer
        following = []
        for path in layer:
            for item in ALPHABET:
                if item["o"] == "init" and item in path:
                    continue  # a second start only numbers the pools anew
                text = after([*path, item]).text()
                if text not in known:
                    known.add(text)
                    following.append([*path, item])
        layer = following
    return paths, counts


def cases(path, operation):
    """(kind, steps) of all executions of an operation after a path."""
    plain = after(path, operation)
    if "skip" in plain:
        return
    yield "plain", [*path, operation]
    for place, first in enumerate(calls(plain)):
        for code in CODES:
            yield "single", [*path, {**operation, "f": [[*first, code]]}, operation]
        failed = {**operation, "f": [[*first, CODES[0]]]}
        for second in calls(after(path, failed))[place + 1:]:
            yield "pair", [*path, {**operation, "f": [[*first, CODES[0]], [*second, CODES[1]]]}, operation]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--runner", required=True, nargs="+")
    parser.add_argument("--depth", type=int, default=5, help="steps to a state (5)")
    parser.add_argument("--limit", type=int, default=1, help="stop after so many divergences (1)")
    parser.add_argument("--no-shrink", action="store_true", help="print a diverging scenario as it was made")
    arguments = parser.parse_args()
    begun = time.monotonic()
    try:
        campaign = Campaign(arguments.runner, arguments.limit, not arguments.no_shrink)
    except Ended as ending:
        print(f"the runner does not start: {ending}")
        return 1
    paths, by_depth = states(arguments.depth)
    print(f"states {len(paths)} (by depth {by_depth}), operations {len(OPERATIONS)}")
    kinds, faulted, batch = Counter(), Counter(), []
    for path in paths:
        for operation in OPERATIONS:
            for kind, steps in cases(path, operation):
                kinds[kind] += 1
                if kind != "plain":
                    faulted[steps[-2]["f"][-1][0]] += 1
                batch.append(scenario(steps))
        if len(batch) > 500:
            campaign.batch(batch)
            batch = []
        if len(campaign.divergences) >= arguments.limit:
            break
    campaign.batch(batch)
    for name in FAILING:
        print(f"  {name}: {faulted[name]} executions end with it failing")
    print(f"executions: {kinds['plain']} without a fault, {kinds['single']} with one, {kinds['pair']} with two; "
          f"{time.monotonic() - begun:.0f} s")
    return campaign.finish()


if __name__ == "__main__":
    sys.exit(main())
