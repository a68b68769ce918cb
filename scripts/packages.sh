#!/usr/bin/env bash
# Installs the Debian packages that a purpose needs, unless they are there: scripts/packages.sh build|test|targets|bench|soak
set -euo pipefail

build=(g++ cmake ninja-build libpcap-dev libcli11-dev libtomlplusplus-dev nlohmann-json3-dev)
test=("${build[@]}" libgtest-dev googletest ccache tshark python3 clang clang-format clang-tidy libclang-rt-14-dev
      libtins-dev libboost-dev libbenchmark-dev valgrind binutils iproute2 gcovr
      kea-dhcp4-server kea-dhcp6-server dnsmasq-base pppoe isc-dhcp-client dhcpcd-base busybox tcpdump ethtool
      iputils-ping nftables pkg-config)
targets=("${test[@]}" g++-12-multilib g++-arm-linux-gnueabihf qemu-user) # g++-multilib excludes cross compilers
soak=("${test[@]}" python3-matplotlib)
bench=("${build[@]}" libgtest-dev libbenchmark-dev libtins-dev libboost-dev valgrind python3 python3-matplotlib
       iproute2 isc-dhcp-relay pppoe)

case "${1:-}" in
  build) wanted=("${build[@]}") ;;
  test) wanted=("${test[@]}") ;;
  targets) wanted=("${targets[@]}") ;;
  bench) wanted=("${bench[@]}") ;;
  soak) wanted=("${soak[@]}") ;;
  *) echo "usage: scripts/packages.sh build|test|targets|bench|soak" >&2; exit 2 ;;
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

# The tests start servers themselves, in networks of their own: no daemon may start when its package is installed, nor
# at the next boot.
daemons=()
for package in "${missing[@]}"; do
  [[ $package == kea-*-server || $package == isc-dhcp-relay ]] && daemons+=("$package")
done
policy=/usr/sbin/policy-rc.d
if [ ${#daemons[@]} -ne 0 ] && [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
  "${as_root[@]}" chmod 755 "$policy"
  trap '"${as_root[@]}" rm -f "$policy"' EXIT
fi

"${as_root[@]}" apt-get -o DPkg::Lock::Timeout=180 update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get -o DPkg::Lock::Timeout=180 install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
if [ ${#daemons[@]} -ne 0 ] && command -v systemctl >/dev/null; then
  "${as_root[@]}" systemctl --quiet disable "${daemons[@]}"
fi
