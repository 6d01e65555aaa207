#!/usr/bin/env python3
"""The harness against a runner that answers with the model: planted differences are found and shrunk."""

import io
import json
import os
import sys
import unittest
from contextlib import redirect_stdout

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import model
from generate import Generator
from run import Campaign
from shrink import shrink

ECHO = os.path.join(os.path.dirname(os.path.abspath(__file__)), "echo.py")


def campaign(*fault, operations=2000, seed=1):
    """(exit status, the diverging scenarios) of a run against the echo."""
    run = Campaign([sys.executable, ECHO, *fault])
    with redirect_stdout(io.StringIO()):
        run.random(seed, None, operations)
        status = run.finish()
    return status, run


class Harness(unittest.TestCase):

    def test_a_faithful_runner_has_no_divergence_and_every_step_is_compared(self):
        status, run = campaign()
        self.assertEqual(status, 0)
        self.assertEqual(run.divergences, [])
        self.assertGreaterEqual(run.operations, 2000)
        self.assertEqual(run.comparisons, run.operations)

    def test_a_wrong_log_level_is_found_and_shrunk_to_the_five_steps_that_it_needs(self):
        status, run = campaign("level", operations=20000)
        self.assertEqual(status, 1)
        self.assertEqual([step["o"] for step in run.divergences[0]["steps"]],
                         ["init", "padd", "create", "disable", "disable"])

    def test_a_missing_call_is_found(self):
        status, run = campaign("drop", operations=20000)
        self.assertEqual(status, 1)
        self.assertIn(run.divergences[0]["steps"][-1]["o"], ("qdel", "t_qdel", "qdel2hw"))

    def test_a_crash_is_a_divergence_of_one_step(self):
        status, run = campaign("crash", operations=20000)
        self.assertEqual(status, 1)
        self.assertEqual([step["o"] for step in run.divergences[0]["steps"]], ["stats"])

    def test_the_same_seed_gives_the_same_scenarios(self):
        first = [Generator(7).scenario(n) for n in range(20)]
        again = [Generator(7).scenario(n) for n in range(20)]
        other = [Generator(8).scenario(n) for n in range(20)]
        self.assertEqual(first, again)
        self.assertNotEqual(first, other)

    def test_shrinking_keeps_what_the_condition_needs_and_nothing_else(self):
        steps = [{"o": "mtu", "a": [0, n]} for n in range(40)]

        def condition(scenario):
            seen = [step["a"][1] for step in scenario["steps"]]
            return 17 in seen and 31 in seen
        small = shrink({"id": 1, "ports": [[0, 5]], "tx": "00" * 28, "steps": steps}, condition)
        self.assertEqual(small, {"id": 1, "ports": [], "steps": [steps[17], steps[31]]})

    def test_a_message_of_the_modules_own_may_be_any_but_not_empty(self):
        line = model.run({"steps": [{"o": "qval", "a": [0, None, 1]}]})[0]
        self.assertTrue(model.same(line, line.replace('"*"', '"no policy given"')))
        self.assertFalse(model.same(line, line.replace('"*"', '""')))
        self.assertFalse(model.same(line, line.replace('[1,0,"*"]', "null")))

    def test_every_step_of_the_format_is_executed_by_the_generator(self):
        with open(os.path.join(os.path.dirname(ECHO), "FORMAT.md"), encoding="utf-8") as file:
            text = file.read()
        used = {step["o"] for n in range(300) for step in Generator(3).scenario(n)["steps"]}
        known = {name[2:] for name in dir(model.Model) if name.startswith("o_")}
        self.assertEqual(used, known)
        self.assertEqual([name for name in known if f"`{name}`" not in text], [])


class Mutations(unittest.TestCase):
    """The kept list against the sources, without building anything."""

    def test_every_mutation_finds_its_line_and_changes_it(self):
        here = os.path.dirname(ECHO)
        with open(os.path.join(here, "mutations.jsonl"), encoding="utf-8") as file:
            mutations = [json.loads(line) for line in file]
        self.assertGreaterEqual(len(mutations), 100)
        self.assertEqual(len({json.dumps(mutation) for mutation in mutations}), len(mutations))
        for mutation in mutations:
            with open(os.path.join(here, "../..", mutation["file"]), encoding="utf-8") as file:
                lines = "\n" + file.read()
            self.assertGreater(lines.count("\n" + mutation["before"] + "\n"), mutation["nth"], mutation)
            self.assertNotEqual(mutation["before"], mutation["after"])


class Examples(unittest.TestCase):
    """The model against a few results worked out by hand."""

    def results(self, *steps, **scenario):
        lines = model.run({"ports": [[0, 5]], "steps": [{"o": o, "a": a} for o, a in steps], **scenario})
        return [json.loads(line) for line in lines]

    def test_a_gigabit_profile_in_engine_units(self):
        # 125000000 / 8000 = 15625, 65536 / 1024 = 64; 64 << 20 | 15625 << 67 | 1 << 95
        result = self.results(("init", []), ("padd", [0, 5, [1, 0, 125000000, 65536, 0, 0], 1]))[1]
        image = (64 << 20 | 15625 << 67 | 1 << 95).to_bytes(12, "little").hex()
        self.assertIn(f"vask_p4_mep_add_meter_profile(0,1,{image})=0", result["ev"])

    def test_the_shapers_of_a_rate(self):
        for cir, rate, isch in ((11574, 92, 0), (11575, 92, 1), (12500, 100, 1), (1250000, 10000, 108),
                                (125000000, 1000000, 10800), (1250000000, 10000000, 108000),
                                (6068148148, 48545185, 524287), (6068148149, 48545185, 0)):
            port, sched = self.results(("shaper", [5, cir, 0, "00" * 12]), ("isch", [cir, 0, "00" * 4]))
            self.assertEqual(int.from_bytes(bytes.fromhex(port["x"])[8:], "little"), rate, cir)
            self.assertEqual(int.from_bytes(bytes.fromhex(sched["x"]), "little") >> 11, isch, cir)

    def test_pools_never_hand_out_what_is_reserved(self):
        results = self.results(("init", []), ("fill", [2, 1, 253]), ("idx_get", [2]), ("idx_get", [2]))
        self.assertEqual([r["x"] for r in results[2:]], [254, None])


if __name__ == "__main__":
    unittest.main()
