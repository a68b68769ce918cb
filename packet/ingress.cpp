// Frames from the host's traps.
#include "packet/ingress.h"

#include "config/channel.h"
#include "config/statistics.h"
#include "config/store.h"
#include "core/device_if.h"
#include "core/init_flag.h"
#include "core/log.h"
#include "packet/check.h"
#include "packet/pool.h"
#include "platform/pal.h"

#include <algorithm>
#include <cstring>

namespace {

// One call of the host.
struct trapped_frame {
  const uint8_t* data;
  uint32_t len;
  uint32_t src_port;
  uint8_t direct;
  const line_id_append_info* append_info;
  uint8_t oltid; // of the append record, unchecked: above 8 every setting reads as 0
  uint8_t tags;
};

// What differs between the protocols.
struct ingress_row {
  line_id_msg_kind kind;
  uint8_t packet_type;
  uint8_t log;
  bool whole_record; // all extension octets are taken over, and the frame is traced
  const char* name;
  const char* title; // the name in notices of arrival and of the pool
  const char* module;
  const char* gap; // ODD: the DHCPv6 notice of a frame passed through lacks a space
  line_id_switch_field enabled;
  line_id_switch_field transparent;                    // or null
  int32_t (*check_header)(const trapped_frame& frame); // 0 or the refusal; or null: the agent checks
};

// ---- checks

template <uint8_t log> int32_t check_arguments(const trapped_frame& frame, const char* name) {
  if (frame.data == nullptr) {
    LINE_ID_WARN(log, "%s pkt is null.!\r", name);
    return LINE_ID_ERR_NULL;
  }
  if (frame.append_info == nullptr) {
    LINE_ID_WARN(log, "ptr_append_info is null.!\r");
    return LINE_ID_ERR_NULL;
  }
  if (frame.len == 0 || frame.len > LINE_ID_MAX_FRAME_LEN) {
    LINE_ID_WARN(log, " %s pkt length(%d)  is not valid.!\r\n", name, static_cast<int>(frame.len));
    return LINE_ID_ERR_LENGTH;
  }
  if (frame.direct != LINE_ID_UPSTREAM && frame.direct != LINE_ID_DOWNSTREAM) {
    LINE_ID_WARN(log, " %s pkt direct(%d) is error.!\r\n", name, frame.direct);
    return LINE_ID_ERR_DIRECT;
  }
  return LINE_ID_OK;
}

int32_t check_dhcp4_header(const trapped_frame& frame) {
  if (line_id_check_dhcp_pkt(frame.data, frame.len, frame.tags, frame.direct) == LINE_ID_OK) return LINE_ID_OK;
  LINE_ID_WARN(LOG_DHCPV4, "invalid dhcpv4 header for pkt from src_port %d.\r\n", static_cast<int>(frame.src_port));
  return LINE_ID_ERR;
}

int32_t check_pppoe_header(const trapped_frame& frame) {
  LINE_ID_INFO(LOG_PPPOE, "tags = %d .\r\n", frame.tags);
  const uint32_t header = ETH_HEADER_LEN + VLAN_TAG_LEN * frame.tags;
  const int32_t remaining = static_cast<int32_t>(frame.len) - static_cast<int32_t>(header);
  const uint8_t* pppoe = frame.data + std::min(header, frame.len);
  if (line_id_check_pppoe_header(pppoe, remaining, frame.direct) == LINE_ID_OK) return LINE_ID_OK;
  LINE_ID_WARN(LOG_PPPOE, "invalid pppoe header for pkt from src_port %d.\r\n", static_cast<int>(frame.src_port));
  return LINE_ID_ERR_PPPOE_HEADER;
}

constexpr ingress_row DHCP4_ROW = {
    .kind = MSG_DHCPV4,
    .packet_type = LINE_ID_DHCPV4,
    .log = LOG_DHCPV4,
    .whole_record = true,
    .name = "dhcpv4",
    .title = "dhcpv4",
    .module = "dhcpv4 option82",
    .gap = " ",
    .enabled = &line_id_common_cfg::option82_enable,
    .transparent = &line_id_common_cfg::option82_transparent,
    .check_header = check_dhcp4_header,
};
constexpr ingress_row DHCP6_ROW = {
    .kind = MSG_DHCPV6,
    .packet_type = LINE_ID_DHCPV6,
    .log = LOG_DHCPV6,
    .whole_record = false,
    .name = "dhcpv6",
    .title = "dhcpv6",
    .module = "dhcpv6 option18",
    .gap = "",
    .enabled = &line_id_common_cfg::option18_enable,
    .transparent = nullptr,
    .check_header = nullptr,
};
constexpr ingress_row PPPOE_ROW = {
    .kind = MSG_PPPOE,
    .packet_type = LINE_ID_PPPOE,
    .log = LOG_PPPOE,
    .whole_record = true,
    .name = "pppoe",
    .title = "PPPoE",
    .module = "pppoe module",
    .gap = " ",
    .enabled = &line_id_common_cfg::pppoe_plus_enable,
    .transparent = &line_id_common_cfg::pppoe_plus_transparent,
    .check_header = check_pppoe_header,
};

// ---- into the pool and the queue

// The line's numbers, svlan to onu_authno, stand in both records in the same order.
constexpr size_t LINE_NUMBERS_LEN = offsetof(line_id_append_info, onu_mac);
static_assert(offsetof(line_id_append_info, svlan) == 0 && offsetof(line_id_append_info, onu_authno) == 10);
static_assert(offsetof(line_id_pkt_info, onu_authno) == offsetof(line_id_pkt_info, svlan) + 10);
uint8_t* octet_at(line_id_pkt_info* info, size_t at) { return reinterpret_cast<uint8_t*>(info) + at; }

template <const ingress_row& row> void fill_unit(line_id_unit* unit, const trapped_frame& frame) {
  const line_id_append_info& line = *frame.append_info;
  line_id_pkt_info* info = unit->pkt_info_ptr;
  info->direct = frame.direct;
  info->src_port = frame.src_port;
  std::memcpy(octet_at(info, offsetof(line_id_pkt_info, svlan)), &line, LINE_NUMBERS_LEN);
  std::memcpy(info->onu_mac, line.onu_mac, sizeof(info->onu_mac));
  info->packet_type = row.packet_type;
  info->recv_time = pal_tickget();
  info->vlan_count = frame.tags;
  if (row.whole_record) {
    std::memcpy(info->reserved, line.ext, sizeof(line.ext));
  } else {
    // ODD: the other extension octets stay as the unit's previous frame left them.
    info->reserved[LINE_ID_EXT_OLTID] = line.ext[LINE_ID_EXT_OLTID];
    info->reserved[LINE_ID_EXT_LINE_ID_SWITCH] = line.ext[LINE_ID_EXT_LINE_ID_SWITCH];
  }
  unit->length = frame.len;
  // Not memcpy, of which g++ makes a slow string instruction for x86 because it knows a bound of the length.
  std::memmove(unit->data, frame.data, frame.len);
}

void trace_unit(const line_id_unit* unit, uint8_t log) {
  const line_id_pkt_info* info = unit->pkt_info_ptr;
  LINE_ID_INFO(log, "(svlan,cvlan,onu_authno,onu_gemid,onu_ponno,onu_portid)=(%d,%d,%d,%d,%d,%d).\r\n", info->svlan,
               info->cvlan, info->onu_authno, info->onu_gemid, info->onu_ponno, info->onu_portid);
  LINE_ID_INFO(log, "onu_mac: \r");
  line_id_dbg_buf_print(info->onu_mac, sizeof(info->onu_mac));
  LINE_ID_INFO(log, "received packet len = %d\r\n", static_cast<int>(unit->length));
  LINE_ID_INFO(log, "received packet: \r");
  line_id_dbg_buf_print(unit->data, unit->length);
}

line_id_unit* take_unit(const ingress_row& row, uint8_t direct) {
  line_id_unit* unit = line_id_buf_pool_alloc(&g_line_id_pkt_sem);
  if (unit != nullptr && unit->pkt_info_ptr != nullptr) return unit;
  line_id_inc_drop_pkt_count(direct, static_cast<int8_t>(row.packet_type));
  if (unit == nullptr) {
    LINE_ID_WARN(row.log, "Warning : %s pool full. Packet is dropped.\r", row.title);
  } else {
    LINE_ID_WARN(row.log, "Warning : %s pool alloc fail.\r", row.title);
    line_id_buf_pool_free(unit, &g_line_id_pkt_sem);
  }
  return nullptr;
}

template <const ingress_row& row, uint8_t log> int32_t enqueue(const trapped_frame& frame) {
  line_id_unit* unit = take_unit(row, frame.direct);
  if (unit == nullptr) return LINE_ID_ERR_POOL;
  fill_unit<row>(unit, frame);
  if (row.whole_record && line_id_log_enabled(log, 2)) trace_unit(unit, log);
  constexpr uint32_t FRAME_MSG_EXTRA = 16;
  const int32_t sent = line_id_send_pkt_msg(row.kind, unit, frame.len + FRAME_MSG_EXTRA);
  if (sent == LINE_ID_OK) {
    if (row.whole_record) LINE_ID_INFO(log, "\r\n line_id_send_pkt_msg ok!\r");
    return LINE_ID_OK;
  }
  line_id_inc_drop_pkt_count(frame.direct, static_cast<int8_t>(row.packet_type));
  LINE_ID_WARN(log, "fail to send %s msg to msg queue.\r", row.name);
  line_id_buf_pool_free(unit, &g_line_id_pkt_sem);
  return sent;
}

// ---- the common road

int32_t pass_through(const trapped_frame& frame) {
  return line_id_send_eth_pkt(frame.oltid, frame.direct, static_cast<uint16_t>(frame.src_port), frame.data, frame.len);
}

// `log` is the row's category, or LOG_NONE while nothing is traced.
template <const ingress_row& row, uint8_t log> int32_t receive(const trapped_frame& frame) {
  line_id_common_cfg* cfg = line_id_cfg_of(frame.oltid);
  if (line_id_get_switch(cfg, row.enabled) == 0) [[unlikely]] {
    LINE_ID_WARN(log, "%s is not enabled.!\r", row.module);
    LINE_ID_WARN(log, "%s oltid (%d)%sis enable .LNID_SEND_PASS_THROUGH.!\r\n", row.name, frame.oltid, row.gap);
    return pass_through(frame);
  }
  LINE_ID_INFO(log, "%s pkt rev from src_port = %d, direct =%d, len = %d\r\n", row.title,
               static_cast<int>(frame.src_port), frame.direct, static_cast<int>(frame.len));
  if (row.transparent != nullptr && line_id_get_switch(cfg, row.transparent) == 1) return pass_through(frame);
  if (row.check_header != nullptr) {
    const int32_t checked = row.check_header(frame);
    if (checked != LINE_ID_OK) return checked;
  }
  return enqueue<row, log>(frame);
}

template <uint8_t log>
LINE_ID_FLAT int32_t line_id_dhcp_receive_if(const uint8_t* data, uint32_t len, uint32_t src_port, uint8_t direct,
                                             const line_id_append_info* append_info) {
  trapped_frame frame = {data, len, src_port, direct, append_info, 0, 0};
  const int32_t checked = check_arguments<log>(frame, "dhcp");
  if (checked != LINE_ID_OK) return checked;
  if (line_id_get_data_init_done_cfg() == 0) {
    // ODD: an error, printed at any level; the PPPoE entry only warns.
    LINE_ID_ERROR("lineid data is not initialized.!\r\n");
    return LINE_ID_ERR_NOT_INIT;
  }
  const uint32_t tags = line_id_count_tags(frame.data, frame.len);
  const int32_t family = line_id_type_behind_tags(frame.data, frame.len, tags);
  frame.tags = static_cast<uint8_t>(tags);
  frame.oltid = frame.append_info->ext[LINE_ID_EXT_OLTID];
  LINE_ID_INFO(log, "dhcp_type = %d .\r\n", family);
  LINE_ID_INFO(log, "vlan_count = %d .\r\n", frame.tags);
  LINE_ID_INFO(log, "oltid = %d .\r\n", frame.oltid);
  LINE_ID_INFO(log, "gemport_enable = %d\r\n", line_id_get_gemport_cfg());
  constexpr uint8_t LOG6 = log == LOG_NONE ? LOG_NONE : LOG_DHCPV6;
  return family == LINE_ID_DHCPV6 ? receive<DHCP6_ROW, LOG6>(frame) : receive<DHCP4_ROW, log>(frame);
}

template <uint8_t log>
LINE_ID_FLAT int32_t line_id_pppoe_receive_if(const uint8_t* data, uint32_t len, uint32_t src_port, uint8_t direct,
                                              const line_id_append_info* append_info) {
  trapped_frame frame = {data, len, src_port, direct, append_info, 0, 0};
  const int32_t checked = check_arguments<log>(frame, "pppoe");
  if (checked != LINE_ID_OK) return checked;
  frame.tags = static_cast<uint8_t>(line_id_count_tags(frame.data, frame.len));
  frame.oltid = frame.append_info->ext[LINE_ID_EXT_OLTID];
  LINE_ID_INFO(log, "gemport_enable = %d\r\n", line_id_get_gemport_cfg());
  if (line_id_get_data_init_done_cfg() == 0) {
    LINE_ID_WARN(log, "lineid data is not initialized.!\r");
    return LINE_ID_ERR_NOT_INIT;
  }
  return receive<PPPOE_ROW, log>(frame);
}

} // namespace

