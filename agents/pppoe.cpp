// The PPPoE intermediate agent.
#include "agents/pppoe.h"

#include "agents/agent_frame.h"
#include "agents/line_id_option.h"
#include "config/policy.h"
#include "config/statistics.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/log.h"
#include "lineid/params.h"
#include "packet/closing.h"
#include "packet/egress.h"
#include "packet/frame.h"
#include "packet/protocol_table.h"

namespace {

constexpr uint32_t CODE_OFFSET = 15; // 14 Ethernet, version and type
constexpr uint32_t PAYLOAD_LEN_OFFSET = 18;
constexpr uint32_t TAGS_OFFSET = 20;

constexpr uint16_t TAG_VENDOR = 0x0105;   // RFC 2516, appendix A
constexpr uint16_t TAG_ONU_INFO = 0x5516; // written by the ONU: two big-endian numbers, ONU and user port
constexpr uint32_t ONU_INFO_LEN = 4;
constexpr uint32_t TAG_HEADER_LEN = 4;
constexpr uint32_t VENDOR_ID = 3561; // Broadband Forum, TR-101
constexpr uint32_t VENDOR_ID_LEN = 4;
constexpr uint32_t MAX_VALUE_LEN = 0xFFFF;

void write_head(uint8_t* tag, uint32_t value_len) {
  line_id_set_u16(tag, TAG_VENDOR);
  line_id_set_u16(tag + 2, static_cast<uint16_t>(value_len));
  line_id_set_u32(tag + TAG_HEADER_LEN, VENDOR_ID);
}

// The frame's growth goes into its payload length.
template <uint8_t log> void close_payload(const line_id_inf_info* info) {
  const uint32_t vlan_tag_len = line_id_vlan_tag_len(info);
  line_id_close_pppoe(info->new_pkt, info->new_pkt_len, vlan_tag_len, info->new_pkt_len - info->origin_pkt_len);
  LINE_ID_INFO(log, "pppoe plus payloadLen=%d\r\n", line_id_get_u16(info->new_pkt + PAYLOAD_LEN_OFFSET + vlan_tag_len));
}

template <uint8_t log>
constexpr line_id_option_rule VENDOR_TAG_RULE = {
    .log = log,
    .head_len = TAG_HEADER_LEN + VENDOR_ID_LEN,
    .value_offset = TAG_HEADER_LEN,
    .needs_rest = false,
    .max_value_len = MAX_VALUE_LEN,
    .circuitid_up_policy = line_id_get_pppoe_circuitid_up_policy_cfg,
    .remoteid_up_policy = line_id_get_pppoe_remoteid_up_policy_cfg,
    .dn_strip = line_id_get_pppoe_tag_dn_strip_cfg,
    .write_head = write_head,
    .close = close_payload<log>,
    .option_name = "pppoe plus",
    .packet_name = "PPPoE",
    .circuit_id_step = "pppoe_plus_circuit_id_proc",
    .replace_step = "option82 remote_id_proc", // ODD: an empty tag that could not be replaced, in another step's words
    .replace_code = LINE_ID_ERR_PPPOE_REPLACE,
};

// The frame under way. It stays in registers: what few frames need is a function of its own, which reads it anew.
struct pppoe_frame {
  line_id_inf_info* info;
  uint8_t oltid;
  line_id_text_source from;
  uint8_t code;
  uint8_t type;     // line_id_pppoe_type
  option_walk tags; // as far as the length field says
  bool is_whole;    // that is not more than is there
};

inline void count(const pppoe_frame& frame, line_id_pppoe_table table) {
  line_id_count_pppoe(table, frame.from.cfg, frame.type, frame.info->pkt_info_ptr->cvlan);
}

inline int32_t drop(const pppoe_frame& frame) {
  count(frame, PPPOE_DROPPED);
  return LINE_ID_PKT_DROP;
}

// A frame that ends within its header has a code at most.
inline pppoe_frame read_frame(line_id_inf_info* info) {
  const uint32_t vlan_tag_len = line_id_vlan_tag_len(info);
  const uint8_t* octets = info->origin_pkt_ptr;
  const uint32_t len = info->origin_pkt_len;
  const uint32_t tags_at = TAGS_OFFSET + vlan_tag_len;
  const bool has_header = tags_at <= len;
  const bool has_code = has_header || CODE_OFFSET + vlan_tag_len < len;
  const uint8_t code = has_code ? octets[CODE_OFFSET + vlan_tag_len] : uint8_t{0};
  const uint16_t payload_len = has_header ? line_id_get_u16(octets + PAYLOAD_LEN_OFFSET + vlan_tag_len) : uint16_t{0};
  const uint8_t oltid = line_id_info_oltid(info);
  return {.info = info,
          .oltid = oltid,
          .from = line_id_text_source_of(oltid, info),
          .code = code,
          .type = LINE_ID_PPPOE_TYPE_OF[code],
          .tags = {octets + tags_at, payload_len},
          .is_whole = has_header && payload_len <= len - tags_at};
}

template <uint8_t log>
int32_t line_id_pppoe_plus_proc(uint8_t oltid, const line_id_text_source& from, const uint8_t* tag_ptr,
                                uint32_t old_tag_len, uint8_t op, line_id_inf_info* info) {
  LINE_ID_INFO(log, "pppoe plus proc,op = %d\r\n", op);
  return line_id_option_operate<VENDOR_TAG_RULE<log>>(oltid, from, tag_ptr, old_tag_len, op, info);
}

// ---- downstream

int32_t strip(const pppoe_frame& frame, const option_view& tag) {
  LINE_ID_INFO(LOG_PPPOE, "got vs_tag!\r\n");
  const int32_t ret =
      line_id_pppoe_plus_proc(frame.oltid, tag.value - TAG_HEADER_LEN, tag.whole_len, OPERATION_REMOVE, frame.info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(LOG_PPPOE, "Failed to proc pppoe plus (%d).\r\n", ret);
    return LINE_ID_PKT_PASS;
  }
  count(frame, PPPOE_FORWARDED);
  return LINE_ID_PKT_SEND;
}

__attribute__((noinline)) int32_t downstream(line_id_inf_info* info) {
  pppoe_frame frame = read_frame(info);
  if (frame.type <= PPPOE_PADT) {
    // ODD: the words say upstream.
    LINE_ID_WARN(LOG_PPPOE, "Upstream PADI/PADR/PADT received and dropped.\r\n");
    return drop(frame);
  }
  if (frame.type > PPPOE_PADS) return LINE_ID_PKT_PASS;
  count(frame, PPPOE_RECEIVED);
  if (!frame.is_whole) {
    LINE_ID_WARN(LOG_PPPOE, "invalid payload_len\r\n");
    return drop(frame);
  }
  option_view tag;
  option_result found = option_next(frame.tags, PPPOE_TAG_RULE, tag);
  for (; found == OPTION_FOUND; found = option_next(frame.tags, PPPOE_TAG_RULE, tag)) {
    if (tag.code == TAG_VENDOR) return strip(frame, tag);
  }
  if (found == OPTION_OVERRUN && tag.code == TAG_VENDOR) {
    LINE_ID_WARN(LOG_PPPOE, "Failed to proc pppoe plus (%d).\r\n", LINE_ID_ERR_SUB_OPTION);
    return LINE_ID_PKT_PASS;
  }
  LINE_ID_INFO(LOG_PPPOE, "Without getting lineid tag. Passthrough.\r\n");
  return LINE_ID_PKT_PASS;
}

// ---- upstream

// The parameter hook may move the frame to another instance or packet type.
inline void follow_hook(pppoe_frame& frame) {
  const uint8_t oltid = line_id_info_oltid(frame.info);
  if (oltid == frame.oltid && frame.info->pkt_info_ptr->packet_type == LINE_ID_PPPOE) return;
  frame.oltid = oltid;
  frame.from = line_id_text_source_of(oltid, frame.info);
}

inline bool fetch_line_facts(pppoe_frame& frame) {
  const int32_t ret = line_id_param_proc(line_id_param_set_of(frame.oltid, LINE_ID_PPPOE), frame.info);
  follow_hook(frame);
  return ret == LINE_ID_OK;
}

// 0, or -2 when the frame's MAC address belongs behind another ONU. A PADT is judged once: the first check has removed
// the binding that a second one would look for.
inline int32_t check_spoofing(const pppoe_frame& frame) {
  line_id_inf_info* info = frame.info;
  if (line_id_get_switch(frame.from.cfg, &line_id_common_cfg::pppoe_anti_spoofing_enable) == 0) return LINE_ID_PKT_SEND;
  if (frame.type == PPPOE_PADT && info->anti_spoof_passed != 0) return LINE_ID_PKT_SEND;
  if (line_id_pppoe_spoof_proc_if(0, 0, info) != LINE_ID_OK) return drop(frame);
  info->anti_spoof_passed = 1;
  return LINE_ID_PKT_SEND;
}

template <uint8_t log>
__attribute__((noinline)) int32_t note_onu_info(line_id_inf_info* info, const uint8_t* value, uint32_t len) {
  if (len < ONU_INFO_LEN) return LINE_ID_PKT_SEND; // not the ONU's
  LINE_ID_INFO(log, "got onu_info_tag!\r\n");
  pppoe_frame frame = read_frame(info);
  line_id_pkt_info* pkt = info->pkt_info_ptr;
  pkt->onu_authno = line_id_get_u16(value);
  pkt->onu_portid = line_id_get_u16(value + 2);
  frame.info->pppoe_code = frame.code;
  if (line_id_get_switch(frame.from.cfg, &line_id_common_cfg::pppoe_anti_spoofing_enable) == 0) return LINE_ID_PKT_SEND;
  const bool needs_facts = pkt->onu_ponno == 0; // the facts themselves may name another
  if (!fetch_line_facts(frame) && needs_facts) {
    LINE_ID_WARN(log, "Error getting params. Passthrough.\r\n"); // ODD: the words say pass, the frame is dropped.
    return drop(frame);
  }
  return check_spoofing(frame);
}

template <uint8_t log> int32_t insert(pppoe_frame& frame, const uint8_t* payload_end) {
  LINE_ID_INFO(log, "vs_tag not found. add one...\r\n");
  if (!fetch_line_facts(frame)) return LINE_ID_PKT_SEND; // ODD: the unchanged copy is sent, and not counted.
  const int32_t ret =
      line_id_pppoe_plus_proc<log>(frame.oltid, frame.from, payload_end, 0, OPERATION_INSERT, frame.info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(log, "Failed to proc pppoe plus (%d).\r\n", ret);
    return LINE_ID_PKT_PASS;
  }
  count(frame, PPPOE_FORWARDED);
  return LINE_ID_PKT_SEND;
}

template <uint8_t log>
LINE_ID_FLAT __attribute__((noinline)) int32_t rewrite(line_id_inf_info* info, option_view tag, option_result found) {
  pppoe_frame frame = read_frame(info);
  LINE_ID_INFO(log, "got vs_tag!\r\n");
  if (!fetch_line_facts(frame)) {
    LINE_ID_WARN(log, "Error getting params. Passthrough.\r\n");
    return LINE_ID_PKT_PASS;
  }
  info->pppoe_code = frame.code;
  LINE_ID_INFO(log, "onu_authno = %d,onu_portid = %d, slot_no = %d,\r\n", info->pkt_info_ptr->onu_authno,
               info->pkt_info_ptr->onu_portid, info->olt_slot);
  const int32_t spoofed = check_spoofing(frame);
  if (spoofed != LINE_ID_PKT_SEND) return spoofed;

  const bool white_listed =
      line_id_get_trans_white_list_pppoe_enable() == 1 && line_id_is_onutype_match(info->onu.onu_type_id) == 0;
  const int32_t policy = line_id_get_trans_white_list_policy();
  if (white_listed && policy == 1) {
    LINE_ID_INFO(log, "\r\nOnu type Match !\r\n");
    return LINE_ID_PKT_PASS;
  }
  int32_t ret = LINE_ID_ERR_SUB_OPTION; // a tag that runs past the payload
  if (found == OPTION_FOUND) {
    ret = line_id_pppoe_plus_proc<log>(frame.oltid, frame.from, tag.value - TAG_HEADER_LEN, tag.whole_len,
                                       OPERATION_MODIFY, info);
  }
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(log, "Failed to proc lineid param (%d).\r\n", ret);
    return drop(frame);
  }
  if (white_listed && policy == 0 && info->is_parse_error == 1) {
    LINE_ID_INFO(log, "\r\n parse error pass through !\r\n");
    return LINE_ID_PKT_PASS;
  }
  count(frame, PPPOE_FORWARDED);
  return LINE_ID_PKT_SEND;
}

