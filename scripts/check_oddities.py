#!/usr/bin/env python3
"""Checks that docs/oddities.md has a row for each `// ODD:` mark, and that the tests it names exist."""
import collections
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ["platform", "core", "packet", "lineid", "config", "antispoof", "agents", "client", "host", "ctl"]


def main():
    marks = collections.Counter()
    for folder in FOLDERS:
        for path in (ROOT / folder).rglob("*.*"):
            marks[path.relative_to(ROOT).as_posix()] += path.read_text().count("// ODD:")
    tests = set()
    for path in (ROOT / "tests").rglob("*.cpp"):
        tests.update(f"{suite}.{case}" for suite, case in re.findall(r"TEST(?:_F)?\((\w+), (\w+)\)", path.read_text()))
    rows = collections.Counter()
    faults = []
    for where, test in re.findall(r"^\| `([^`]+)` \|.*\| ([^|]+) \|$", (ROOT / "docs/oddities.md").read_text(), re.M):
        rows[where] += 1
        named = re.match(r"`([^`]+)`", test)
        if named and named.group(1) not in tests:
            faults.append(f"{where}: no test {named.group(1)}")
    for where in sorted(set(marks) | set(rows)):
        if marks[where] != rows[where]:
            faults.append(f"{where}: {marks[where]} marks, {rows[where]} rows")
    for fault in faults:
        print(fault)
    print(f"oddities: {sum(rows.values())} rows, {len(faults)} faults")
    return 1 if faults else 0


sys.exit(main())
