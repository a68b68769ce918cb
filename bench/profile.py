#!/usr/bin/env python3
"""Draws where the instructions of one upstream DHCPv4 frame go, from callgrind.

usage: profile.py PROGRAM OUT.svg      PROGRAM is build/release/bench/bench_instructions"""

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
# What a function belongs to; the first pattern that is found in its name counts.
GROUPS = [
    ("checks of ingress", r"check_vlan_tag_num|check_dhcp_pkt|check_ip_header|check_udp_header|bench_desk"),
    ("callbacks, facts and letters", r"hal_|get_olt|get_onu|get_access|param_proc|param_write|strlen"),
    ("texts expanded", r"expand_|text_of_number|decimal_text|to_chars|mac_digits|memcmp|memchr|template_view|take_apart"),
    ("identifiers chosen", r"circuit|remote|cfg_of|_cfg\(|choose_"),
    ("options walked, option rebuilt", r"::upstream|walk_options|replace_option|build_anew|append|option82"),
    ("lengths and checksum", r"close_dhcp4|add_words|sum_words|check_sum|caculate"),
    ("octets copied", r"mem(cpy|move|set)"),
]
OTHER = "the rest of the agent"


def cost_by_function(program):
    """Own instructions of each function, for one frame. Names are not shortened across dumps."""
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
    costs, function, callee = {}, "", False
    for line in text.splitlines():
        if line.startswith("fn="):
            function = line[3:]
        elif line.startswith("calls="):
            callee = True  # the next line is the callee's cost, as the caller sees it
        elif re.match(r"^[+\-*\d]\S* \d+$", line):
            if not callee:
                costs[function] = costs.get(function, 0) + int(line.split()[1])
            callee = False
    return {name: cost / FRAMES for name, cost in costs.items()}


def group_of(function):
    return next((name for name, pattern in GROUPS if re.search(pattern, function)), OTHER)


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    groups = dict.fromkeys([name for name, _ in GROUPS] + [OTHER], 0)
    for function, cost in cost_by_function(sys.argv[1]).items():
        groups[group_of(function)] += cost
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
