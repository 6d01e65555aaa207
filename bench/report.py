#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Reads what the benchmarks measured, prints each figure beside what it is held against, and writes one JSON file
and a picture. Compares with a baseline of the same form."""

import argparse
import json
import os
import re
import statistics
import sys

import picture

SUFFIX = re.compile(r"/(min_time:|iterations:|repeats:|manual_time|real_time|process_time).*")
STATE = re.compile(r"^(.*)/meters:(\d+)/profiles:(\d+)/policies:(\d+)/(\w+)$")
NS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}

SMALL_ROOM = 60  # ns beside what a call is built on
PORT_ROOM = 100  # ns that the port may add to a call, beside a walk
DRIFT = 0.10  # of a time, as a ratio to what it is held against: worth a line
GROWTH = 0.03  # of an instruction count: a failure

# of what is held against plain forwarding and against forwarding with one rte_meter check
PACKET_TARGETS = {
    "vask1/no_rule": (0.90, None),
    "vask1/rx/1/green": (0.50, 0.70),
    "vask1/tx/1/green": (0.50, 0.70),
    "vask1/rx/4095/green": (0.40, 0.55),
    "vask1/tx/4095/green": (0.40, 0.55),
}
CHANGES = "/10000_changes_a_second"
CHANGES_LIMIT = 1.05
REPLAY_TARGET = 1 / 3  # of the rate of a bare read of the same capture


class Figure:
    """The repetitions of one benchmark, in ns."""

    def __init__(self):
        self.times = []
        self.repetitions = []
        self.error = None

    median = property(lambda self: statistics.median(self.times))
    low = property(lambda self: min(self.times))
    high = property(lambda self: max(self.times))

    def of(self, counter):
        """The median of a counter."""
        return statistics.median(r[counter] for r in self.repetitions)

    def __str__(self):
        return f"{self.median:10.1f} [{self.low:10.1f} ..{self.high:10.1f}]"


def nodes(repetition):
    """Those that the walks of an operation visit."""
    return sum(repetition[kind + "_nodes"] for kind in ("meter", "profile", "policy"))


def natural(name):
    """Sorts numbers in names by value."""
    return [(int(part), "") if part.isdigit() else (0, part) for part in re.split(r"(\d+)", name)]


def read(path, clock):
    """{name: Figure} of a Google Benchmark file; clock is real_time or cpu_time."""
    figures = {}
    if not path:
        return figures
    with open(path, encoding="utf-8") as file:
        entries = json.load(file)["benchmarks"]
    for entry in entries:
        if entry["run_type"] != "iteration":
            continue
        figure = figures.setdefault(SUFFIX.sub("", entry["run_name"]), Figure())
        if entry.get("error_occurred"):
            figure.error = entry["error_message"]
            continue
        packets = entry.get("packets_per_iteration", 1)
        figure.times.append(entry[clock] * NS[entry["time_unit"]] / packets)
        figure.repetitions.append(entry)
    return figures


class Verdicts:
    def __init__(self):
        self.lines = []

    def add(self, holds, text):
        self.lines.append((holds, text))
        return "holds" if holds else "MISSED"


class Control:
    """The control path: each operation beside what it cannot do without."""

    def __init__(self, figures):
        self.figures = figures
        self.states = {}
        for name, figure in figures.items():
            match = STATE.match(name)
            if match and figure.times:
                op, meters, profiles, policies, order = match.groups()
                self.states[name] = (op, int(meters), int(profiles), int(policies), order)

    def budgets(self, name, port=False):
        """What the operation may cost, in ns, in each repetition: what it is built on is timed in turn with it."""
        _, meters, *_ = self.states[name]
        return [self.budget(meters, r) + (self.room(meters, r) if port else 0)
                for r in self.figures[name].repetitions]

    @staticmethod
    def budget(meters, r):
        """The module's own."""
        if meters == 4095 and r["meter_nodes"]:
            return 1.1 * r["walks_ns"] + r["lines_ns"]
        # walks of a node or two count among the small room
        walks = 1.1 * r["walks_ns"] if meters > 1 or nodes(r) > 3 else 0
        return walks + r["lines_ns"] + r["call_ns"] + r["memory_ns"] + SMALL_ROOM

    @staticmethod
    def room(meters, r):
        """What a port may add: a walk of the meters, and PORT_ROOM."""
        return (r["walks_ns"] / nodes(r) * meters if r["meter_nodes"] else 0) + PORT_ROOM

    def row(self, name, budgets):
        """The operation's line of the result."""
        figure = self.figures[name]
        shares = [time / budget for time, budget in zip(figure.times, budgets)]
        return {"ns": figure.median, "least": figure.low, "most": figure.high, "budget": statistics.median(budgets),
                "share": statistics.median(shares)}

    def operations(self):
        """Their names, in order; the benchmarks ran in random order."""
        return sorted((name for name, state in self.states.items() if state[0] not in ("walk", "fill", "empty")),
                      key=natural)

    def bases(self, title):
        print(f"\n{title}: what operations are built on, ns: median [least .. most]")
        for name, figure in sorted(self.figures.items(), key=lambda item: natural(item[0])):
            if name.startswith(("bare/", "walk/")) and figure.times:
                print(f"  {name:52} {figure}")


