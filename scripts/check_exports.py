#!/usr/bin/env python3
"""Checks that the shared library exports exactly what the public header declares: check_exports.py LIBRARY"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def main():
    header = re.sub(r"/\*.*?\*/", "", (ROOT / "include/line_id.h").read_text(), flags=re.S)
    declared = set(re.findall(r"LINE_ID_API\s+[\w\s\*]+?\b(\w+)\s*\(", header))
    table = subprocess.run(["nm", "-D", "--defined-only", sys.argv[1]], capture_output=True, text=True, check=True)
    exported = {line.split()[-1].split("@")[0] for line in table.stdout.splitlines()}
    sanitizer = {name for name in exported if name.startswith(("__asan", "__tsan", "__odr_asan", "__ubsan"))}
    exported -= sanitizer
    for name in sorted(declared - exported):
        print(f"declared, not exported: {name}")
    for name in sorted(exported - declared):
        print(f"exported, not declared: {name}")
    print(f"exports: {len(declared)} declared, {len(exported)} exported")
    return 0 if declared == exported else 1


sys.exit(main())
