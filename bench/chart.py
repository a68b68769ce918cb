#!/usr/bin/python3
"""Draws each target's figure as a part of its limit, with the interval of its runs.  usage: chart.py FIGURES.json STEM

Writes STEM.png and STEM.svg."""

import json
import sys

import matplotlib

matplotlib.use("Agg")
from matplotlib import pyplot


def part_of_limit(row, value):
    """At most 1 when the target is met, whichever way it points."""
    if row["limit"] == 0:
        return float(value > 0)
    return row["limit"] / value if row["at_least"] else value / row["limit"]


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as file:
        rows = json.load(file).get("targets", [])
    if not rows:
        sys.exit("no targets in the figures")
    figure, axes = pyplot.subplots(figsize=(9, 0.32 * len(rows) + 1.2))
    for at, row in enumerate(rows):
        middle = part_of_limit(row, row["median"])
        ends = sorted(part_of_limit(row, row[end]) for end in ("lowest", "highest"))
        axes.barh(at, max(middle, 0.01), color="#3a7d44" if row["met"] else "#b5483a",
                  xerr=[[max(middle - ends[0], 0)], [max(ends[1] - middle, 0)]], error_kw={"linewidth": 0.8})
        axes.text(max(ends[1], 0.01), at, f"  {row['median']:.3g}{row['unit']}", va="center", fontsize=7)
    axes.axvline(1, color="black", linewidth=1)
    axes.set_yticks(range(len(rows)), [f"{row['group']}: {row['name']}" for row in rows], fontsize=7)
    axes.set_xlabel("part of the limit (left of the line: met)")
    axes.set_xlim(left=0)
    axes.set_ylim(-0.6, len(rows) - 0.4)
    axes.invert_yaxis()
    figure.tight_layout()
    for kind in ("png", "svg"):
        figure.savefig(f"{sys.argv[2]}.{kind}", dpi=150)


if __name__ == "__main__":
    main()
