// Frames, by protocol and direction.
#include "host/classify.h"

namespace {

constexpr size_t ETHER_TYPE = 12;
constexpr uint8_t MAX_TAGS = 4;
constexpr uint16_t ETHER_IPV4 = 0x0800;
constexpr uint16_t ETHER_IPV6 = 0x86DD;
constexpr uint16_t ETHER_PPPOE_DISCOVERY = 0x8863;
constexpr size_t IPV6_HEADER = 40;
constexpr size_t UDP_HEADER = 8;
constexpr uint8_t IP_PROTOCOL_UDP = 17;
constexpr int MAX_EXTENSION_HEADERS = 8;

constexpr uint16_t BOOTP_SERVER = 67;
constexpr uint16_t BOOTP_CLIENT = 68;
constexpr uint8_t BOOTP_REQUEST = 1;
constexpr size_t BOOTP_CHADDR = 28;
constexpr uint16_t DHCPV6_CLIENT = 546;
constexpr uint16_t DHCPV6_SERVER = 547;
constexpr uint8_t DHCPV6_RELAY_FORW = 12;
constexpr uint8_t DHCPV6_RELAY_REPL = 13;
constexpr size_t PPPOE_CODE = 1;
constexpr uint8_t PADI = 0x09;
constexpr uint8_t PADO = 0x07;
constexpr uint8_t PADR = 0x19;
constexpr uint8_t PADS = 0x65;

bool is_tag(uint16_t ether_type) { return ether_type == 0x8100 || ether_type == 0x88A8; }

// Takes the UDP header at `udp` over; true when it is addressed to one of the two ports.
bool take_udp(octet_view frame, size_t udp, uint16_t port_a, uint16_t port_b, frame_class& found) {
  if (frame.size() < udp + UDP_HEADER) return false;
  found.udp_source = u16_at(frame, udp);
  found.udp_destination = u16_at(frame, udp + 2);
  found.message = udp + UDP_HEADER;
  return found.udp_destination == port_a || found.udp_destination == port_b;
}

bool is_dhcp4(octet_view frame, size_t ip, frame_class& found) {
  const size_t header_len = static_cast<size_t>(u8_at(frame, ip) & 0x0F) * 4;
  const bool first_fragment = (u16_at(frame, ip + 6) & 0x1FFF) == 0;
  if (u8_at(frame, ip) >> 4 != 4 || header_len < 20 || !first_fragment) return false;
  if (u8_at(frame, ip + 9) != IP_PROTOCOL_UDP) return false;
  return take_udp(frame, ip + header_len, BOOTP_SERVER, BOOTP_CLIENT, found);
}

bool is_dhcp6(octet_view frame, size_t ip, frame_class& found) {
  uint8_t next = u8_at(frame, ip + 6);
  size_t at = ip + IPV6_HEADER;
  // Hop-by-hop, routing and destination options may stand before UDP.
  for (int i = 0; i < MAX_EXTENSION_HEADERS && (next == 0 || next == 43 || next == 60); ++i) {
    next = u8_at(frame, at);
    at += (static_cast<size_t>(u8_at(frame, at + 1)) + 1) * 8;
  }
  if (u8_at(frame, ip) >> 4 != 6 || next != IP_PROTOCOL_UDP) return false;
  return take_udp(frame, at, DHCPV6_CLIENT, DHCPV6_SERVER, found);
}

uint64_t mac_key(const mac_address& mac) {
  uint64_t key = 0;
  for (const uint8_t octet : mac) key = key << 8 | octet;
  return key;
}

uint8_t dhcp4_direction(octet_view frame, const frame_class& found) {
  if (found.udp_source == BOOTP_CLIENT && found.udp_destination == BOOTP_SERVER) return LINE_ID_UPSTREAM;
  if (found.udp_source == BOOTP_SERVER && found.udp_destination == BOOTP_CLIENT) return LINE_ID_DOWNSTREAM;
  return u8_at(frame, found.message) == BOOTP_REQUEST ? LINE_ID_UPSTREAM : LINE_ID_DOWNSTREAM;
}

std::optional<uint8_t> dhcp6_direction(octet_view frame, const frame_class& found) {
  if (found.udp_source == DHCPV6_CLIENT && found.udp_destination == DHCPV6_SERVER) return LINE_ID_UPSTREAM;
  if (found.udp_destination == DHCPV6_CLIENT) return LINE_ID_DOWNSTREAM;
  const uint8_t type = u8_at(frame, found.message);
  if (type == DHCPV6_RELAY_FORW) return LINE_ID_UPSTREAM;
  if (type == DHCPV6_RELAY_REPL) return LINE_ID_DOWNSTREAM;
  return std::nullopt;
}

std::optional<uint8_t> pppoe_direction(octet_view frame, const frame_class& found) {
  switch (u8_at(frame, found.message + PPPOE_CODE)) {
  case PADI:
  case PADR: return LINE_ID_UPSTREAM;
  case PADO:
  case PADS: return LINE_ID_DOWNSTREAM;
  default: return std::nullopt; // PADT goes both ways
  }
}

std::optional<uint8_t> message_direction(octet_view frame, const frame_class& found) {
  switch (found.protocol) {
  case LINE_ID_DHCPV4: return dhcp4_direction(frame, found);
  case LINE_ID_DHCPV6: return dhcp6_direction(frame, found);
  default: return pppoe_direction(frame, found);
  }
}

} // namespace

