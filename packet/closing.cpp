// The closing step of a rebuilt frame.
#include "packet/closing.h"
#include "core/records.h"
#include "packet/check.h"
#include "packet/frame.h"

#include <cstring>

namespace {

constexpr uint32_t IP4_TOTAL_LENGTH = 2;
constexpr uint32_t IP4_CHECKSUM = 10;
constexpr uint32_t IP6_PAYLOAD_LENGTH = 4;
constexpr uint32_t IP6_ADDRESSES = 8;
constexpr uint32_t IP6_ADDRESSES_LEN = 32;
constexpr uint32_t UDP_LENGTH = 4;
constexpr uint32_t UDP_CHECKSUM = 6;
constexpr uint16_t PROTOCOL_UDP = 17;
constexpr uint32_t PPPOE_PAYLOAD_LENGTH = 4;

void set_len(uint8_t* field, uint32_t len) { line_id_set_u16(field, static_cast<uint16_t>(len)); }

// A word in this machine's octet order, and what takes it out of a sum that it is in.
uint16_t word_at(const uint8_t* field) {
  uint16_t word = 0;
  std::memcpy(&word, field, sizeof(word));
  return word;
}
uint16_t without(const uint8_t* field) { return static_cast<uint16_t>(~word_at(field)); }

// Of the pseudo-header and `udp_len` octets, the checksum field taken as zero.
inline uint64_t add_udp6(const uint8_t* addresses, const uint8_t* udp, uint32_t udp_len) {
  uint8_t pseudo[4]; // length and protocol, which no word shares with the addresses
  line_id_set_u32(pseudo, udp_len + PROTOCOL_UDP);
  return line_id_add_words(addresses, IP6_ADDRESSES_LEN) + word_at(pseudo) + word_at(pseudo + 2) +
         line_id_add_words(udp, udp_len) + without(udp + UDP_CHECKSUM);
}

// The checksums that belong to a sum.
uint16_t finish_ip4(uint64_t total) { return static_cast<uint16_t>(~line_id_fold_words(total)); }
uint16_t finish_udp6(uint64_t total) {
  const uint16_t check_sum = finish_ip4(total);
  return check_sum != 0 ? check_sum : 0xFFFF;
}

} // namespace

void line_id_close_dhcp4(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len) {
  const uint32_t ip_offset = ETH_HEADER_LEN + vlan_tag_len;
  const uint32_t udp_offset = ip_offset + IP4_HEADER_LEN;
  if (len < udp_offset + UDP_HEADER_LEN) return;
  uint8_t* ip = frame + ip_offset;
  uint8_t* udp = frame + udp_offset;
  // Added up before the new length is there: a word whose halves were just written would have to be waited for.
  const uint64_t others =
      line_id_add_words(ip, IP4_HEADER_LEN) + without(ip + IP4_TOTAL_LENGTH) + without(ip + IP4_CHECKSUM);
  set_len(ip + IP4_TOTAL_LENGTH, len - ip_offset);
  line_id_set_u16(ip + IP4_CHECKSUM, finish_ip4(others + word_at(ip + IP4_TOTAL_LENGTH)));
  set_len(udp + UDP_LENGTH, len - udp_offset);
  // ODD: the UDP checksum is switched off rather than computed anew.
  line_id_set_u16(udp + UDP_CHECKSUM, 0);
}

LINE_ID_FLAT void line_id_close_dhcp6(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len, uint32_t ext_headers_len) {
  const uint32_t ip_offset = ETH_HEADER_LEN + vlan_tag_len;
  const uint32_t udp_offset = ip_offset + IP6_HEADER_LEN + ext_headers_len;
  if (len < udp_offset + UDP_HEADER_LEN) return;
  uint8_t* ip = frame + ip_offset;
  uint8_t* udp = frame + udp_offset;
  const uint32_t udp_len = len - udp_offset;
  const uint64_t others = add_udp6(ip + IP6_ADDRESSES, udp, udp_len) + without(udp + UDP_LENGTH); // as for IPv4
  set_len(ip + IP6_PAYLOAD_LENGTH, len - ip_offset - IP6_HEADER_LEN);
  set_len(udp + UDP_LENGTH, udp_len);
  line_id_set_u16(udp + UDP_CHECKSUM, finish_udp6(others + word_at(udp + UDP_LENGTH)));
}

uint16_t line_id_udp6_check_sum(const uint8_t* addresses, const uint8_t* udp, uint32_t udp_len) {
  return finish_udp6(add_udp6(addresses, udp, udp_len));
}

void line_id_close_pppoe(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len, int32_t growth) {
  const uint32_t pppoe_offset = ETH_HEADER_LEN + vlan_tag_len;
  if (len < pppoe_offset + PPPOE_HEADER_LEN) return;
  uint8_t* payload_len = frame + pppoe_offset + PPPOE_PAYLOAD_LENGTH;
  line_id_set_u16(payload_len, static_cast<uint16_t>(line_id_get_u16(payload_len) + growth));
}
