#!/usr/bin/env python3
"""Adds the targets that are counted in instructions to the figures: the rewrite alone, and what traces cost that are off.

usage: instruction_targets.py PROGRAM PROGRAM_WITHOUT_TRACES FIGURES.json"""

import json
import sys

from check_instructions import count

TRACES_LIMIT = 1.02
REWRITE_LIMITS = {"dhcp4": 650, "dhcp6": 870, "pppoe": 345}


def target(group, name, value, limit, unit):
    return {"group": group, "name": name, "median": value, "lowest": value, "highest": value, "limit": limit,
            "at_least": False, "unit": unit, "met": value <= limit}


def rewrite_targets(counts):
    """The whole rewrite without its letters and texts, but with the copying of the texts into the frame."""
    for protocol, limit in REWRITE_LIMITS.items():
        alone = counts[f"rewrite.{protocol}"] - counts[f"texts.{protocol}"] + counts["copies"]
        yield target("rewrite alone, Ir", protocol, alone, limit, "")


def trace_targets(traced, untraced):
    for case, instructions in sorted(traced.items()):
        yield target("traces off / none, Ir", f"{case}: {instructions}", instructions / untraced[case], TRACES_LIMIT, "x")


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    program, without_traces, path = sys.argv[1:]
    with open(path, encoding="utf-8") as file:
        figures = json.load(file)
    targets = figures.setdefault("targets", [])
    targets += rewrite_targets(count(program)[1])
    targets += trace_targets(count(program, "path")[1], count(without_traces, "path")[1])
    with open(path, "w", encoding="utf-8") as file:
        json.dump(figures, file, indent=1)


if __name__ == "__main__":
    main()
