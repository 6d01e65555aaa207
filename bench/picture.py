# SPDX-License-Identifier: BSD-3-Clause
"""The picture of how cost grows."""

import re
import subprocess


def draw(path, control, packets):
    """How cost grows: operations with the number of meters, packets with the number of meters and rules."""
    blocks, plots = [], []

    def block(points):
        blocks.append("$d%d << E\n%s\nE" % (len(blocks), "\n".join(f"{x} {y}" for x, y in sorted(points))))
        return f"$d{len(blocks) - 1}"

    script = ["set terminal svg size 1100,480 font 'sans,12' background 'white'", f"set output '{path}'",
              "set multiplot layout 1,2", "set grid", "set logscale x", "set key left top"]
    wanted = ("walk", "create", "destroy", "meter_enable", "meter_profile_update", "stats_read")
    for op in wanted if control else ():
        points = [(s[1], control.figures[n].median) for n, s in control.states.items()
                  if s[0] == op and s[1] and s[2:] == (1, 1, "in_order")]
        if points:
            plots.append(f"{block(points)} with linespoints title '{op}' noenhanced")
    first = list(plots)
    plots = []
    points = [(int(n.split("/")[2]), row["ns"]) for n, row in packets.items()
              if re.fullmatch(r"vask1/rx/\d+/green", n)]
    if points:
        plots.append(f"{block(points)} with linespoints title 'net\\_vask1, receive, all green'")
        for name in ("null/plain", "null/rte_meter", "vask1/no_rule"):
            if name in packets:
                level = [(x, packets[name]["ns"]) for x, _ in points]
                plots.append(f"{block(level)} with lines title '{name}' noenhanced")
    script += blocks
    if first:
        script += ["set title 'control path: the module alone'", "set xlabel 'meters'", "set ylabel 'ns an operation'",
                   "set logscale y", "plot " + ", ".join(first), "unset logscale y"]
    if plots:
        script += ["set title 'packet path: one core, 64 bytes'", "set xlabel 'meters and rules'",
                   "set ylabel 'ns a packet'", "set yrange [0:*]", "plot " + ", ".join(plots)]
    script.append("unset multiplot")
    subprocess.run(["gnuplot"], input="\n".join(script), text=True, check=True)
