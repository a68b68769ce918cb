// The DHCPv6 agent's entry: which way a frame goes, and what becomes of it.
#include "agents/dhcp6.h"

#include <cstring>

#include "agents/agent_frame.h"
#include "config/policy.h"
#include "core/log.h"
#include "lineid/params.h"
#include "packet/egress.h"

namespace {

constexpr int32_t STRIP_TWICE = 2;

int32_t upstream(line_id_inf_info* info) {
  if (info->pkt_info_ptr->reserved[LINE_ID_EXT_LINE_ID_SWITCH] == 0) {
    LINE_ID_INFO(LOG_DHCPV6, "onu lineid_switch is enable\r\n");
    return LINE_ID_PKT_PASS;
  }
  if (line_id_param_proc(line_id_param_set_of(line_id_info_oltid(info), LINE_ID_DHCPV6), info) != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DHCPV6, "Error getting params. Passthrough.\r\n");
    return LINE_ID_PKT_PASS;
  }
  // A hook may have moved the frame to another instance.
  const int32_t ret = line_id_dhcpv6_relay_forward_proc(line_id_info_oltid(info), info->origin_pkt_ptr,
                                                        info->origin_pkt_len, info->new_pkt, &info->new_pkt_len, info);
  if (ret == LINE_ID_OK) return LINE_ID_PKT_SEND;
  LINE_ID_WARN(LOG_DHCPV6, "Failed to create Relay Forward Msg (%d).\r\n", ret);
  return LINE_ID_PKT_DROP;
}

// Unwrap the unwrapped frame. What does not unwrap stays as it is.
void strip_again(line_id_inf_info* info) {
  LINE_ID_INFO(LOG_DHCPV6, "Strip one more time.\r\n");
  uint8_t once[LINE_ID_SCRATCH_LEN];
  const uint16_t len = info->new_pkt_len;
  std::memcpy(once, info->new_pkt, len);
  line_id_dhcpv6_relay_reply_proc(once, len, info->new_pkt, &info->new_pkt_len, info);
}

int32_t downstream(line_id_inf_info* info) {
  const int32_t ret = line_id_dhcpv6_relay_reply_proc(info->origin_pkt_ptr, info->origin_pkt_len, info->new_pkt,
                                                      &info->new_pkt_len, info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DHCPV6, "Failed to create Relay Reply Msg (%d).\r\n", ret);
    return LINE_ID_PKT_DROP;
  }
  if (line_id_get_dhcpv6_tag_dn_strip_cfg() == STRIP_TWICE) strip_again(info);
  return LINE_ID_PKT_SEND;
}

} // namespace

int32_t line_id_dhcpv6_event_proc(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  if (unit == nullptr || new_pkt == nullptr) {
    LINE_ID_WARN(LOG_DHCPV6, "unit_ptr or new_pkt is NULL failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_PKT_PASS; // ODD: the other agents drop here.
  }
  line_id_agent_begin(unit, new_pkt, info);
  LINE_ID_INFO(LOG_DHCPV6, "origin pkt length (%u) oltid %d:\r\n", info->origin_pkt_len, line_id_info_oltid(info));
  switch (info->pkt_info_ptr->direct) {
  case LINE_ID_UPSTREAM: return upstream(info);
  case LINE_ID_DOWNSTREAM: return downstream(info);
  default: LINE_ID_WARN(LOG_DHCPV6, "Error: incorrect packet.\r\n"); return LINE_ID_PKT_DROP;
  }
}
