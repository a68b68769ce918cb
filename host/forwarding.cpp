// Learning and finding.
#include "host/forwarding.h"

#include "include/line_id.h"

namespace {

constexpr size_t STATIONS_OF_PORT = 1024;
constexpr uint32_t AGE_LIMIT_S = 300; // as bridges have it

constexpr size_t BOOTP_CHADDR = 28;
constexpr uint16_t BOOTP_CLIENT = 68;
constexpr uint16_t DHCPV6_CLIENT = 546;
constexpr size_t IPV6_SOURCE = 8; // in the IPv6 header
constexpr size_t IPV6_LEN = 16;
constexpr size_t RELAY_PEER = 18; // in a Relay-Reply
constexpr uint8_t RELAY_REPL = 13;

uint64_t number_at(octet_view data, size_t at, size_t len) {
  uint64_t number = 0;
  for (size_t i = 0; i < len; ++i) number = number << 8 | u8_at(data, at + i);
  return number;
}

station_key mac_key(octet_view data, size_t at, const frame_class& found) {
  return {.high = uint64_t{found.outer} << 16 | found.inner, .low = number_at(data, at, sizeof(mac_address))};
}

station_key ipv6_key(octet_view data, size_t at) {
  return {.high = number_at(data, at, IPV6_LEN / 2), .low = number_at(data, at + IPV6_LEN / 2, IPV6_LEN / 2)};
}

} // namespace

size_t station_hash::operator()(const station_key& key) const {
  uint64_t mixed = (key.high ^ (key.low >> 29)) * 0x9E3779B97F4A7C15U + key.low;
  mixed = (mixed ^ (mixed >> 32)) * 0xD6E8FEB86659FD93U;
  return static_cast<size_t>(mixed ^ (mixed >> 32));
}

station_table::station_table(size_t ports, size_t room_of_port, uint32_t age_limit)
    : room_of_port_(room_of_port), age_limit_(age_limit), ports_(ports) {}

void station_table::learn(const station_key& key, port_number port, uint32_t now) {
  station_list& list = ports_[port];
  if (!list.empty() && list.front().key == key) {
    list.front().seen = now;
    return;
  }
  if (const auto known = by_key_.find(key); known != by_key_.end()) {
    const station_list::iterator found = known->second;
    list.splice(list.begin(), ports_[found->port], found); // perhaps from another port: it has moved
    found->port = port;
    found->seen = now;
  } else {
    list.push_front({key, port, now});
    by_key_.emplace(key, list.begin());
  }
  if (list.size() <= room_of_port_) return;
  by_key_.erase(list.back().key);
  list.pop_back();
}

port_number station_table::find(const station_key& key, uint32_t now) const {
  const auto known = by_key_.find(key);
  if (known == by_key_.end() || now - known->second->seen > age_limit_) return ALL_PORTS;
  return known->second->port;
}

forwarding::forwarding(size_t ports)
    : ports_(ports), stations_(ports, STATIONS_OF_PORT, AGE_LIMIT_S), clients_(ports, STATIONS_OF_PORT, AGE_LIMIT_S) {}

void forwarding::learn(octet_view frame, const frame_class& found, port_number port, uint32_t now) {
  if (ports_ == 1) return; // nothing to choose
  if (is_station(found.source)) stations_.learn(mac_key(frame, sizeof(mac_address), found), port, now);
  if (found.protocol == LINE_ID_DHCPV4) {
    const size_t hardware = found.message + BOOTP_CHADDR;
    if (mac_at(frame, hardware) != found.source) clients_.learn(mac_key(frame, hardware, found), port, now);
  }
  if (found.protocol == LINE_ID_DHCPV6) {
    clients_.learn(ipv6_key(frame, found.payload + IPV6_SOURCE), port, now);
  }
}

port_number forwarding::find(octet_view frame, const frame_class& found, uint32_t now) const {
  if (ports_ == 1) return 0;
  const bool to_station = is_station(found.destination);
  const bool to_dhcp4_client = found.protocol == LINE_ID_DHCPV4 && found.udp_destination == BOOTP_CLIENT;
  if (to_station || to_dhcp4_client) {
    const station_key key = mac_key(frame, to_station ? 0 : found.message + BOOTP_CHADDR, found);
    port_number port = stations_.find(key, now);
    if (port == ALL_PORTS && to_dhcp4_client) port = clients_.find(key, now);
    return port != ALL_PORTS || to_station ? port : NO_PORT;
  }
  if (found.protocol != LINE_ID_DHCPV6) return ALL_PORTS;
  const bool relay_reply = u8_at(frame, found.message) == RELAY_REPL;
  if (!relay_reply && found.udp_destination != DHCPV6_CLIENT) return ALL_PORTS;
  const port_number port = relay_reply ? clients_.find(ipv6_key(frame, found.message + RELAY_PEER), now) : ALL_PORTS;
  return port != ALL_PORTS ? port : NO_PORT;
}
