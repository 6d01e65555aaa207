# SPDX-License-Identifier: BSD-3-Clause
"""What the distribution's dpdk-pmdinfo.py tells of the plugin."""

import json
import os
import re
import subprocess
import unittest


class PmdInfo(unittest.TestCase):
    def test_plugin_tells_its_name_and_every_argument_that_it_takes(self):
        done = subprocess.run(["dpdk-pmdinfo.py", os.environ["VASK_PLUGIN"]],
                              capture_output=True, text=True, timeout=60, check=True)
        driver, = [d for d in json.loads(done.stdout) if d["name"] == "net_vask1"]
        arguments = re.findall(r"(\w+)=", driver["params"])
        self.assertEqual(
            arguments, ["uplink", "sfi", "clock", "tick", "shapers", "fault", "trace"])

        # the list is the one that the driver gives when it refuses another argument
        with open(os.path.join(os.environ["VASK_SOURCE"], "drivers/net/vask1/ethdev/vask_args.cpp"),
                  encoding="utf-8") as f:
            self.assertEqual(arguments, re.findall(r'\{"(\w+)", (?:true|false), parse_', f.read()))


if __name__ == "__main__":
    unittest.main()
