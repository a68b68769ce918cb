#!/usr/bin/env python3
"""Draws where the instructions of one upstream DHCPv4 frame go, from callgrind.

usage: profile.py PROGRAM OUT.svg      PROGRAM is bench_instructions, built with line numbers (-g1) and, because
valgrind knows no names outside of .text, with LINE_ID_LAYOUT off"""

import os
import re
import subprocess
import sys
import tempfile

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot

CASE = "insert.dhcp4"
FRAMES = 100
# What a source file belongs to; the first pattern that is found in its name counts. Files, because hardly a function
# is left of its own when the library has been optimised across its modules.
GROUPS = [
    ("checks of ingress", r"packet/check|packet/frame\.h"),
    ("callbacks, facts and letters", r"lineid/(params|provider)|bench/desk|strlen"),
    ("texts expanded", r"lineid/(standard_)?format|lineid/letter_text|memcmp"),
    ("identifiers chosen", r"lineid/"),
    ("octets copied", r"mem(move|cpy|set)"),
    ("lengths and checksum", r"packet/closing|check_sum"),
    ("options walked, option rebuilt", r"agents/"),
]
OTHER = "the rest of the agent"


def cost_by_file(program):
    """Instructions of each source file's lines, for one frame, wherever the compiler put them."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["valgrind", "--tool=callgrind", "--collect-atstart=no", "--compress-strings=no",
                        "--dump-instr=no", f"--callgrind-out-file={folder}/out", program],
                       check=True, capture_output=True, timeout=300)
        for name in os.listdir(folder):
            with open(f"{folder}/{name}", encoding="utf-8") as dump:
                text = dump.read()
            if f"Client Request: {CASE}\n" in text:
                return own_costs(text)
    sys.exit(f"no dump of {CASE}")


def own_costs(text):
    costs, file, callee = {}, "", False
    for line in text.splitlines():
        if line.startswith(("fl=", "fi=", "fe=")):
            if "/include/c++/" not in line:  # the standard library's headers count for the file that uses them
                file = line[3:]
        elif line.startswith("calls="):
            callee = True  # the next line is the callee's cost, as the caller sees it
        elif re.match(r"^[+\-*\d]\S* \d+$", line):
            if not callee:
                costs[file] = costs.get(file, 0) + int(line.split()[1])
            callee = False
    return {name: cost / FRAMES for name, cost in costs.items()}


def group_of(file):
    return next((name for name, pattern in GROUPS if re.search(pattern, file)), OTHER)


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    groups = dict.fromkeys([name for name, _ in GROUPS] + [OTHER], 0)
    for file, cost in cost_by_file(sys.argv[1]).items():
        groups[group_of(file)] += cost
    figure, axes = pyplot.subplots(figsize=(8, 3.6))
    names = list(groups)
    axes.barh(names, list(groups.values()), color="#3a6f9e")
    for at, name in enumerate(names):
        axes.text(groups[name], at, f"  {groups[name]:.0f}", va="center", fontsize=8)
    axes.set_xlim(0, 1.1 * max(groups.values()))
    axes.invert_yaxis()
    axes.set_xlabel(f"instructions of a frame, {sum(groups.values()):.0f} in all")
    figure.tight_layout()
    pyplot.rcParams["svg.hashsalt"] = "lineid"  # the same picture gives the same file
    figure.savefig(sys.argv[2], metadata={"Date": None})


if __name__ == "__main__":
    main()