def print_control(title, control, verdicts):
    control.bases(title)
    print(f"\n{title}: operations, ns: median [least .. most], what it may cost, share of that")
    rows = {}
    for name in control.operations():
        rows[name] = row = control.row(name, control.budgets(name))
        print(f"  {name:62} {control.figures[name]} {row['budget']:10.1f} {row['share']:5.2f}"
              f"{'' if row['share'] <= 1 else '  MISSED'}")
    for meters in (1, 4095):
        of = [n for n in rows if control.states[n][1] == meters]
        bad = [n for n in of if rows[n]["share"] > 1]
        verdicts.add(not bad, f"{title}: {len(of) - len(bad)} of {len(of)} operations at {meters} meters within "
                     "their budget" + over_it(bad, rows))
    print_fill(title, control, verdicts, rows)
    return rows


def over_it(names, rows):
    """Says by how much."""
    return "; over it: " + ", ".join(f"{name} ({rows[name]['share']:.3f})" for name in names) if names else ""


def print_fill(title, control, verdicts, rows):
    state = "/meters:4095/profiles:1/policies:1/in_order"
    if "fill" + state not in control.figures:
        return
    bare, lines = (control.figures["fill" + state].of(counter) for counter in ("bare_ns", "lines_ns"))
    rows["fill"] = row = control.row(
        "fill" + state, [1.2 * (r["bare_ns"] + r["lines_ns"]) for r in control.figures["fill" + state].repetitions])
    text = (f"{title}: filling with 4095 meters {row['ns'] / 1e6:.2f} ms, {1.2 * row['share']:.2f} of its walks, log "
            f"lines and allocations ({bare / 1e6:.2f} + {lines / 1e6:.2f} ms); at most 1.20")
    verdicts.add(row["share"] <= 1, text)
    empty = control.figures["empty" + state]
    rows["empty"] = {"ns": empty.median, "least": empty.low, "most": empty.high}
    print(f"  {'fill with 4095 meters':62} {control.figures['fill' + state]}\n  {'empty of 4095 meters':62} {empty}")