template <uint8_t log> int32_t upstream(line_id_inf_info* info) {
  pppoe_frame frame = read_frame(info);
  if (frame.info->pkt_info_ptr->reserved[LINE_ID_EXT_LINE_ID_SWITCH] == 0) {
    LINE_ID_INFO(log, "onu lineid_switch is enable\r\n");
    return LINE_ID_PKT_PASS;
  }
  if (frame.type == PPPOE_PADO || frame.type == PPPOE_PADS) {
    LINE_ID_WARN(log, "Upstream PADO/PADS received and pass through.\r\n");
    count(frame, PPPOE_DROPPED); // ODD: counted as dropped, yet passed on.
    return LINE_ID_PKT_PASS;
  }
  if (frame.type > PPPOE_PADS) return LINE_ID_PKT_PASS;
  count(frame, PPPOE_RECEIVED);
  LINE_ID_INFO(log, "payload_len (%d).\r\n", static_cast<int>(frame.tags.left));
  LINE_ID_INFO(log, "inf_info_ptr->origin_pkt_len (%d).\r\n", info->origin_pkt_len);
  if (!frame.is_whole) {
    LINE_ID_WARN(log, "invalid payload_len\r\n");
    return drop(frame);
  }
  const uint8_t* payload_end = frame.tags.at + frame.tags.left;
  for (;;) {
    option_view tag;
    const option_result found = option_next(frame.tags, PPPOE_TAG_RULE, tag);
    const bool whole_head = found == OPTION_FOUND || found == OPTION_OVERRUN;
    if (whole_head) LINE_ID_INFO(log, "------tag_type =0x%02x!------ \r\n", tag.code);
    if (whole_head && tag.code == TAG_VENDOR) return rewrite<log>(info, tag, found);
    if (found != OPTION_FOUND) return insert<log>(frame, payload_end);
    if (tag.code == TAG_ONU_INFO) {
      const int32_t ret = note_onu_info<log>(info, tag.value, tag.length);
      if (ret != LINE_ID_PKT_SEND) return ret;
      follow_hook(frame);
    }
  }
}

