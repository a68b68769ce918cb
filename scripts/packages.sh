#!/usr/bin/env bash
# Installs the Debian packages that a purpose needs, unless they are there: scripts/packages.sh build|test|soak
set -euo pipefail

build=(g++ cmake ninja-build libpcap-dev libcli11-dev libtomlplusplus-dev nlohmann-json3-dev)
test=("${build[@]}" libgtest-dev googletest ccache tshark python3 clang clang-format clang-tidy libclang-rt-14-dev
      valgrind binutils iproute2 gcovr)
soak=("${test[@]}" python3-matplotlib)

case "${1:-}" in
  build) wanted=("${build[@]}") ;;
  test) wanted=("${test[@]}") ;;
  soak) wanted=("${soak[@]}") ;;
  *) echo "usage: scripts/packages.sh build|test|soak" >&2; exit 2 ;;
esac

missing=()
for package in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "these packages are missing, install them as root: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "installing: ${missing[*]}"
"${as_root[@]}" apt-get -o DPkg::Lock::Timeout=180 update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get -o DPkg::Lock::Timeout=180 install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