def print_port(port, module, verdicts):
    """Operations through the port: each may cost what the module alone may, a walk and PORT_ROOM more."""
    port.bases("through the port")
    print("\nthrough the port: operations, ns: median [least .. most], what it may cost, share of that, and what the "
          "port adds to the module alone")
    rows, within = {}, 0
    for name in port.operations():
        if name not in module.figures or not module.figures[name].times:
            continue
        figure = port.figures[name]
        rows[name] = row = port.row(name, port.budgets(name, port=True))
        added = figure.median - module.figures[name].median
        room = statistics.median(port.room(port.states[name][1], r) for r in figure.repetitions)
        within += added <= room
        print(f"  {name:62} {figure} {row['budget']:10.1f} {row['share']:5.2f} {added:+10.1f}"
              f"{'' if row['share'] <= 1 else '  MISSED'}")
    print(f"  added at most a walk and {PORT_ROOM} ns to what the module alone took: {within} of {len(rows)}")
    bad = [name for name in rows if rows[name]["share"] > 1]
    verdicts.add(not bad, f"through the port: {len(rows) - len(bad)} of {len(rows)} operations within the module's "
                 f"budget, a walk and {PORT_ROOM} ns" + over_it(bad, rows))
    print_fill("through the port", port, verdicts, rows)
    return rows


def beside(figure, counter):
    """The ratios of what was timed in turn with a benchmark to it, one a repetition."""
    return [r[counter] / time for r, time in zip(figure.repetitions, figure.times)]


def print_packets(figures, verdicts):
    print("\npackets: ns a packet: median [least .. most], and the packet rate beside plain net_null and beside "
          "net_null with one rte_meter check, which are timed in turn with it: median [least .. most]")
    rows = {}
    for name, figure in sorted(figures.items(), key=lambda item: natural(item[0])):
        if not figure.times or figure.error:
            print(f"  {name:48} no figure: {figure.error}")
            verdicts.add(False, f"packets: {name}: {figure.error}")
            continue
        rows[name] = {"ns": figure.median, "least": figure.low, "most": figure.high}
        if "plain_ns" not in figure.repetitions[0]:
            print(f"  {name:48} {figure}")
            continue
        note, columns = "", ""
        targets = PACKET_TARGETS.get(name, (None, None))
        for key, counter, text, want in (("of_plain", "plain_ns", "plain net_null", targets[0]),
                                         ("of_rte_meter", "rte_meter_ns", "net_null with rte_meter", targets[1])):
            ratios = beside(figure, counter)
            rows[name][key] = statistics.median(ratios)
            columns += f"  {rows[name][key]:5.3f} [{min(ratios):.3f} .. {max(ratios):.3f}]"
            if want:
                note += "  " + verdicts.add(rows[name][key] >= want,
                                            f"packets: {name}: {rows[name][key]:.3f} of {text}, at least {want:.2f}")
        if name.endswith(CHANGES):
            cost = 1 / statistics.median(beside(figure, "quiet_ns"))
            note = "  " + verdicts.add(cost < CHANGES_LIMIT, f"packets: {name}: {cost:.3f} of the time without "
                                       f"changes, below {CHANGES_LIMIT}")
        print(f"  {name:48} {figure} {columns}{note}")
    return rows


def print_replay(figures, verdicts):
    """A capture from file to counters, beside a bare read of it."""
    read, replay = figures["capture/read"], figures["capture/replay"]
    of_read = statistics.median(a / b for a, b in zip(read.times, replay.times))
    print("\ncapture: ns a packet, processor time of the whole process: median [least .. most]")
    note = verdicts.add(of_read >= REPLAY_TARGET, f"capture: vask-meter replay at {of_read:.2f} of the rate of a bare "
                        f"libpcap read, at least {REPLAY_TARGET:.2f}")
    print(f"  {'libpcap alone':48} {read}\n  {'vask-meter replay':48} {replay} {of_read:7.2f}  {note}")
    return {"read": {"ns": read.median, "least": read.low, "most": read.high},
            "replay": {"ns": replay.median, "least": replay.low, "most": replay.high, "of_read": of_read}}


def read_instructions(folder):
    """{name: instructions an item} of callgrind's dumps, operations through the port as port/..."""
    counts = {}
    for file in sorted(os.listdir(folder)) if folder else []:
        with open(os.path.join(folder, file), encoding="utf-8", errors="replace") as dump:
            text = dump.read()
        trigger = re.search(r"^desc: Trigger: Client Request: (.*) items:(\d+)$", text, re.M)
        total = re.search(r"^(?:totals|summary): (\d+)", text, re.M)
        # what marks nothing, such as a bare walk, collects nothing
        if trigger and total and int(total[1]):
            name = ("port/" if file.startswith("port_") else "") + trigger[1]
            counts[name] = int(total[1]) / int(trigger[2])
    return counts


