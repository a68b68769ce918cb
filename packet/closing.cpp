// The closing step of a rebuilt frame.
#include "packet/closing.h"

#include "packet/check.h"
#include "packet/frame.h"

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

} // namespace

void line_id_close_dhcp4(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len) {
  const uint32_t ip_offset = ETH_HEADER_LEN + vlan_tag_len;
  const uint32_t udp_offset = ip_offset + IP4_HEADER_LEN;
  if (len < udp_offset + UDP_HEADER_LEN) return;
  uint8_t* ip = frame + ip_offset;
  uint8_t* udp = frame + udp_offset;
  set_len(ip + IP4_TOTAL_LENGTH, len - ip_offset);
  line_id_set_u16(ip + IP4_CHECKSUM, 0);
  line_id_caculate_check_sum(ip, IP4_HEADER_LEN, IP4_CHECKSUM);
  set_len(udp + UDP_LENGTH, len - udp_offset);
  // ODD: the UDP checksum is switched off rather than computed anew.
  line_id_set_u16(udp + UDP_CHECKSUM, 0);
}

void line_id_close_dhcp6(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len, uint32_t ext_headers_len) {
  const uint32_t ip_offset = ETH_HEADER_LEN + vlan_tag_len;
  const uint32_t udp_offset = ip_offset + IP6_HEADER_LEN + ext_headers_len;
  if (len < udp_offset + UDP_HEADER_LEN) return;
  uint8_t* ip = frame + ip_offset;
  uint8_t* udp = frame + udp_offset;
  set_len(ip + IP6_PAYLOAD_LENGTH, len - ip_offset - IP6_HEADER_LEN);
  set_len(udp + UDP_LENGTH, len - udp_offset);
  line_id_set_u16(udp + UDP_CHECKSUM, line_id_udp6_check_sum(ip + IP6_ADDRESSES, udp, len - udp_offset));
}

uint16_t line_id_udp6_check_sum(const uint8_t* addresses, const uint8_t* udp, uint32_t udp_len) {
  uint32_t total = line_id_sum_words(addresses, IP6_ADDRESSES_LEN);
  total += (udp_len >> 16) + (udp_len & 0xFFFF) + PROTOCOL_UDP;
  total += line_id_sum_words(udp, udp_len);
  total += static_cast<uint16_t>(~line_id_get_u16(udp + UDP_CHECKSUM)); // takes the field out again
  total = (total >> 16) + (total & 0xFFFF);
  total = (total >> 16) + (total & 0xFFFF);
  const uint16_t check_sum = static_cast<uint16_t>(~total);
  return check_sum != 0 ? check_sum : 0xFFFF;
}

void line_id_close_pppoe(uint8_t* frame, uint32_t len, uint32_t vlan_tag_len, int32_t growth) {
  const uint32_t pppoe_offset = ETH_HEADER_LEN + vlan_tag_len;
  if (len < pppoe_offset + PPPOE_HEADER_LEN) return;
  uint8_t* payload_len = frame + pppoe_offset + PPPOE_PAYLOAD_LENGTH;
  line_id_set_u16(payload_len, static_cast<uint16_t>(line_id_get_u16(payload_len) + growth));
}