__attribute__((cold, noinline)) int32_t refuse_null(const char* function, int line, uint8_t log) {
  if (line_id_log_enabled(log, 1)) {
    line_id_log_trace("[LNID_WARN]", function, line, "unit_ptr or new_pkt is NULL failed(%d).\r\n", LINE_ID_ERR_NULL);
  }
  line_id_inc_pppoe_drop_pkt_count(0, 0, 0);
  return LINE_ID_PKT_DROP;
}

template <uint8_t log>
LINE_ID_FLAT int32_t line_id_pppoe_event_proc(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  if (unit == nullptr || new_pkt == nullptr) return refuse_null(__func__, __LINE__, log);
  line_id_agent_begin(unit, new_pkt, info);
  LINE_ID_INFO(log, "\rPPPOE Message got : src_port = %d,\t\torigin_pkt_len=%d oltid = %d\r\n",
               static_cast<int>(info->pkt_info_ptr->src_port), info->origin_pkt_len, line_id_info_oltid(info));
  LINE_ID_INFO(log, "PPPoE Code = 0x%02x\r\n", read_frame(info).code);
  switch (info->pkt_info_ptr->direct) {
  case LINE_ID_UPSTREAM: return upstream<log>(info);
  case LINE_ID_DOWNSTREAM: return downstream(info);
  default: LINE_ID_WARN(log, "Error: incorrect direct.\r\n"); return drop(read_frame(info));
  }
}

} // namespace

