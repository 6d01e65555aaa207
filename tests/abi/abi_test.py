#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""What the module asks of the rest of the driver, and what the plugin lets others use."""

import os
import pathlib
import re
import subprocess
import unittest

# asked for by position-independent code itself, and not on every machine; clang's name for a memcmp() that only
# asks whether
OF_THE_COMPILER = {"_GLOBAL_OFFSET_TABLE_", "__tls_get_addr", "bcmp"}
HERE = pathlib.Path(__file__).resolve().parent


def symbols(*command):
    """The names that nm prints, those of an archive's own members taken off."""
    lines = subprocess.run(["nm", *command], check=True, capture_output=True, text=True).stdout
    return {fields[-1].split("@")[0] for fields in map(str.split, lines.splitlines())
            if len(fields) > 1}


def listed(name):
    lines = (HERE / name).read_text().splitlines()
    return [line for line in lines if line and not line.startswith("#")]


class Symbols(unittest.TestCase):
    maxDiff = None

    def test_the_module_asks_for_exactly_the_seam_libc_and_dpdk(self):
        archive = os.environ["VASK_MODULE"]
        asked = symbols("--undefined-only", archive) - symbols("--defined-only", "--extern-only", archive)
        self.assertEqual(sorted(asked - OF_THE_COMPILER), sorted(listed("vask_p4_meter.undefined")))

    def test_the_plugin_exports_exactly_the_listed_names_and_the_calls_of_its_header(self):
        header = HERE.parents[1] / "drivers/net/vask1/rte_pmd_net_vask1.h"
        calls = re.findall(r"\b(rte_pmd_net_vask1_\w+)\(", header.read_text()) if header.exists() else []
        exported = symbols("--dynamic", "--defined-only", os.environ["VASK_PLUGIN"])
        exported -= {name for name in exported if name.startswith("DPDK_")}
        self.assertEqual(sorted(exported), sorted({*listed("librte_net_vask1.exports"), *calls}))

    def test_the_lists_name_each_symbol_once(self):
        for name in ("vask_p4_meter.undefined", "librte_net_vask1.exports"):
            self.assertEqual(len(listed(name)), len(set(listed(name))), name)


if __name__ == "__main__":
    unittest.main()
