#!/usr/bin/env bash
# The live host beside relays and a bare forwarder, under load in network namespaces: frames a second without loss, loss
# at twice that, processor time a frame. Arguments go to bench/relay.py, which lists them with --help.
set -euo pipefail
cd "$(dirname "$0")/.."
case " $* " in
  *" --help "* | *" -h "*) exec python3 bench/relay.py --help ;;
esac
[ "$(id -u)" -eq 0 ] || { echo "relay: network namespaces need root" >&2; exit 1; }
[ "$(nproc)" -ge 2 ] || { echo "relay: two processors are needed, one for the load" >&2; exit 1; }
scripts/packages.sh bench >&2
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
cmake --preset release >/dev/null
cmake --build build/release --target relay_load relay_forwarder lineid-host | tail -n 1 >&2
exec python3 bench/relay.py build/release "$@"
