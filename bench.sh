#!/usr/bin/env bash
# Measures the agent side by side with hand-written code and with other libraries, and says which targets it meets.
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  cat <<TXT
usage: ./bench.sh [--json] [PART...]
  PART    memory, wake, agents, growth, text, path, bindings, queues; all of them unless named
  --json  the figures as JSON instead of tables
Prints the instructions of a frame and each target with its median and the interval of its runs; draws
build/bench/bench.png and bench.svg. Without a PART it also writes build/bench/sweeps.txt: times over ranges. Absolute
times move with the machine, ratios much less: everything that is compared runs interleaved in one process.
bench/relay.sh measures the live host beside relays.
TXT
}

json=no
parts=()
for argument in "$@"; do
  case "$argument" in
    --json) json=yes ;;
    -h | --help) usage; exit 0 ;;
    -*) usage >&2; exit 2 ;;
    *) parts+=("$argument") ;;
  esac
done

scripts/packages.sh bench >&2
mkdir -p build/bench
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
cmake --preset release >/dev/null
cmake --build build/release --target bench_targets bench_instructions bench_untraced bench_sweeps >&2

build/release/bench/bench_targets "${parts[@]}" >build/bench/bench.json
python3 bench/instruction_targets.py build/release/bench/bench_instructions build/release/bench/bench_untraced build/bench/bench.json
if [ ${#parts[@]} -eq 0 ]; then
  build/release/bench/bench_sweeps --benchmark_out=build/bench/sweeps.json --benchmark_out_format=json \
    >build/bench/sweeps.txt 2>&1
fi
/usr/bin/python3 bench/chart.py build/bench/bench.json build/bench/bench >&2
if [ "$json" = yes ]; then
  cat build/bench/bench.json
else
  python3 bench/table.py build/bench/bench.json
  echo
  python3 bench/check_instructions.py build/release/bench/bench_instructions
  echo
  echo "chart: build/bench/bench.png and build/bench/bench.svg"
  [ ${#parts[@]} -ne 0 ] || echo "times over ranges, without limits: build/bench/sweeps.txt and build/bench/sweeps.json"
fi
