#!/usr/bin/env bash
# The long run: ./soak.sh MINUTES [--rate FRAMES_A_SECOND]. Prints the account; leaves soak.csv, soak.png and soak.svg in
# build/soak. Exit status 1 when a frame, a pool unit or memory is missing, or a client's call failed.
set -euo pipefail
cd "$(dirname "$0")"
case "${1:-}" in
  "" | -* | *[!0-9.]*) echo "usage: ./soak.sh MINUTES [--rate FRAMES_A_SECOND]" >&2; exit 2 ;;
esac
scripts/packages.sh soak
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
cmake --preset release >/dev/null
cmake --build build/release --target soak | tail -n 1
mkdir -p build/soak
export LINE_ID_IPC_PREFIX=soak.$$
trap 'rm -f /dev/shm/"$LINE_ID_IPC_PREFIX".*' EXIT
status=0
build/release/tests/soak run "$@" --csv build/soak/soak.csv || status=$?
/usr/bin/python3 tests/soak/plot.py build/soak/soak.csv build/soak/soak
echo "plot: build/soak/soak.png, build/soak/soak.svg"
exit $status
