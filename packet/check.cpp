// Checks of received frames, VLAN tags and the Internet checksum.
#include "packet/check.h"

#include "core/log.h"
#include "core/records.h"
#include "packet/frame.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint16_t VID_MASK = 0x0FFF;
constexpr uint16_t VID_UNTAGGED = 4088; // how the line card marks a frame without a VLAN
constexpr uint16_t VLAN_NONE = 4096;

constexpr uint16_t PORT_DHCP_SERVER = 67;
constexpr uint16_t PORT_DHCP_CLIENT = 68;

constexpr uint8_t PPPOE_VERSION_TYPE = 0x11; // RFC 2516
constexpr uint8_t PADO = 0x07;
constexpr uint8_t PADI = 0x09;
constexpr uint8_t PADR = 0x19;
constexpr uint8_t PADS = 0x65;
constexpr uint8_t PADT = 0xA7;

uint16_t vid_at(const uint8_t* frame, uint32_t len, uint32_t offset) {
  if (!line_id_has_word(len, offset)) return VLAN_NONE;
  const uint16_t vid = line_id_get_u16(frame + offset) & VID_MASK;
  return vid == VID_UNTAGGED ? VLAN_NONE : vid;
}

// The place of a header, and what remains from there, without a pointer past the end.
struct header_at {
  const uint8_t* data;
  int32_t remaining;
};
header_at header_at_offset(const uint8_t* frame, uint32_t len, uint32_t offset) {
  return {frame + std::min(offset, len), static_cast<int32_t>(len) - static_cast<int32_t>(offset)};
}

} // namespace

// ---- VLAN tags and EtherType

