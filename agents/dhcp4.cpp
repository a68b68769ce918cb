// The DHCPv4 Option 82 agent.
#include "agents/dhcp4.h"

#include <array>

#include "agents/agent_frame.h"
#include "agents/line_id_option.h"
#include "config/policy.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/log.h"
#include "lineid/params.h"
#include "packet/closing.h"
#include "packet/egress.h"
#include "packet/frame.h"
#include "packet/protocol_table.h"

namespace {

constexpr uint32_t BOOTP_OP_OFFSET = 42; // 14 Ethernet, 20 IPv4, 8 UDP
constexpr uint32_t OPTIONS_OFFSET = 282; // 236 BOOTP and the magic cookie behind it
constexpr uint8_t BOOTREQUEST = 1;       // RFC 951
constexpr uint8_t BOOTREPLY = 2;

constexpr uint8_t OPTION_PAD = 0; // RFC 2132
constexpr uint8_t OPTION_MESSAGE_TYPE = 53;
constexpr uint8_t OPTION_RELAY_AGENT = 82; // RFC 3046
constexpr uint8_t OPTION_ONU_INFO = 230;   // written by the ONU: two big-endian numbers, ONU and user port
constexpr uint8_t OPTION_END_CODE = 255;
constexpr uint32_t ONU_INFO_LEN = 4;
constexpr uint32_t MAX_VALUE_LEN = 255;
constexpr uint8_t HEAD_LEN = 2;

void write_head(uint8_t* option, uint32_t value_len) {
  option[0] = OPTION_RELAY_AGENT;
  option[1] = static_cast<uint8_t>(value_len);
}

template <uint8_t log>
constexpr line_id_option_rule OPTION82_RULE = {
    .log = log,
    .head_len = HEAD_LEN,
    .value_offset = HEAD_LEN,
    .needs_rest = true,
    .max_value_len = MAX_VALUE_LEN,
    .circuitid_up_policy = line_id_get_dhcp_circuitid_up_policy_cfg,
    .remoteid_up_policy = line_id_get_dhcp_remoteid_up_policy_cfg,
    .dn_strip = line_id_get_dhcp_tag_dn_strip_cfg,
    .write_head = write_head,
    .close = nullptr,
    .option_name = "dhcp option82",
    .packet_name = "DHCP",
    .circuit_id_step = "circuit_id_proc",
    .replace_step = "line_id_dhcp_option82_replace proc",
    .replace_code = LINE_ID_ERR_OPTION82_REPLACE,
};

// What the walk over the options found; positions are in the received frame.
struct dhcp4_options {
  const uint8_t* option82; // the last one, or null
  uint32_t option82_len;   // whole length
  const uint8_t* end;      // the End option
};

bool is_server_message(uint8_t type) {
  constexpr uint8_t OFFER = 2; // RFC 2132, section 9.6
  constexpr uint8_t ACK = 5;
  constexpr uint8_t NAK = 6;
  return type == OFFER || type == ACK || type == NAK;
}

void note_onu_info(const uint8_t* value, line_id_pkt_info* pkt) {
  LINE_ID_INFO(LOG_DHCPV4, "got onu_info_tag!\r\n");
  pkt->onu_authno = line_id_get_u16(value);
  pkt->onu_portid = line_id_get_u16(value + 2);
}

// The message type is the octet behind the option's length, whatever that length says.
bool is_message_type_refused(const uint8_t* value, const uint8_t* end, uint8_t direct) {
  return value == end || is_server_message(*value) != (direct == LINE_ID_DOWNSTREAM);
}

int32_t refuse_walk(uint32_t offset) {
  if (offset > LINE_ID_MAX_FRAME_LEN) {
    LINE_ID_WARN(LOG_DHCPV4, "dhcp packet length more than %d\r\n", LINE_ID_MAX_FRAME_LEN);
  } else {
    LINE_ID_WARN(LOG_DHCPV4, "dhcp packet length failed(option_tag_offset = %d)\r\n", static_cast<int>(offset));
  }
  return LINE_ID_PKT_DROP;
}

// All ones for the codes that the walk looks at.
constexpr std::array<uint8_t, 256> MARKED_CODES = [] {
  std::array<uint8_t, 256> marked = {};
  for (const uint8_t code : {OPTION_PAD, OPTION_MESSAGE_TYPE, OPTION_RELAY_AGENT, OPTION_ONU_INFO, OPTION_END_CODE}) {
    marked[code] = 0xFF;
  }
  return marked;
}();

// Move behind whole options that the walk has no use for.
void skip_unmarked(packet_reader& options) {
  const uint8_t* option = options.data + options.pos;
  uint32_t left = reader_left(options);
  while (left >= HEAD_LEN && MARKED_CODES[option[0]] == 0) {
    const uint32_t whole_len = uint32_t{HEAD_LEN} + option[1];
    if (whole_len > left) break;
    option += whole_len;
    left -= whole_len;
  }
  options.pos = options.size - left;
}

// Walk to the End option: 0, or -2 for a frame that may not travel on. A Pad
// has no meaning downstream, where it is taken for a code with a length.
int32_t walk_options(line_id_inf_info* info, dhcp4_options& found) {
  const uint32_t first = OPTIONS_OFFSET + line_id_vlan_tag_len(info);
  const uint8_t direct = info->pkt_info_ptr->direct;
  packet_reader options = reader_sub(reader_over(info->origin_pkt_ptr, info->origin_pkt_len), first);
  if (!options.ok) return refuse_walk(first);
  const uint8_t* end = options.data + options.size;
  for (;;) {
    skip_unmarked(options);
    if (reader_left(options) == 0) return refuse_walk(first + options.pos);
    const uint8_t code = options.data[options.pos];
    if (code == OPTION_END_CODE) {
      found.end = options.data + options.pos;
      return LINE_ID_PKT_SEND;
    }
    if (direct == LINE_ID_UPSTREAM && code == OPTION_PAD) {
      // ODD: a Pad option ends upstream processing with a drop.
      LINE_ID_WARN(LOG_DHCPV4, "dhcp OPTION TAG IS INvalid ,THE TAG IS %d\r\n", OPTION_PAD);
      return LINE_ID_PKT_DROP;
    }
    option_view option;
    if (option_next(options, DHCP4_OPTION_RULE, option) != OPTION_FOUND)
      return refuse_walk(first + options.pos + option.whole_len);
    if (code == OPTION_MESSAGE_TYPE) {
      if (is_message_type_refused(option.value, end, direct)) return LINE_ID_PKT_DROP;
    } else if (direct == LINE_ID_UPSTREAM && code == OPTION_RELAY_AGENT) {
      found.option82 = option.value - HEAD_LEN;
      found.option82_len = option.whole_len;
    } else if (direct == LINE_ID_UPSTREAM && code == OPTION_ONU_INFO && option.length >= ONU_INFO_LEN) {
      note_onu_info(option.value, info->pkt_info_ptr);
    }
  }
}

uint8_t bootp_op(const line_id_inf_info* info) {
  packet_reader bootp =
      reader_sub(reader_over(info->origin_pkt_ptr, info->origin_pkt_len), BOOTP_OP_OFFSET + line_id_vlan_tag_len(info));
  return reader_u8(bootp);
}

int32_t downstream(line_id_inf_info* info) {
  if (bootp_op(info) == BOOTREQUEST) return LINE_ID_PKT_DROP;
  // ODD: a reply keeps its Option 82, whatever the strip setting says.
  dhcp4_options found = {};
  return walk_options(info, found);
}

// 0, or -2 when the frame's MAC address belongs behind another ONU.
inline int32_t check_spoofing(const line_id_common_cfg* cfg, line_id_inf_info* info) {
  const line_id_pkt_info* pkt = info->pkt_info_ptr;
  if (line_id_get_switch(cfg, &line_id_common_cfg::dhcp_anti_spoofing_enable) == 0) return LINE_ID_PKT_SEND;
  if (pkt->onu_authno == 0 || pkt->onu_ponno == 0) return LINE_ID_PKT_SEND;
  const int32_t ret = line_id_dhcp_spoof_proc_if(0, 0, info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DHCPV4, "Failed toprocess_dhcp_anti_mac_spoofing (%d).\r\n", ret);
    return LINE_ID_PKT_DROP;
  }
  info->anti_spoof_passed = 1;
  return LINE_ID_PKT_SEND;
}

