#!/usr/bin/env python3
"""Counts the agents' instructions for a frame with callgrind and compares them with bench/instructions.txt.

usage: check_instructions.py PROGRAM [--record | --list]

The counts hold for one compiler, target and C library; elsewhere they are printed and nothing fails. Where they hold, a
frame that costs more than 10 % more than recorded fails. --record writes what was counted, --list only prints it."""

import os
import platform
import re
import subprocess
import sys
import tempfile

RECORD = os.path.join(os.path.dirname(os.path.abspath(__file__)), "instructions.txt")
TOLERANCE = 1.10


def count(program, *arguments):
    """The machine that the counts hold for, and the instructions of a frame for each case."""
    with tempfile.TemporaryDirectory() as folder:
        out = os.path.join(folder, "out")
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--collect-atstart=no", f"--callgrind-out-file={out}", program,
             *arguments],
            capture_output=True, text=True, timeout=300)
        if run.returncode != 0:
            sys.exit(f"{program} failed under callgrind:\n{run.stderr}")
        said = dict(line.split(" ", 1) for line in run.stdout.splitlines())
        counts = {}
        for name in os.listdir(folder):
            with open(os.path.join(folder, name), encoding="utf-8") as dump:
                text = dump.read()
            case = re.search(r"^desc: Trigger: Client Request: (\S+)$", text, re.M)
            total = re.search(r"^(?:totals|summary): (\d+)$", text, re.M)
            if case and total:
                counts[case.group(1)] = round(int(total.group(1)) / int(said["frames"]))
    libc = "-".join(platform.libc_ver())
    return f"g++ {said['compiler']}, {platform.machine()}, {libc}", counts


def read_record():
    machine, counts = "", {}
    with open(RECORD, encoding="utf-8") as file:
        for line in file:
            if line.startswith("for "):
                machine = line[4:].strip()
            elif line.strip() and not line.startswith("#"):
                case, number = line.split()
                counts[case] = int(number)
    return machine, counts


def write_record(machine, counts):
    with open(RECORD, "w", encoding="utf-8") as file:
        file.write("# Instructions of one frame; written by bench/check_instructions.py --record\n")
        file.write(f"for {machine}\n")
        for case in sorted(counts):
            file.write(f"{case} {counts[case]}\n")


def main():
    if len(sys.argv) not in (2, 3) or sys.argv[2:] not in ([], ["--record"], ["--list"]):
        sys.exit(__doc__)
    machine, counts = count(sys.argv[1])
    if sys.argv[2:] == ["--record"]:
        write_record(machine, counts)
    recorded_machine, recorded = read_record() if os.path.exists(RECORD) else ("", {})
    holds = machine == recorded_machine and sys.argv[2:] != ["--list"]
    failed = 0
    print(f"{machine}{'' if holds else ' (nothing recorded for it: no limits)'}")
    for case in sorted(counts):
        limit = recorded.get(case)
        over = holds and (limit is None or counts[case] > limit * TOLERANCE)
        failed += over
        print(f"{case:16} {counts[case]:6}  recorded {limit if limit is not None else '-':>6}{'  TOO MANY' if over else ''}")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
