// Finds DHCPv6 in a frame.
#include "agents/dhcp6_layout.h"

#include "core/log.h"
#include "packet/check.h"
#include "packet/closing.h"

namespace {

constexpr uint32_t EXT_HEADERS_LIMIT = 1000; // octets walked before the chain is given up
constexpr uint32_t UDP_LENGTH = 4;

uint32_t ext_header_len(uint8_t length_octet) { return (length_octet + 1U) * 8; } // RFC 8200, section 4.3

} // namespace

int32_t line_id_dhcpv6_ext_header_proc(const uint8_t* start, uint32_t size) {
  if (start == nullptr) {
    LINE_ID_WARN(LOG_DHCPV6, "input Ipv6ExtHeaders is NULL!\r\n");
    return LINE_ID_ERR_NULL;
  }
  packet_reader header = reader_over(start, size);
  uint8_t type = reader_u8(header);
  uint32_t len = ext_header_len(reader_u8(header));
  while (header.ok && type != IP6_UDP && len < EXT_HEADERS_LIMIT) {
    header = reader_sub(reader_over(start, size), len);
    type = reader_u8(header);
    len += ext_header_len(reader_u8(header));
  }
  if (header.ok && type == IP6_UDP) return static_cast<int32_t>(len);
  LINE_ID_WARN(LOG_DHCPV6, " uc_next_header is not udp protocol,(uc_next_header = %d).\r\n", type);
  return LINE_ID_ERR_DHCPV6;
}

uint16_t line_id_dhcpv6_udp_check_sum_proc(const uint8_t* ipv6_header, const uint8_t* udp_header) {
  if (ipv6_header == nullptr || udp_header == nullptr) {
    LINE_ID_WARN(LOG_DHCPV6, "ipv6_buf or udp_buf is NULL failed(%d).\r\n", LINE_ID_ERR_NULL);
    return 0xFFFF;
  }
  return line_id_udp6_check_sum(ipv6_header + IP6_SRC_ADDRESS, udp_header, line_id_get_u16(udp_header + UDP_LENGTH));
}