template <uint8_t log>
int32_t line_id_dhcp_option82_proc(uint8_t oltid, const line_id_text_source& from, const uint8_t* option_ptr,
                                   uint32_t old_tag_len, uint8_t op, line_id_inf_info* info) {
  LINE_ID_INFO(log, "dhcp_option82 proc,op = %d\r\n", op);
  if (op == OPERATION_REMOVE && OPTION82_RULE<log>.dn_strip() != 1) return LINE_ID_ERR; // the headers stay as they are
  const int32_t ret = line_id_option_operate<OPTION82_RULE<log>>(oltid, from, option_ptr, old_tag_len, op, info);
  line_id_close_dhcp4(info->new_pkt, info->new_pkt_len, line_id_vlan_tag_len(info));
  return ret;
}

template <uint8_t log>
int32_t insert(uint8_t oltid, const line_id_text_source& from, const uint8_t* end, line_id_inf_info* info) {
  LINE_ID_INFO(log, "Without getting lineid tag, add opt82 tag.\r\n");
  const int32_t ret = line_id_dhcp_option82_proc<log>(oltid, from, end, 0, OPERATION_INSERT, info);
  if (ret == LINE_ID_OK) return LINE_ID_PKT_SEND;
  LINE_ID_WARN(LOG_DHCPV4, "Failed to proc option82 (%d).\r\n", ret);
  return LINE_ID_PKT_PASS; // ODD: a failed insertion passes the frame, a failed rewrite drops it.
}

