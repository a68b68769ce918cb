// Checks of received frames, VLAN tags and the Internet checksum.
#include "packet/check.h"

#include "core/log.h"
#include "core/records.h"
#include "packet/frame.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint16_t TPID_CUSTOMER = 0x8100; // IEEE 802.1Q
constexpr uint16_t TPID_SERVICE = 0x88A8;
constexpr uint16_t ETHERTYPE_IPV6 = 0x86DD;
constexpr uint32_t TPID_OFFSET = 12;
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

bool has_word(uint32_t len, uint32_t offset) { return len >= 2 && offset <= len - 2; }

bool is_tpid(const uint8_t* frame, uint32_t len, uint32_t offset) {
  if (!has_word(len, offset)) return false;
  const uint16_t word = line_id_get_u16(frame + offset);
  return word == TPID_CUSTOMER || word == TPID_SERVICE;
}

int32_t count_tags(const uint8_t* frame, uint32_t len) {
  if (!is_tpid(frame, len, TPID_OFFSET)) return 0;
  // ODD: the last position that holds a TPID counts, even when a position before it holds none.
  for (uint32_t tags = LINE_ID_MAX_TAGS; tags > 1; --tags) {
    if (is_tpid(frame, len, TPID_OFFSET + (tags - 1) * VLAN_TAG_LEN)) return static_cast<int32_t>(tags);
  }
  return 1;
}

uint16_t vid_at(const uint8_t* frame, uint32_t len, uint32_t offset) {
  if (!has_word(len, offset)) return VLAN_NONE;
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
  return count_tags(frame, len);
}

int32_t line_id_check_vlan(const uint8_t* frame, uint32_t len, uint16_t* svlan, uint16_t* cvlan) {
  if (frame == nullptr || svlan == nullptr || cvlan == nullptr) {
    LINE_ID_INFO(LOG_GENERAL, "param is NULL failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  *svlan = VLAN_NONE;
  *cvlan = VLAN_NONE;
  const int32_t tags = count_tags(frame, len);
  if (tags == 0) return 0;
  *cvlan = vid_at(frame, len, 14);
  if (is_tpid(frame, len, 16)) {
    *svlan = *cvlan;
    // ODD: the inner VLAN is taken from octet 20, not from the second tag's own word at 18.
    *cvlan = vid_at(frame, len, 20);
  }
  return tags;
}

int32_t line_id_get_eth_header_type(const uint8_t* frame, uint32_t len) {
  if (frame == nullptr) return LINE_ID_DHCPV4;
  const uint32_t offset = TPID_OFFSET + VLAN_TAG_LEN * static_cast<uint32_t>(count_tags(frame, len));
  const bool ipv6 = has_word(len, offset) && line_id_get_u16(frame + offset) == ETHERTYPE_IPV6;
  return ipv6 ? LINE_ID_DHCPV6 : LINE_ID_DHCPV4;
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

template <uint8_t log> LINE_ID_FLAT int32_t line_id_check_dhcp_pkt(const uint8_t* frame, uint32_t len, uint8_t direct) {
  const int32_t tags = line_id_check_vlan_tag_num(frame, len);
  if (tags < 0) return tags;
  const uint32_t eth_header_len = ETH_HEADER_LEN + VLAN_TAG_LEN * static_cast<uint32_t>(tags);
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

int32_t line_id_check_dhcp_pkt(const uint8_t* frame, uint32_t len, uint8_t direct) {
  return line_id_traces_on() ? line_id_traced<line_id_check_dhcp_pkt<LOG_DHCPV4>>(frame, len, direct)
                             : line_id_check_dhcp_pkt<LOG_NONE>(frame, len, direct);
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
