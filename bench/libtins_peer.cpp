// The same insertions with libtins.
#include "bench/libtins_peer.h"

#include <algorithm>
#include <cstring>
#include <tins/dhcp.h>
#include <tins/dhcpv6.h>
#include <tins/ethernetII.h>
#include <tins/ip.h>
#include <tins/ipv6.h>
#include <tins/pppoe.h>
#include <tins/rawpdu.h>
#include <tins/udp.h>

namespace {

using bytes = std::vector<uint8_t>;

void add_sub_option(bytes& to, uint8_t type, std::string_view text) {
  to.push_back(type);
  to.push_back(static_cast<uint8_t>(text.size()));
  to.insert(to.end(), text.begin(), text.end());
}

uint32_t serialise(Tins::PDU& frame, uint8_t* out) {
  const bytes made = frame.serialize();
  std::memcpy(out, made.data(), made.size());
  return static_cast<uint32_t>(made.size());
}

// The UDP payload as the library leaves it, which does not know the ports.
const bytes& payload_of(Tins::UDP& udp) { return udp.rfind_pdu<Tins::RawPDU>().payload(); }

} // namespace

uint32_t tins_dhcp4(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts) {
  Tins::EthernetII eth(frame, len);
  auto& udp = eth.rfind_pdu<Tins::UDP>();
  const bytes& payload = payload_of(udp);
  Tins::DHCP dhcp(payload.data(), static_cast<uint32_t>(payload.size()));
  bytes value;
  add_sub_option(value, 1, texts.circuit_id);
  add_sub_option(value, 2, texts.remote_id);
  if (dhcp.search_option(static_cast<Tins::DHCP::OptionTypes>(82)) != nullptr) return 0;
  dhcp.remove_option(Tins::DHCP::END);
  dhcp.add_option({82, value.begin(), value.end()});
  dhcp.end();
  udp.inner_pdu(dhcp);
  return serialise(eth, out);
}

uint32_t tins_pppoe(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts) {
  Tins::EthernetII eth(frame, len);
  auto& pppoe = eth.rfind_pdu<Tins::PPPoE>();
  Tins::PPPoE::vendor_spec_type tag(3561);
  add_sub_option(tag.data, 1, texts.circuit_id);
  add_sub_option(tag.data, 2, texts.remote_id);
  if (pppoe.search_tag(Tins::PPPoE::VENDOR_SPECIFIC) != nullptr) return 0;
  pppoe.vendor_specific(tag);
  return serialise(eth, out);
}

uint32_t tins_dhcp6(const uint8_t* frame, uint32_t len, uint8_t* out, const bare_texts& texts) {
  Tins::EthernetII eth(frame, len);
  auto& ip = eth.rfind_pdu<Tins::IPv6>();
  auto& udp = eth.rfind_pdu<Tins::UDP>();
  const bytes& payload = payload_of(udp);
  const Tins::DHCPv6 received(payload.data(), static_cast<uint32_t>(payload.size())); // the checks
  Tins::DHCPv6 relay;
  relay.msg_type(Tins::DHCPv6::RELAY_FORWARD);
  relay.hop_count(0);
  relay.peer_address(ip.src_addr());
  relay.add_option({9, payload.begin(), payload.end()});
  relay.add_option({18, texts.circuit_id.begin(), texts.circuit_id.end()});
  bytes remote = {0, 0, 0x0E, 0xDF};
  remote.insert(remote.end(), texts.remote_id.begin(), texts.remote_id.end());
  relay.add_option({37, remote.begin(), remote.end()});
  udp.sport(547);
  udp.inner_pdu(relay);
  return serialise(eth, out);
}