template <uint8_t log>
LINE_ID_FLAT __attribute__((noinline)) int32_t rewrite(uint8_t oltid, const uint8_t* option82, uint32_t option82_len,
                                                       bool white_listed, line_id_inf_info* info) {
  LINE_ID_INFO(log, "got option82 data!option82_value_len(%d)\r\n", static_cast<int>(option82_len - HEAD_LEN));
  const line_id_text_source from = line_id_text_source_of(oltid, info);
  const int32_t ret = line_id_dhcp_option82_proc<log>(oltid, from, option82, option82_len, OPERATION_MODIFY, info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(log, "Failed to proc option82 (%d).\r\n", ret);
    return LINE_ID_PKT_DROP;
  }
  if (white_listed && line_id_get_trans_white_list_policy() == 0 && info->is_parse_error == 1) {
    LINE_ID_INFO(log, "\r\n parse error pass through !\r\n");
    return LINE_ID_PKT_PASS;
  }
  return LINE_ID_PKT_SEND;
}

template <uint8_t log> LINE_ID_FLAT int32_t upstream(uint8_t oltid, line_id_inf_info* info) {
  line_id_pkt_info* pkt = info->pkt_info_ptr;
  if (pkt->reserved[LINE_ID_EXT_LINE_ID_SWITCH] == 0) {
    LINE_ID_INFO(LOG_DHCPV4, "onu lineid_switch is enable\r\n");
    return LINE_ID_PKT_PASS;
  }
  if (bootp_op(info) == BOOTREPLY) return LINE_ID_PKT_DROP;
  dhcp4_options found = {};
  int32_t ret = walk_options(info, found);
  if (ret != LINE_ID_PKT_SEND) return ret;

  const bool valid = line_id_param_proc(line_id_param_set_of(oltid, LINE_ID_DHCPV4), info) == LINE_ID_OK;
  oltid = line_id_info_oltid(info); // the parameter hook may have moved the frame
  const line_id_text_source from = line_id_text_source_of(oltid, info);
  LINE_ID_INFO(log, "From Slot  %d,PONNO %d, ONUNO %d,info_valid %d onu_type_id %d.\r\n", info->olt_slot,
               pkt->onu_ponno, pkt->onu_authno, valid ? 1 : 0, info->onu.onu_type_id);
  ret = check_spoofing(from.cfg, info);
  if (ret != LINE_ID_PKT_SEND) return ret;

  const bool white_listed =
      line_id_get_trans_white_list_dhcp_enable() == 1 && line_id_is_onutype_match(info->onu.onu_type_id) == 0;
  if (white_listed && line_id_get_trans_white_list_policy() == 1) {
    LINE_ID_INFO(LOG_DHCPV4, "\r\nOnu type Match !\r\n");
    return LINE_ID_PKT_PASS;
  }
  return found.option82 == nullptr ? insert<log>(oltid, from, found.end, info)
                                   : rewrite<log>(oltid, found.option82, found.option82_len, white_listed, info);
}

