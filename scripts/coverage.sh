#!/usr/bin/env bash
# Line coverage of the library's frame side by the tests, the fuzz seeds and regressions, and what ./fuzz.sh has learnt
# on this machine. Prints each folder with its uncovered lines; non-zero below 95 % in all.
set -euo pipefail
cd "$(dirname "$0")/.."

folders=(agents lineid packet config)
wanted=95
build=$PWD/build/coverage

scripts/packages.sh test
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
cmake --preset coverage >/dev/null
cmake --build "$build" | tail -n 1
find "$build" -name '*.gcda' -delete
# A killed process leaves no counts.
failed=0
ctest --test-dir "$build" -L 'quick|host' -E 'process.kills|check[.]' --output-on-failure | tail -n 12 || failed=1
for corpus in build/fuzz/corpus/*; do
  program=$build/fuzz/fuzz_$(basename "$corpus")
  [ -x "$program" ] || continue
  inputs=$("$program" "$corpus" 2>&1 >/dev/null | tail -n 1)
  echo "corpus of $(basename "$corpus"): $inputs"
done

filters=()
for folder in "${folders[@]}"; do filters+=(--filter "$folder/"); done
# Threads that count at once leave a few counts below 0, which gcovr would stop at.
gcovr -r . "${filters[@]}" --gcov-ignore-parse-errors --json "$build/coverage.json" "$build" 2>"$build/gcovr.log"
python3 - "$build/coverage.json" "$wanted" "${folders[@]}" <<'PY' || failed=1
import json, sys
from pathlib import Path

report, wanted, *folders = sys.argv[1:]
files = {file["file"]: file["lines"] for file in json.load(open(report))["files"]}
summary, covered_in_all, lines_in_all = [], 0, 0
for folder in folders:
    covered, total = 0, 0
    for name, lines in sorted(files.items()):
        if not name.startswith(folder + "/"):
            continue
        text = Path(name).read_text().splitlines()
        counts = {}  # a line of a template or a macro has several
        for line in lines:
            if not line.get("gcovr/noncode"):
                counts[line["line_number"]] = max(counts.get(line["line_number"], 0), line["count"])
        for number in sorted(number for number, count in counts.items() if count == 0):
            print(f"{name}:{number}: {text[number - 1].strip()}")
        covered += sum(count > 0 for count in counts.values())
        total += len(counts)
    summary.append(f"{folder:10} {covered:6} of {total:6} lines {100 * covered / max(total, 1):6.1f} %")
    covered_in_all, lines_in_all = covered_in_all + covered, lines_in_all + total
share = 100 * covered_in_all / max(lines_in_all, 1)
print("", *summary, f"{'together':10} {covered_in_all:6} of {lines_in_all:6} lines {share:6.1f} %", sep="\n")
sys.exit(share < float(wanted))
PY
exit "$failed"
