#!/usr/bin/env python3
"""Counts a frame's instructions with traces that are off and in a build without any, and adds the targets to the figures.

usage: traces.py PROGRAM PROGRAM_WITHOUT_TRACES FIGURES.json"""

import json
import sys

from check_instructions import count

LIMIT = 1.02


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    (_, traced), (_, untraced) = (count(program, "path") for program in sys.argv[1:3])
    with open(sys.argv[3], encoding="utf-8") as file:
        figures = json.load(file)
    for case, instructions in sorted(traced.items()):
        ratio = instructions / untraced[case]
        figures.setdefault("targets", []).append({
            "group": "traces off / none, Ir", "name": f"{case}: {instructions}", "median": ratio, "lowest": ratio,
            "highest": ratio, "limit": LIMIT, "at_least": False, "unit": "x", "met": ratio <= LIMIT})
    with open(sys.argv[3], "w", encoding="utf-8") as file:
        json.dump(figures, file, indent=1)


if __name__ == "__main__":
    main()