int32_t line_id_send_pkt_msg(uint32_t kind, line_id_unit* unit, uint32_t) {
  line_id_msg msg = {};
  msg.kind = static_cast<uint16_t>(kind);
  msg.pointer = line_id_buf_pool_handle(unit);
  struct announced {
    line_id_unit* unit;
    uint16_t kind;
  } frame = {unit, msg.kind};
  const auto hand_over = [](void* arg) {
    const auto* to = static_cast<const announced*>(arg);
    line_id_buf_pool_mark_queued(to->unit, to->kind);
  };
  const int32_t sent = pal_msgQ_send_own(g_line_id_msg_id, &msg, static_cast<uint32_t>(sizeof(msg)), hand_over, &frame);
  if (sent >= 0) return LINE_ID_OK;
  LINE_ID_WARN(LOG_GENERAL, "line_id_send_pkt_msg failed(%d).\r\n", sent);
  return LINE_ID_ERR_SEND_MSG;
}

int32_t line_id_dhcp_receive_if(const uint8_t* frame, uint32_t len, uint32_t src_port, uint8_t direct,
                                const line_id_append_info* append_info) {
  return line_id_traces_on()
             ? line_id_traced<line_id_dhcp_receive_if<LOG_DHCPV4>>(frame, len, src_port, direct, append_info)
             : line_id_dhcp_receive_if<LOG_NONE>(frame, len, src_port, direct, append_info);
}

int32_t line_id_pppoe_receive_if(const uint8_t* frame, uint32_t len, uint32_t src_port, uint8_t direct,
                                 const line_id_append_info* append_info) {
  return line_id_traces_on()
             ? line_id_traced<line_id_pppoe_receive_if<LOG_PPPOE>>(frame, len, src_port, direct, append_info)
             : line_id_pppoe_receive_if<LOG_NONE>(frame, len, src_port, direct, append_info);
}

int32_t line_id_dhcp_receive(const uint8_t* frame, uint32_t len, uint32_t src_port, uint8_t direct,
                             const line_id_append_info* append_info) {
  return line_id_dhcp_receive_if(frame, len, src_port, direct, append_info);
}

int32_t line_id_pppoe_receive(const uint8_t* frame, uint32_t len, uint32_t src_port, uint8_t direct,
                              const line_id_append_info* append_info) {
  return line_id_pppoe_receive_if(frame, len, src_port, direct, append_info);
}
