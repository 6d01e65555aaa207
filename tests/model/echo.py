#!/usr/bin/env python3
"""A runner that answers with the model itself, to test the harness: `echo.py [FAULT]`.

FAULT plants one difference: `level` (a log level), `drop` (an event), `hang`, `crash`.
"""

import json
import os
import signal
import sys
import time

import model


def spoil(line, fault):
    if fault == "level":
        return line.replace("L5|[offload_smartnic] vask_p4_meter_disable", "L7|[offload_smartnic] "
                            "vask_p4_meter_disable")
    if fault == "drop":
        return line.replace('"vask_p4_mep_del_meter_policy(1,3)=0",', "")
    if fault and "meter stats not find" in line:
        if fault == "hang":
            time.sleep(3600)
        os.kill(os.getpid(), signal.SIGKILL)
    return line


def main():
    fault = sys.argv[1] if len(sys.argv) > 1 else ""
    print(json.dumps({"hello": 1, **model.NUMBERS}, separators=(",", ":")), flush=True)
    for text in sys.stdin:
        scenario = json.loads(text)
        lines = []
        machine = model.Model(scenario)
        for step in scenario["steps"]:
            lines.append(spoil(machine.step(step), fault))
            if scenario.get("flush"):
                print(lines.pop(), flush=True)
        if lines:
            print("\n".join(lines), flush=True)


if __name__ == "__main__":
    main()
