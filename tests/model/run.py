#!/usr/bin/env python3
"""Random scenarios against a runner, compared step by step with the reference model.

    run.py --runner PATH (--seconds N | --operations N) [--seed S]
    run.py --runner PATH --replay FILE     scenarios from a file, one a line

Prints what was compared; a divergence is shrunk to its shortest form and printed, and the exit status is 1.
"""

import argparse
import json
import os
import sys
import time

import model
from generate import Generator
from process import Ended, Runner, execute
from shrink import shrink

BATCH = 100


def difference(command, scenario, numbers):
    """(place, expected, actual) of the first step that differs, or None. Place -1: how it ended."""
    expected = model.run(scenario, numbers)
    actual, ending = execute(command, scenario)
    for place, line in enumerate(expected):
        got = actual[place] if place < len(actual) else f"(the runner ended: {ending})"
        if not model.same(line, got):
            return place, line, got
    return None if ending == "exit 0" else (-1, "exit 0", ending)


def show(command, scenario, numbers):
    """Prints a diverging scenario with both sides of the step that differs."""
    found = difference(command, {**scenario, "dump": 1}, numbers)
    print("scenario:", json.dumps(scenario, separators=(",", ":")))
    if found is None:
        print("(not repeatable in a process of its own)")
        return
    place, expected, actual = found
    print("steps:")
    for number, step in enumerate(scenario["steps"]):
        mark = ">" if number == place else " "
        print(f" {mark} {step['o']} {json.dumps(step['a'])}" + (f" faults {step['f']}" if "f" in step else ""))
    try:
        left, right = json.loads(expected), json.loads(actual)
    except ValueError:
        print("  model: ", expected)
        print("  module:", actual)
        return
    for key in sorted(set(left) | set(right)):
        if left.get(key) != right.get(key):
            if key == "ev":
                show_events(left[key], right[key])
            elif key != "s":
                print(f"  {key}: model  {left.get(key)!r}\n  {' ' * len(key)}  module {right.get(key)!r}")


def show_events(expected, actual):
    for place in range(max(len(expected), len(actual))):
        left = expected[place] if place < len(expected) else None
        right = actual[place] if place < len(actual) else None
        if left == right:
            print(f"    = {left!r}")
        else:
            print(f"    model  {left!r}\n    module {right!r}")


class Campaign:
    """Runs scenarios and counts."""

    def __init__(self, command, limit=1, shrinking=True):
        self.command = command
        self.limit = limit
        self.shrinking = shrinking
        self.runner = Runner(command)
        self.numbers = self.runner.numbers
        self.scenarios = self.operations = self.comparisons = 0
        self.divergences = []

    def batch(self, scenarios):
        """Executes scenarios in the standing process."""
        thread = self.runner.feed(scenarios)
        for scenario in scenarios:
            expected = model.run(scenario, self.numbers)
            actual = self.runner.lines(len(expected))
            self.scenarios += 1
            self.operations += len(expected)
            self.comparisons += len(actual)
            good = len(actual) == len(expected) and all(map(model.same, expected, actual))
            if not good:
                self.diverged(scenario)
                break
        else:
            thread.join()

    def diverged(self, scenario):
        """Shrinks the scenario and starts a fresh process."""
        self.runner.process.kill()
        self.runner.end()

        def fails(trial):
            return difference(self.command, trial, self.numbers) is not None
        if self.shrinking and fails(scenario):
            scenario = shrink(scenario, fails)
        self.divergences.append(scenario)
        print(f"divergence {len(self.divergences)}:")
        show(self.command, scenario, self.numbers)
        sys.stdout.flush()
        self.runner = Runner(self.command)

    def random(self, seed, seconds, operations):
        generator = Generator(seed)
        stop = time.monotonic() + seconds if seconds else None
        number = 0
        while len(self.divergences) < self.limit:
            if stop and time.monotonic() >= stop or operations and self.operations >= operations:
                break
            self.batch([generator.scenario(number + n) for n in range(BATCH)])
            number += BATCH

    def finish(self):
        ending = self.runner.end()
        if ending != "exit 0":
            print(f"the runner ended with {ending}")
            self.divergences.append(None)
        print(f"scenarios {self.scenarios}, operations {self.operations}, comparisons {self.comparisons}, "
              f"divergences {len(self.divergences)}")
        return 1 if self.divergences else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--runner", required=True, nargs="+", help="the runner and its arguments")
    parser.add_argument("--seconds", type=float)
    parser.add_argument("--operations", type=int)
    parser.add_argument("--seed", type=int, help="default: taken from the clock and printed")
    parser.add_argument("--limit", type=int, default=1, help="stop after so many divergences (1)")
    parser.add_argument("--no-shrink", action="store_true", help="print a diverging scenario as it was made")
    parser.add_argument("--replay", help="a file of scenarios")
    arguments = parser.parse_args()
    if not (arguments.seconds or arguments.operations or arguments.replay):
        parser.error("one of --seconds, --operations, --replay is needed")
    if not os.access(arguments.runner[0], os.X_OK):
        parser.error(f"{arguments.runner[0]}: no such program")
    try:
        campaign = Campaign(arguments.runner, arguments.limit, not arguments.no_shrink)
        if arguments.replay:
            with open(arguments.replay, encoding="utf-8") as file:
                for text in file:
                    campaign.batch([json.loads(text)])
        else:
            seed = arguments.seed if arguments.seed is not None else time.time_ns() % (1 << 32)
            print(f"seed {seed}")
            sys.stdout.flush()
            campaign.random(seed, arguments.seconds, arguments.operations)
        return campaign.finish()
    except Ended as ending:
        print(f"the runner does not start: {ending}")
        return 1


if __name__ == "__main__":
    sys.exit(main())
