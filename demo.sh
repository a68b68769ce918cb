#!/usr/bin/env bash
# Shows the agent at work: captured subscribers' frames go through it in the reference host.
set -euo pipefail
cd "$(dirname "$0")"
if [ $# -gt 0 ]; then
  echo "usage: ./demo.sh   (no arguments; writes build/demo/with-line-identity.pcap)" >&2
  exit 2
fi

scripts/packages.sh build
echo "building ..."
cmake --preset release -DLINE_ID_TESTS=OFF -B build/demo >/dev/null
cmake --build build/demo >build/demo/build.log 2>&1 || { tail -n 30 build/demo/build.log; exit 1; }

out=build/demo/with-line-identity.pcap
echo
echo "demo/subscribers.pcap through the agent, lines as in demo/lines.toml:"
echo
build/demo/lineid-host replay demo/subscribers.pcap -o "$out" --lines demo/lines.toml --verbose

if command -v tshark >/dev/null; then
  echo
  echo "what tshark finds in $out:"
  echo
  tshark -r "$out" -n -o ip.check_checksum:TRUE -T fields -E header=y -E 'separator=/t' \
    -e frame.number -e _ws.col.Protocol -e _ws.col.Info 2>/dev/null | cut -c1-110 | column -t -s "$(printf '\t')"
  echo
  from_hex() { printf '%b' "$(sed -E 's/:?([0-9a-fA-F]{2})/\\x\1/g' <<<"$1")"; }
  # Fields that tshark knows as octets come as hexadecimal digits, those of PPPoE as text.
  tshark -r "$out" -n -T fields -E 'separator=|' -e frame.number \
    -e dhcp.option.agent_information_option.agent_circuit_id -e dhcp.option.agent_information_option.agent_remote_id \
    -e dhcpv6.interface_id -e dhcpv6.remoteid_enterprise_id \
    -e pppoed.tags.circuit_id -e pppoed.tags.remote_id \
    -Y 'dhcp.option.agent_information_option.suboption or pppoed.tags.circuit_id or dhcpv6.interface_id' 2>/dev/null |
    while IFS='|' read -r frame circuit4 remote4 circuit6 remote6 circuit remote; do
      printf 'frame %2d  Circuit-ID "%s"  Remote-ID "%s"\n' "$frame" \
        "$(from_hex "$circuit4$circuit6")$circuit" "$(from_hex "$remote4$remote6")$remote"
    done
else
  echo
  echo "(install tshark to see its decoding of $out here)"
fi