frame_class classify_frame(octet_view frame) {
  frame_class found = {};
  found.outer = found.inner = NO_VLAN;
  found.destination = mac_at(frame, 0);
  found.source = mac_at(frame, 6);
  size_t at = ETHER_TYPE;
  for (; is_tag(u16_at(frame, at)); at += TAG_LEN) {
    if (found.tags == MAX_TAGS) return found;
    const uint16_t vlan = u16_at(frame, at + 2) & 0x0FFF;
    if (found.tags == 0) found.outer = vlan;
    if (found.tags == 1) found.inner = vlan;
    ++found.tags;
  }
  const uint16_t ether_type = u16_at(frame, at);
  found.payload = at + 2;
  if (ether_type == ETHER_PPPOE_DISCOVERY) {
    found.protocol = LINE_ID_PPPOE;
    found.message = found.payload;
  } else if (ether_type == ETHER_IPV4 && is_dhcp4(frame, found.payload, found)) {
    found.protocol = LINE_ID_DHCPV4;
  } else if (ether_type == ETHER_IPV6 && is_dhcp6(frame, found.payload, found)) {
    found.protocol = LINE_ID_DHCPV6;
  }
  return found;
}

mac_address subscriber_mac(octet_view frame, const frame_class& found, uint8_t direct) {
  if (direct == LINE_ID_UPSTREAM) return found.source;
  if (is_station(found.destination) || found.protocol != LINE_ID_DHCPV4) return found.destination;
  return mac_at(frame, found.message + BOOTP_CHADDR);
}

uint8_t direction_finder::find(octet_view frame, const frame_class& found) {
  const std::optional<uint8_t> direct = message_direction(frame, found);
  if (!direct) return learnt(found).value_or(LINE_ID_UPSTREAM);
  if (*direct == LINE_ID_UPSTREAM) {
    learn(found.source, found.destination);
  } else {
    learn(found.destination, found.source);
  }
  return *direct;
}

void direction_finder::learn(const mac_address& subscriber, const mac_address& server) {
  if (is_station(subscriber)) side_.insert_or_assign(mac_key(subscriber), uint8_t{LINE_ID_UPSTREAM});
  if (is_station(server)) side_.insert_or_assign(mac_key(server), uint8_t{LINE_ID_DOWNSTREAM});
}

std::optional<uint8_t> direction_finder::learnt(const frame_class& found) const {
  if (const auto source = side_.find(mac_key(found.source)); source != side_.end()) return source->second;
  const auto destination = side_.find(mac_key(found.destination));
  if (destination == side_.end()) return std::nullopt;
  return destination->second == LINE_ID_UPSTREAM ? uint8_t{LINE_ID_DOWNSTREAM} : uint8_t{LINE_ID_UPSTREAM};
}
