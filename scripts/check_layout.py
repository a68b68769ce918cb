#!/usr/bin/env python3
"""Checks that every name in packaging/layout.ld brought something of the library where it belongs: check_layout.py LIBRARY"""
import fnmatch
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def main():
    library = sys.argv[1]
    headers = re.findall(r"\] (\S+) +\w+ +([0-9a-f]+) [0-9a-f]+ ([0-9a-f]+)", output_of("readelf", "-SW", library))
    ranges = {name: range(int(at, 16), int(at, 16) + int(size, 16)) for name, at, size in headers}
    symbols = [(int(at, 16), name) for at, _, name in (line.rsplit(maxsplit=2) for line in
               output_of("nm", "--defined-only", library).splitlines())]
    layout = re.sub(r"/\*.*?\*/", "", (ROOT / "packaging/layout.ld").read_text(), flags=re.S)
    missing = checked = 0
    for section, names in re.findall(r"(\.\w+\.road)\b.*?\{(.*?)\}", layout, flags=re.S):
        for kind, pattern in re.findall(r"\*\((\.[a-z]+)\.(\S+)\)", names):
            if pattern.startswith("cst"):
                continue  # constants without a name
            # A function's table of jumps has no name of its own.
            within = ranges[".text.road" if kind == ".rodata" and pattern.startswith("_Z*") else section]
            checked += 1
            if not any(at in within and fnmatch.fnmatchcase(name, pattern) for at, name in symbols):
                print(f"{section}: nothing is called {pattern}")
                missing += 1
    print(f"layout: {checked} names, {missing} without effect")
    return 0 if checked and not missing else 1


sys.exit(main())
