#!/usr/bin/python3
"""Draws what bench_targets measured.  usage: chart.py FIGURES.json STEM

Left each target's figure as a part of its limit, right the times of ours and of what they are held against, both with
the interval of their runs. Writes STEM.png and STEM.svg."""

import json
import sys

import matplotlib

matplotlib.use("Agg")
matplotlib.rcParams["svg.fonttype"] = "none"
from matplotlib import pyplot

MET, MISSED, PEER = "#3a7d44", "#b5483a", "#8a8f98"
OURS = ("agent", "path", "get", "set", "frame", "template", "find", "forget", "ours", "letters", "facts", "1 ", "2 ",
        "3 ", "4 ")


def part_of_limit(row, value):
    """At most 1 when the target is met, whichever way it points."""
    if row["limit"] == 0:
        return float(value > 0)
    return row["limit"] / value if row["at_least"] else value / row["limit"]


def draw_bar(axes, at, middle, ends, color, text):
    axes.barh(at, middle, color=color, xerr=[[max(middle - ends[0], 0)], [max(ends[1] - middle, 0)]],
              error_kw={"linewidth": 0.8})
    axes.annotate(text, (max(ends[1], middle), at), (4, 0), textcoords="offset points", va="center", fontsize=7,
                  bbox={"facecolor": "white", "edgecolor": "none", "pad": 0.4, "alpha": 0.8})


def name_rows(axes, rows):
    axes.set_yticks(range(len(rows)), [f"{row['group']}: {row['name']}" for row in rows], fontsize=7)
    axes.set_ylim(-0.6, len(rows) - 0.4)
    axes.invert_yaxis()


def draw_targets(axes, rows):
    for at, row in enumerate(rows):
        ends = sorted(part_of_limit(row, row[end]) for end in ("lowest", "highest"))
        draw_bar(axes, at, max(part_of_limit(row, row["median"]), 0.01), ends, MET if row["met"] else MISSED,
                 f"{row['median']:.3g}{row['unit']}")
    axes.axvline(1, color="black", linewidth=1)
    axes.set_xlabel("part of the limit (left of the line: met)")
    axes.set_xlim(0, 1.12 * axes.get_xlim()[1])
    name_rows(axes, rows)


def draw_times(axes, rows):
    axes.set_xscale("log")
    for at, row in enumerate(rows):
        is_ours = row["name"].startswith(OURS) and "pipe" not in row["name"]
        text = f"{row['nanoseconds']:,.{0 if row['nanoseconds'] > 100 else 1}f}"
        draw_bar(axes, at, row["nanoseconds"], (row["lowest"], row["highest"]), MET if is_ours else PEER, text)
    axes.set_xlabel("ns (green: ours)")
    axes.set_xlim(1, 5 * axes.get_xlim()[1])
    name_rows(axes, rows)


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as file:
        figures = json.load(file)
    targets, times = figures.get("targets", []), figures.get("times", [])
    if not targets:
        sys.exit("no targets in the figures")
    figure, (left, right) = pyplot.subplots(1, 2, figsize=(15, 0.2 * max(len(targets), len(times)) + 1.2))
    draw_targets(left, targets)
    draw_times(right, times)
    figure.tight_layout()
    for kind in ("png", "svg"):
        figure.savefig(f"{sys.argv[2]}.{kind}", dpi=150)


if __name__ == "__main__":
    main()
