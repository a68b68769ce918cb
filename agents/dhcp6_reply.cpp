// Downstream: takes the server's message out of a Relay-Reply.
#include "agents/dhcp6.h"
#include "agents/dhcp6_layout.h"
#include "core/log.h"
#include "packet/check.h"
#include "packet/closing.h"

namespace {

constexpr uint32_t UDP_DST_PORT = 2;

// The Relay Message option: 0 or -159. Nothing behind it is looked at.
int32_t find_relay_message(const packet_reader& message, option_view* found) {
  packet_reader options = reader_sub(message, DHCP6_RELAY_HEADER_LEN);
  while (option_next(options, DHCP6_OPTION_RULE, *found) == OPTION_FOUND) {
    if (found->code == 0) return LINE_ID_ERR_DHCPV6;
    if (found->code != DHCP6_OPT_RELAY_MSG) continue;
    return found->length > 0 ? LINE_ID_OK : LINE_ID_ERR_DHCPV6;
  }
  return LINE_ID_ERR_DHCPV6;
}

bool is_for_client(uint8_t type) { return type == DHCP6_ADVERTISE || type == DHCP6_REPLY || type == DHCP6_RECONFIGURE; }

// The received frame around `inner`, sent on to the peer.
uint32_t write_inner(uint8_t* out, const uint8_t* origin, const dhcp6_layout& at, const option_view& inner) {
  packet_writer frame = writer_over(out, LINE_ID_SCRATCH_LEN);
  writer_bytes(frame, origin, at.dhcp);
  std::memcpy(out + at.ip + IP6_DST_ADDRESS, at.message.data + DHCP6_PEER_ADDRESS, IP6_ADDRESS_LEN);
  if (is_for_client(inner.value[0])) line_id_set_u16(out + at.udp + UDP_DST_PORT, DHCP6_CLIENT_PORT);
  writer_bytes(frame, inner.value, inner.length);
  return frame.pos;
}

} // namespace

int32_t line_id_dhcpv6_relay_reply_proc(const uint8_t* origin, uint32_t origin_len, uint8_t* out, uint16_t* out_len,
                                        const line_id_inf_info* info) {
  if (origin == nullptr || out == nullptr || out_len == nullptr || info == nullptr) {
    LINE_ID_WARN(LOG_DHCPV6, "input param pointer is NULL!\r\n");
    return LINE_ID_ERR_NULL;
  }
  uint16_t svlan;
  uint16_t cvlan;
  const int32_t tags = line_id_check_vlan(origin, origin_len, &svlan, &cvlan);
  if (tags < 0) {
    LINE_ID_WARN(LOG_DHCPV6, "vlan_count is error!\r\n");
    return LINE_ID_ERR_VLAN;
  }
  const uint32_t vlan_tag_len = static_cast<uint32_t>(tags) * VLAN_TAG_LEN;
  dhcp6_layout at;
  if (line_id_dhcp6_locate(origin, origin_len, vlan_tag_len, &at) != LINE_ID_OK || origin_len > LINE_ID_SCRATCH_LEN) {
    LINE_ID_WARN(LOG_DHCPV6, "Not a valid DHCPv6 packet.\r\n");
    return LINE_ID_ERR_DHCPV6;
  }
  if (at.message.data[0] != DHCP6_RELAY_REPL) {
    // ODD: the text says pass, but the agent drops it.
    LINE_ID_WARN(LOG_DHCPV6, "Downstream DHCPv6 packet pass through (not RELAY_REPL).\r\n");
    return LINE_ID_ERR_NOT_RELAY;
  }
  option_view inner;
  const int32_t ret = find_relay_message(at.message, &inner);
  if (ret != LINE_ID_OK) return ret;
  if (!is_for_client(inner.value[0]) && inner.value[0] != DHCP6_RELAY_REPL) {
    LINE_ID_WARN(LOG_DHCPV6, "Downstream DHCPv6 packet discarded (Rogue message).\r\n");
    return LINE_ID_ERR_ROGUE;
  }
  const uint32_t len = write_inner(out, origin, at, inner);
  line_id_close_dhcp6(out, len, vlan_tag_len, at.ext_headers_len);
  *out_len = static_cast<uint16_t>(len);
  LINE_ID_INFO(LOG_DHCPV6, "*(relay_rpl_pkt_len)=%d\r\n", len);
  return LINE_ID_OK;
}
