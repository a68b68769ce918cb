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
ctest --test-dir "$build" -L 'quick|host' --output-on-failure | tail -n 12
for corpus in build/fuzz/corpus/*; do
  program=$build/fuzz/fuzz_$(basename "$corpus")
  [ -x "$program" ] || continue
  inputs=$("$program" "$corpus" 2>&1 >/dev/null | tail -n 1)
  echo "corpus of $(basename "$corpus"): $inputs"
done

filters=()
for folder in "${folders[@]}"; do filters+=(--filter "$folder/"); done
gcovr -r . "${filters[@]}" --exclude-throw-branches --json "$build/coverage.json" "$build" 2>/dev/null
for folder in "${folders[@]}"; do
  printf '\n== %s\n' "$folder"
  gcovr -r . -a "$build/coverage.json" --filter "$folder/" --txt | sed -n '/^File/,$p'
done
printf '\n== together\n'
gcovr -r . -a "$build/coverage.json" --fail-under-line "$wanted" --print-summary --json-summary /dev/null | grep '^lines'
