// How DHCPv6 lies in a frame: where its headers are, and the codes of its messages and options (RFC 8415).
#pragma once

#include "packet/check.h"
#include "packet/frame.h"

enum dhcp6_message_type : uint8_t { // RFC 8415, section 7.3
  DHCP6_ADVERTISE = 2,
  DHCP6_REPLY = 7,
  DHCP6_RECONFIGURE = 10,
  DHCP6_RELAY_FORW = 12,
  DHCP6_RELAY_REPL = 13,
};

constexpr uint16_t DHCP6_OPT_RELAY_MSG = 9;     // RFC 8415, section 21.10
constexpr uint16_t DHCP6_OPT_INTERFACE_ID = 18; // RFC 8415, section 21.18
constexpr uint16_t DHCP6_OPT_REMOTE_ID = 37;    // RFC 4649
constexpr uint32_t DHCP6_OPTION_HEADER_LEN = 4; // code, length

constexpr uint16_t DHCP6_CLIENT_PORT = 546; // RFC 8415, section 7.2
constexpr uint16_t DHCP6_SERVER_PORT = 547;

constexpr uint32_t DHCP6_HEADER_LEN = 4;        // type, transaction id: RFC 8415, section 8
constexpr uint32_t DHCP6_RELAY_HEADER_LEN = 34; // type, hop-count, link-address, peer-address: section 9
constexpr uint32_t DHCP6_HOP_COUNT = 1;
constexpr uint32_t DHCP6_LINK_ADDRESS = 2;
constexpr uint32_t DHCP6_PEER_ADDRESS = 18;

constexpr uint32_t IP6_NEXT_HEADER = 6; // RFC 8200, section 3
constexpr uint8_t IP6_UDP = 17;
constexpr uint32_t IP6_SRC_ADDRESS = 8;
constexpr uint32_t IP6_DST_ADDRESS = 24;
constexpr uint32_t IP6_ADDRESS_LEN = 16;

// Offsets from the frame's start, and the DHCPv6 message up to the frame's end.
struct dhcp6_layout {
  uint32_t ip;
  uint32_t ext_headers_len;
  uint32_t udp;
  uint32_t dhcp;
  packet_reader message; // at least its first four octets are there
};

// Octets of the chain of extension headers at `start`, of which `size` are there; -9 null, -159 when the chain does not
// end in UDP.
int32_t line_id_dhcpv6_ext_header_proc(const uint8_t* start, uint32_t size);

// 0, or -159 when a header would end past the frame or the extension headers do not lead to UDP.
inline int32_t line_id_dhcp6_locate(const uint8_t* frame, uint32_t len, uint32_t vlan_tag_len, dhcp6_layout* layout) {
  *layout = {};
  layout->ip = ETH_HEADER_LEN + vlan_tag_len;
  const packet_reader ip = reader_sub(reader_over(frame, len), layout->ip);
  if (!ip.ok || ip.size < IP6_HEADER_LEN) return LINE_ID_ERR_DHCPV6;
  if (ip.data[IP6_NEXT_HEADER] != IP6_UDP) {
    // ODD: the walk starts at the IPv6 header itself, whose first octet is taken for a next-header value.
    const int32_t ext_headers_len = line_id_dhcpv6_ext_header_proc(ip.data, ip.size);
    if (ext_headers_len < 0) return LINE_ID_ERR_DHCPV6;
    layout->ext_headers_len = static_cast<uint32_t>(ext_headers_len);
  }
  layout->udp = layout->ip + IP6_HEADER_LEN + layout->ext_headers_len;
  layout->dhcp = layout->udp + UDP_HEADER_LEN;
  layout->message = reader_sub(reader_over(frame, len), layout->dhcp);
  return layout->message.ok && layout->message.size >= DHCP6_HEADER_LEN ? LINE_ID_OK : LINE_ID_ERR_DHCPV6;
}

// The UDP checksum of a finished frame, as the UDP header gives its length; 65535 for a null pointer.
uint16_t line_id_dhcpv6_udp_check_sum_proc(const uint8_t* ipv6_header, const uint8_t* udp_header);
