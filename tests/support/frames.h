// Frames written as they read: eth().vlan(100).dhcp4(DISCOVER).option(53, {1}).end().
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

using octets = std::vector<uint8_t>;

// DHCPv4 message types (RFC 2132, 9.6), DHCPv6 message types (RFC 8415, 7.3), PPPoE codes (RFC 2516).
enum dhcp4_type : uint8_t { DISCOVER = 1, OFFER, REQUEST, DECLINE, ACK, NAK, RELEASE, INFORM };
enum dhcp6_type : uint8_t {
  SOLICIT = 1,
  ADVERTISE,
  REQUEST6,
  CONFIRM,
  RENEW,
  REBIND,
  REPLY,
  RELEASE6,
  DECLINE6,
  RECONFIGURE,
  INFORMATION_REQUEST,
  RELAY_FORW,
  RELAY_REPL,
};
enum pppoe_code : uint8_t { PADO = 0x07, PADI = 0x09, PADR = 0x19, PADS = 0x65, PADT = 0xA7 };

struct mac_octets {
  uint8_t at[6];
};
constexpr mac_octets SUBSCRIBER_MAC = {{0x00, 0x00, 0x5E, 0x00, 0x53, 0x01}};
constexpr mac_octets SERVER_MAC = {{0x00, 0x00, 0x5E, 0x00, 0x53, 0xFE}};
constexpr mac_octets BROADCAST_MAC = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};

// Octets of a text, of a sub-option or one-octet option, of a two-octet option or tag; and several joined.
octets text(std::string_view s);
octets tlv1(uint8_t code, const octets& value);
octets tlv2(uint16_t code, const octets& value);
octets join(std::initializer_list<octets> parts);

struct frame_builder {
  octets frame;
  uint32_t ip_at = 0; // offset of the IPv4 or IPv6 header, 0 when there is none
  uint32_t udp_at = 0;
  uint32_t pppoe_at = 0;
  bool ip6 = false;
  bool two_octet_options = false;
  int32_t claimed_len = -1; // a length field that is to lie

  frame_builder& vlan(uint16_t vid, uint16_t tpid = 0x8100);
  // IPv4 0.0.0.0 to broadcast, UDP ports and BOOTP op as the message type wants them, 236 octets of BOOTP, the cookie.
  frame_builder& dhcp4(dhcp4_type type);
  frame_builder& dhcp4(uint8_t bootp_op, uint16_t src_port, uint16_t dst_port);
  // IPv6 from a link-local address to ff02::1:2 (or back), UDP, message type and transaction id.
  frame_builder& dhcp6(dhcp6_type type);
  // IPv6 and UDP between ports 547, relay header (RFC 8415, 9).
  frame_builder& relay6(dhcp6_type type, uint8_t hops, const octets& peer);
  // An extension header behind the IPv6 header: next header value is put in place; `octets_long` is a multiple of 8.
  frame_builder& ip6_udp(const octets& ext_headers, uint8_t first_next_header, uint16_t src_port, uint16_t dst_port);
  frame_builder& pppoe(pppoe_code code, uint16_t session = 0);
  // A one-octet option (DHCPv4) or a two-octet option or tag (DHCPv6, PPPoE).
  frame_builder& option(uint16_t code, const octets& value);
  frame_builder& raw(const octets& more);
  // The PPPoE payload length, when it is to differ from the truth.
  frame_builder& payload_len(uint16_t len);
  // Lengths and checksums put in place. end() adds the DHCPv4 End option first; padded() adds Ethernet padding behind.
  octets end();
  octets done();
  octets padded(uint32_t padding);
};

frame_builder eth(const mac_octets& src = SUBSCRIBER_MAC, const mac_octets& dst = BROADCAST_MAC);

// A DHCPv6 message by itself, for the inside of relay messages.
octets dhcp6_message(dhcp6_type type, std::initializer_list<octets> options = {});
octets relay6_message(dhcp6_type type, uint8_t hops, const octets& peer, std::initializer_list<octets> options);
octets link_local(uint8_t last); // fe80::last

// Internet checksum (RFC 1071), written apart from the agent's own.
uint16_t test_checksum(const octets& data);
// 0 when the UDP checksum of an IPv6 frame is right.
bool udp6_checksum_good(const octets& frame, uint32_t ip_at, uint32_t udp_at);