int32_t line_id_check_vlan_tag_num(const uint8_t* frame, uint32_t len) {
  if (frame == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "line_id_check_vlan_tag_num failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  return static_cast<int32_t>(line_id_count_tags(frame, len));
}

int32_t line_id_check_vlan(const uint8_t* frame, uint32_t len, uint16_t* svlan, uint16_t* cvlan) {
  if (frame == nullptr || svlan == nullptr || cvlan == nullptr) {
    LINE_ID_INFO(LOG_GENERAL, "param is NULL failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  *svlan = VLAN_NONE;
  *cvlan = VLAN_NONE;
  const uint32_t tags = line_id_count_tags(frame, len);
  if (tags == 0) return 0;
  *cvlan = vid_at(frame, len, 14);
  if (line_id_is_tpid(frame, len, 16)) {
    *svlan = *cvlan;
    // ODD: the inner VLAN is taken from octet 20, not from the second tag's own word at 18.
    *cvlan = vid_at(frame, len, 20);
  }
  return static_cast<int32_t>(tags);
}

int32_t line_id_get_eth_header_type(const uint8_t* frame, uint32_t len) {
  if (frame == nullptr) return LINE_ID_DHCPV4;
  return line_id_type_behind_tags(frame, len, line_id_count_tags(frame, len));
}

int32_t line_id_check_processed_time(uint32_t start, uint32_t now) {
  if (start > now || now - start >= 2) return LINE_ID_OK;
  LINE_ID_WARN(LOG_GENERAL, "line_id_check_processed_time failed(%d).\r\n", LINE_ID_ERR);
  return LINE_ID_ERR;
}

// ---- headers

uint32_t line_id_get_ip_header_len(const uint8_t* ip) { return 4U * (ip[0] & 0x0F); }

int32_t line_id_check_ip_header(const uint8_t* ip, int32_t remaining) {
  const bool whole = remaining >= IP4_HEADER_LEN;
  const int32_t total_len = whole ? line_id_get_u16(ip + 2) : remaining;
  // ODD: a frame with Ethernet padding behind the IP packet is refused.
  if (whole && total_len == (remaining & 0xFFFF)) return LINE_ID_OK;
  LINE_ID_WARN(LOG_GENERAL, "Invalid ip pdu len %d.\r\n", total_len);
  return LINE_ID_ERR_IP_LENGTH;
}

int32_t line_id_check_udp_header(const uint8_t* udp, int32_t remaining, uint8_t direct) {
  if (direct != LINE_ID_UPSTREAM && direct != LINE_ID_DOWNSTREAM) return LINE_ID_ERR_DIRECT;
  if (remaining < UDP_HEADER_LEN) {
    LINE_ID_WARN(LOG_DHCPV4, "Invalid udp pdu len %d.\r\n", remaining);
    return LINE_ID_ERR_IP_LENGTH;
  }
  const uint16_t from = direct == LINE_ID_UPSTREAM ? PORT_DHCP_CLIENT : PORT_DHCP_SERVER;
  const uint16_t to = direct == LINE_ID_UPSTREAM ? PORT_DHCP_SERVER : PORT_DHCP_CLIENT;
  if (line_id_get_u16(udp) != from || line_id_get_u16(udp + 2) != to) {
    LINE_ID_WARN(LOG_DHCPV4, "Invalid udp src port and dst port of dhcp pkt.\r");
    return LINE_ID_ERR_UDP_PORTS;
  }
  const int32_t pdu_len = line_id_get_u16(udp + 4);
  if (pdu_len == (remaining & 0xFFFF)) return LINE_ID_OK;
  LINE_ID_WARN(LOG_DHCPV4, "Invalid udp pdu len %d.\r\n", pdu_len);
  return LINE_ID_ERR_IP_LENGTH;
}

template <uint8_t log>
LINE_ID_FLAT int32_t line_id_check_dhcp_pkt(const uint8_t* frame, uint32_t len, uint32_t tags, uint8_t direct) {
  const uint32_t eth_header_len = ETH_HEADER_LEN + VLAN_TAG_LEN * tags;
  LINE_ID_INFO(log, "eth_header_len = %d .\r\n", static_cast<int>(eth_header_len));

  const header_at ip = header_at_offset(frame, len, eth_header_len);
  if (line_id_check_ip_header(ip.data, ip.remaining) != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DHCPV4, "invalid ip header of dhcp pkt.\r");
    return LINE_ID_ERR_IP_HEADER;
  }
  const uint32_t ip_header_len = line_id_get_ip_header_len(ip.data);
  const header_at udp = header_at_offset(frame, len, eth_header_len + ip_header_len);
  if (line_id_check_udp_header(udp.data, udp.remaining, direct) != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DHCPV4, "invalid udp header of dhcp pkt,len=%u,ipHdrLen is %u\r\n", len, ip_header_len);
    return LINE_ID_ERR_IP_LENGTH;
  }
  LINE_ID_INFO(log, "dhcp check  fun end.\r");
  return LINE_ID_OK;
}

int32_t line_id_check_dhcp_pkt(const uint8_t* frame, uint32_t len, uint32_t tags, uint8_t direct) {
  return line_id_traces_on() ? line_id_traced<line_id_check_dhcp_pkt<LOG_DHCPV4>>(frame, len, tags, direct)
                             : line_id_check_dhcp_pkt<LOG_NONE>(frame, len, tags, direct);
}

int32_t line_id_check_dhcp_pkt(const uint8_t* frame, uint32_t len, uint8_t direct) {
  const int32_t tags = line_id_check_vlan_tag_num(frame, len);
  return tags >= 0 ? line_id_check_dhcp_pkt(frame, len, static_cast<uint32_t>(tags), direct) : tags;
}

int32_t line_id_check_pppoe_header(const uint8_t* pppoe, int32_t remaining, uint8_t direct) {
  if (remaining < PPPOE_HEADER_LEN) {
    LINE_ID_WARN(LOG_PPPOE, "invalid pppoe payload len %d.\r\n", remaining);
    return LINE_ID_ERR_PPPOE_LENGTH;
  }
  if (pppoe[0] != PPPOE_VERSION_TYPE) {
    LINE_ID_WARN(LOG_PPPOE, "invalid pppoe version&type 0x%02x.\r\n", pppoe[0]);
    return LINE_ID_ERR_PPPOE_VERSION;
  }
  const uint8_t code = pppoe[1];
  // ODD: a PADT may come from the server as well, but is refused downstream.
  const bool accepted =
      direct == LINE_ID_UPSTREAM ? code == PADI || code == PADR || code == PADT : code == PADO || code == PADS;
  if (!accepted) {
    LINE_ID_WARN(LOG_PPPOE, "invalid pppoe code 0x%02x.\r\n", code);
    return LINE_ID_ERR_PPPOE_CODE;
  }
  const int32_t payload_len = line_id_get_u16(pppoe + 4);
  if (payload_len > remaining - PPPOE_HEADER_LEN) {
    LINE_ID_WARN(LOG_PPPOE, "invalid pppoe payload len %d.\r\n", payload_len);
    return LINE_ID_ERR_PPPOE_LENGTH;
  }
  return LINE_ID_OK;
}
