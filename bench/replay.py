#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Replays a capture through one meter, by the packets' own times, and reads it with nothing but libpcap, in turn:
processor time of each, in the form of Google Benchmark's results."""

import argparse
import json
import os
import pathlib
import subprocess
import tempfile

REPETITIONS = 7
CONFIG = ("[profile 1]\nalgorithm = rfc2697\ncir = 250Mbit/s\ncbs = 64KiB\nebs = 64KiB\n"
          "[meter 1]\ndirection = rx\nprofile = 1\n")


def seconds(*command):
    """Of processor, user and system, for a command that succeeds."""
    with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise SystemExit(f"{command[0]} failed")
    return usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--vask-meter", required=True, help="the program")
    parser.add_argument("--capture-tool", required=True, help="makes captures, and reads them")
    parser.add_argument("--packets", type=int, default=2_000_000)
    parser.add_argument("--out", required=True, help="JSON file")
    args = parser.parse_args()

    entries = []

    def add(name, taken):
        entries.append({"run_name": name, "run_type": "iteration", "cpu_time": taken * 1e9, "time_unit": "ns",
                        "packets_per_iteration": args.packets})

    with tempfile.TemporaryDirectory(dir=os.path.dirname(os.path.abspath(args.out))) as folder:
        config, capture, result = (os.path.join(folder, name) for name in ("c.cfg", "in.pcap", "out.json"))
        pathlib.Path(config).write_text(CONFIG, encoding="ascii")
        seconds(args.capture_tool, "make", capture, str(args.packets))
        for _ in range(REPETITIONS):
            add("capture/read", seconds(args.capture_tool, "read", capture))
            add("capture/replay", seconds(args.vask_meter, "replay", config, capture, "--json", result))
            meter = json.loads(pathlib.Path(result).read_text(encoding="ascii"))["meters"][0]
            if meter["offered"]["packets"] != args.packets or not meter["dropped"]["packets"]:
                raise SystemExit("not every packet was metered, or none dropped")
    with open(args.out, "w", encoding="ascii") as file:
        json.dump({"benchmarks": entries}, file, indent=1)


if __name__ == "__main__":
    main()
