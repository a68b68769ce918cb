#!/usr/bin/env python3
"""Prints what bench_targets measured: the targets, then the times behind them.  usage: table.py FIGURES.json"""

import json
import sys


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as file:
        figures = json.load(file)
    print(f"{'target':<24} {'of':<24} {'median':>9} {'lowest - highest':>19}  limit")
    for row in figures.get("targets", []):
        limit = f"{'>=' if row['at_least'] else '<='} {row['limit']:g}"
        print(f"{row['group']:<24} {row['name']:<24} {row['median']:8.3g}{row['unit']} {row['lowest']:8.3g} - "
              f"{row['highest']:<8.3g}  {limit:<8} {'met' if row['met'] else 'NOT MET'}")
    print(f"\n{'time':<24} {'of':<24} {'ns':>9} {'lowest - highest':>19}")
    for row in figures.get("times", []):
        print(f"{row['group']:<24} {row['name']:<24} {row['nanoseconds']:9.4g} {row['lowest']:8.4g} - {row['highest']:<8.4g}")


if __name__ == "__main__":
    main()