def print_instructions(counts, baseline):
    """Whether none grew by more than GROWTH."""
    print("\ninstructions: an operation or a packet, now and in the baseline")
    good = True
    for name, count in counts.items():
        before = baseline.get(name)
        growth = count / before - 1 if before else 0
        bad = growth > GROWTH
        good = good and not bad
        then = f"{before:12.1f} {growth:+7.1%}" if before else "           -"
        print(f"  {name:66} {count:12.1f} {then}{'  GREW' if bad else ''}")
    missing = sorted(set(baseline) - set(counts))
    if missing:
        print("  not counted, though in the baseline: " + ", ".join(missing))
    return good and not missing


def compare(result, baseline):
    """Lines for the times whose ratio to what they are held against moved."""
    print("\ntimes against the baseline, each as a ratio to what it is held against in its own run")
    moved = 0
    for part, key in (("control", "share"), ("port", "share"), ("packets", "of_plain")):
        for name, row in result.get(part, {}).items():
            old = baseline.get(part, {}).get(name)
            if not old or not row.get(key) or not old.get(key):
                continue
            ratios = [r[key] if key == "share" else 1 / r[key] for r in (row, old)]
            change = ratios[0] / ratios[1] - 1
            if abs(change) > DRIFT:
                moved += 1
                print(f"  {part}: {name:62} {ratios[1]:.2f} -> {ratios[0]:.2f} ({change:+.0%})")
    print(f"  {moved} moved by more than {DRIFT:.0%}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--control", help="JSON of control_bench")
    parser.add_argument("--port", help="JSON of port_control_bench")
    parser.add_argument("--packets", help="JSON of packet_bench")
    parser.add_argument("--replay", help="JSON of replay.py")
    parser.add_argument("--footprint", help="JSON of footprint")
    parser.add_argument("--instructions", help="folder with callgrind's dumps")
    parser.add_argument("--baseline", help="an earlier result")
    parser.add_argument("--out", required=True, help="the result; parts that were not measured are kept")
    parser.add_argument("--picture", help="SVG file")
    args = parser.parse_args()

    result, baseline, verdicts = {}, {}, Verdicts()
    for path, into in ((args.out, result), (args.baseline, baseline)):
        if path and os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                into.update(json.load(file))

    module = Control(read(args.control, "real_time")) if args.control else None
    if module:
        result["control"] = print_control("module alone", module, verdicts)
    if args.port and module:
        result["port"] = print_port(Control(read(args.port, "real_time")), module, verdicts)
    if args.packets:
        result["packets"] = print_packets(read(args.packets, "real_time"), verdicts)
    if args.replay:
        result["replay"] = print_replay(read(args.replay, "cpu_time"), verdicts)
    if args.footprint:
        with open(args.footprint, encoding="utf-8") as file:
            result["footprint"] = json.load(file)
        print("\nfootprint")
        for name, value in result["footprint"].items():
            print(f"  {name:62} {value:14.1f}")
    good = True
    if args.instructions:
        result["instructions"] = read_instructions(args.instructions)
        good = bool(result["instructions"]) and print_instructions(result["instructions"],
                                                                   baseline.get("instructions", {}))
    if baseline and not args.instructions:
        compare(result, baseline)
    with open(args.out, "w", encoding="utf-8") as file:
        json.dump(result, file, indent=1, sort_keys=True)
        file.write("\n")
    if args.picture and module and args.packets:
        picture.draw(args.picture, module, result["packets"])
        print(f"\npicture: {args.picture}")
    if verdicts.lines:
        print("\nwhat should hold")
        for holds, text in verdicts.lines:
            print(f"  {'holds ' if holds else 'MISSED'} {text}")
    print(f"result: {args.out}")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