template <uint8_t log> int32_t line_id_dhcp_event_proc(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  if (unit == nullptr || new_pkt == nullptr) {
    LINE_ID_WARN(log, "unit_ptr or new_pkt is NULL failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_PKT_DROP;
  }
  line_id_agent_begin(unit, new_pkt, info);
  if (info->pkt_info_ptr->vlan_count > LINE_ID_MAX_TAGS) {
    LINE_ID_WARN(log, "Vlan Tags exceeded.\r\n");
    return LINE_ID_PKT_PASS;
  }
  switch (info->pkt_info_ptr->direct) {
  case LINE_ID_UPSTREAM: return upstream<log>(line_id_info_oltid(info), info);
  case LINE_ID_DOWNSTREAM: return downstream(info);
  default: return LINE_ID_PKT_SEND;
  }
}

} // namespace

int32_t line_id_dhcp_event_proc(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  return line_id_traces_on() ? line_id_traced<line_id_dhcp_event_proc<LOG_DHCPV4>>(unit, new_pkt, info)
                             : line_id_dhcp_event_proc<LOG_NONE>(unit, new_pkt, info);
}

int32_t line_id_dhcp_option82_proc(uint8_t oltid, const uint8_t* option_ptr, uint32_t old_tag_len, uint8_t op,
                                   line_id_inf_info* info) {
  return line_id_dhcp_option82_proc<LOG_DHCPV4>(oltid, line_id_text_source_of(oltid, info), option_ptr, old_tag_len, op,
                                                info);
}

int32_t line_id_dhcp_option82_remove(const uint8_t* old_tag_ptr, uint32_t old_tag_len, line_id_inf_info* info) {
  return line_id_option_remove<OPTION82_RULE<LOG_DHCPV4>>(old_tag_ptr, old_tag_len, info);
}

int32_t line_id_dhcp_option82_replace(uint8_t oltid, const uint8_t* old_tag_ptr, uint32_t old_tag_len,
                                      line_id_inf_info* info) {
  return line_id_option_replace<OPTION82_RULE<LOG_DHCPV4>>(oltid, old_tag_ptr, old_tag_len, info);
}

int32_t line_id_dhcp_option82_modify(uint8_t oltid, const uint8_t* old_tag_ptr, uint32_t old_tag_len,
                                     line_id_inf_info* info) {
  return line_id_option_modify<OPTION82_RULE<LOG_DHCPV4>>(oltid, old_tag_ptr, old_tag_len, info);
}

int32_t line_id_dhcp_option82_circuit_id_proc(uint8_t oltid, const uint8_t* old_sub_opt, uint16_t old_sub_opt_len,
                                              uint8_t* dest, uint16_t* new_sub_opt_len, uint8_t op,
                                              line_id_inf_info* info) {
  return line_id_option_circuit_id<OPTION82_RULE<LOG_DHCPV4>>(oltid, old_sub_opt, old_sub_opt_len, dest,
                                                              new_sub_opt_len, op, info);
}

int32_t line_id_dhcp_option82_remote_id_proc(uint8_t oltid, const uint8_t* old_sub_opt, uint16_t old_sub_opt_len,
                                             uint8_t* dest, uint16_t* new_sub_opt_len, uint8_t op,
                                             line_id_inf_info* info) {
  return line_id_option_remote_id<OPTION82_RULE<LOG_DHCPV4>>(oltid, old_sub_opt, old_sub_opt_len, dest, new_sub_opt_len,
                                                             op, info);
}