int32_t line_id_pppoe_event_proc(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  return line_id_traces_on() ? line_id_traced<line_id_pppoe_event_proc<LOG_PPPOE>>(unit, new_pkt, info)
                             : line_id_pppoe_event_proc<LOG_NONE>(unit, new_pkt, info);
}

int32_t line_id_pppoe_plus_proc(uint8_t oltid, const uint8_t* tag_ptr, uint32_t old_tag_len, uint8_t op,
                                line_id_inf_info* info) {
  return line_id_pppoe_plus_proc<LOG_PPPOE>(oltid, line_id_text_source_of(oltid, info), tag_ptr, old_tag_len, op, info);
}

int32_t line_id_pppoe_plus_remove(const uint8_t* old_tag_ptr, uint32_t old_tag_len, line_id_inf_info* info) {
  return line_id_option_remove<VENDOR_TAG_RULE<LOG_PPPOE>>(old_tag_ptr, old_tag_len, info);
}

int32_t line_id_pppoe_plus_replace(uint8_t oltid, const uint8_t* old_tag_ptr, uint32_t old_tag_len,
                                   line_id_inf_info* info) {
  return line_id_option_replace<VENDOR_TAG_RULE<LOG_PPPOE>>(oltid, old_tag_ptr, old_tag_len, info);
}

int32_t line_id_pppoe_plus_modify(uint8_t oltid, const uint8_t* old_tag_ptr, uint32_t old_tag_len,
                                  line_id_inf_info* info) {
  return line_id_option_modify<VENDOR_TAG_RULE<LOG_PPPOE>>(oltid, old_tag_ptr, old_tag_len, info);
}

int32_t line_id_pppoe_plus_circuit_id_proc(uint8_t oltid, const uint8_t* old_sub_opt, uint16_t old_sub_opt_len,
                                           uint8_t* dest, uint16_t* new_sub_opt_len, uint8_t op,
                                           line_id_inf_info* info) {
  return line_id_option_circuit_id<VENDOR_TAG_RULE<LOG_PPPOE>>(oltid, old_sub_opt, old_sub_opt_len, dest,
                                                               new_sub_opt_len, op, info);
}

int32_t line_id_pppoe_plus_remote_id_proc(uint8_t oltid, const uint8_t* old_sub_opt, uint16_t old_sub_opt_len,
                                          uint8_t* dest, uint16_t* new_sub_opt_len, uint8_t op,
                                          line_id_inf_info* info) {
  return line_id_option_remote_id<VENDOR_TAG_RULE<LOG_PPPOE>>(oltid, old_sub_opt, old_sub_opt_len, dest,
                                                              new_sub_opt_len, op, info);
}
