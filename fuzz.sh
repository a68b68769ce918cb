#!/usr/bin/env bash
# Builds the fuzz targets and runs all of them, two at a time. Ends with a table and, after a finding, non-zero.
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  cat <<TXT
usage: ./fuzz.sh SECONDS [TARGET...]
  SECONDS  how long in all, shared evenly by the targets; at least one for each
  TARGET   some of: $targets
What was found is in build/fuzz/findings, what was learnt in build/fuzz/corpus; the next run goes on from there.
build/fuzz/executions has one line for each target of each run.
TXT
}

targets="dhcp4 dhcp6 pppoe template circuit_id commands line_map capture"
case "${1:-}" in
  -h | --help) usage; exit 0 ;;
  "" | *[!0-9]*) usage >&2; exit 2 ;;
esac
seconds=$1
shift
for target in "$@"; do
  [[ " $targets " == *" $target "* ]] || { usage >&2; exit 2; }
done
[ $# -eq 0 ] || targets=$*
lanes=2
count=$(wc -w <<<"$targets")
[ "$count" -ge "$lanes" ] || lanes=$count
each=$((seconds * lanes / count))
[ "$each" -ge 1 ] || each=1

scripts/packages.sh test
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
cmake --preset fuzz >/dev/null
cmake --build build/fuzz --target fuzz_all | tail -n 1
work=$PWD/build/fuzz
mkdir -p "$work/findings" "$work/log"
"$work/fuzz/fuzz_seeds" "$work/seeds"
mkdir -p "$work/seeds/line_map" && cp demo/*.toml "$work/seeds/line_map"

dictionary() { # TARGET
  case $1 in
    template | circuit_id) echo fuzz/text.dict ;;
    line_map) echo fuzz/line_map.dict ;;
    *) echo fuzz/frame.dict ;;
  esac
}

run_target() { # TARGET
  local target=$1
  local inputs=("$work/corpus/$target")
  mkdir -p "${inputs[0]}"
  for folder in "$work/seeds/$target" "fuzz/regressions/$target"; do
    [ ! -d "$folder" ] || inputs+=("$folder")
  done
  "$work/fuzz/fuzz_$target" "${inputs[@]}" -max_total_time="$each" -dict="$(dictionary "$target")" -entropic=0 \
    -max_len=2048 -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$work/findings/$target-" \
    >"$work/log/$target" 2>&1 && echo 0 >"$work/log/$target.status" || echo $? >"$work/log/$target.status"
}

export ASAN_OPTIONS=quarantine_size_mb=8:malloc_context_size=0 UBSAN_OPTIONS=print_stacktrace=1
trap 'kill $(jobs -p) 2>/dev/null; exit 130' INT TERM
for target in $targets; do
  rm -f "$work/log/$target.status"
  run_target "$target" &
  while [ "$(jobs -rp | wc -l)" -ge "$lanes" ]; do wait -n || true; done
done
wait

total=0
findings=0
printf '\n%-12s %12s %10s %8s %8s %s\n' target executions exec/s edges inputs findings
for target in $targets; do
  log=$work/log/$target
  stat() { sed -n "s/^stat::$1: *//p" "$log"; }
  last=$(grep -E '^#[0-9]+.* cov: ' "$log" | tail -n 1 || true)
  executions=$(stat number_of_executed_units)
  [ -n "$executions" ] || executions=$(sed -E 's/^#([0-9]+).*/\1/' <<<"${last:-0}")
  found=-
  if [ "$(cat "$log.status")" -ne 0 ]; then
    found=$(grep -m 1 -oE 'FINDING: .*|runtime error: .*|ERROR: .*' "$log" || echo "see $log")
    findings=$((findings + 1))
  fi
  printf '%-12s %12s %10s %8s %8s %s\n' "$target" "$executions" "$(stat average_exec_per_sec)" \
    "$(sed -E 's/.* cov: ([0-9]+).*/\1/' <<<"$last")" "$(sed -E 's/.* corp: ([0-9]+).*/\1/' <<<"$last")" "$found"
  total=$((total + executions))
  echo "$target $executions" >>"$work/executions"
done
printf '%-12s %12s\n' total "$total"
printf '%-12s %12s\n' 'all runs' "$(awk '{ all += $2 } END { print all }' "$work/executions")"
if [ "$findings" -gt 0 ]; then
  echo "$findings targets stopped at a finding: build/fuzz/findings"
  exit 1
fi
