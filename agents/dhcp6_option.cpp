// The options 18 and 37 that a Relay-Forward carries.
#include <algorithm>
#include <cstring>

#include "agents/dhcp6.h"
#include "agents/dhcp6_layout.h"
#include "config/store.h"
#include "core/log.h"
#include "lineid/circuit_id.h"
#include "lineid/format.h"
#include "lineid/remote_id.h"

namespace {

constexpr uint32_t ENTERPRISE_NUMBER = 3807;
constexpr int32_t MODE_CUSTOM = 0;
constexpr uint32_t TECH_MARKER_LEN = 2;

int32_t refuse_len(int32_t len) {
  LINE_ID_WARN(LOG_DHCPV6, "line_id_print_circuit_id len(%d) is exceeded.\r\n", len);
  return LINE_ID_ERR_TOO_LONG;
}

// Write the technology of the line behind the fourth space, if there is one, as far as the text reaches.
void write_tech_marker(uint8_t* text, uint32_t len, uint8_t form) {
  // ODD: GP leaves what is there, and every technology but XG is written as GP.
  if (form == LINE_ID_FORM_GP) return;
  const int32_t space = line_id_get_pos(reinterpret_cast<const char*>(text), ' ', 4, len);
  if (space < 0) return;
  const uint32_t at = static_cast<uint32_t>(space) + 1;
  std::memcpy(text + at, form == LINE_ID_FORM_XG ? "XG" : "GP", std::min(TECH_MARKER_LEN, len - at));
}

// Append to `text` what a relay nearer to the subscriber wrote behind the cut position. The whole length, or negative.
int32_t join_old(uint8_t* text, uint32_t len, int32_t mode, const uint8_t* old, uint32_t old_len,
                 const line_id_inf_info* info) {
  uint8_t received[LINE_ID_SCRATCH_LEN];
  if (old_len > sizeof(received)) return refuse_len(static_cast<int32_t>(old_len));
  std::memcpy(received, old, old_len);
  write_tech_marker(received, old_len, info->form);

  const int32_t cut = line_id_circuit_id_cut_pos(mode, received, old_len, info);
  if (cut < 0) {
    const bool identity = info->onu.onu_losn_valid_or_invalid == 1;
    LINE_ID_WARN(LOG_DHCPV6, "oldCircuitIdPtr + %s + 1 == NULL,error\r\n", identity ? "pos" : "pos1");
    return LINE_ID_ERR;
  }
  const uint32_t tail_at = static_cast<uint32_t>(cut) + 1;
  const uint32_t joined_len = len + old_len - tail_at;
  if (joined_len > LINE_ID_IDENTIFIER_LEN) return refuse_len(static_cast<int32_t>(joined_len));
  std::memcpy(text + len, received + tail_at, old_len - tail_at);
  return static_cast<int32_t>(joined_len);
}

void write_option_header(uint8_t* dest, uint16_t code, uint32_t len) {
  line_id_set_u16(dest, code);
  line_id_set_u16(dest + 2, static_cast<uint16_t>(len));
}

template <uint8_t log>
int32_t line_id_dhcpv6_option18_proc(uint8_t oltid, uint8_t* dest, uint32_t* len, const line_id_inf_info* info,
                                     const uint8_t* old, uint32_t old_len) {
  *len = 0;
  if (line_id_get_switch(oltid, &line_id_common_cfg::option18_enable) == 0) return LINE_ID_OK;
  const int32_t mode = line_id_get_switch(oltid, &line_id_common_cfg::line_id_format_type);
  LINE_ID_INFO(log, "Circuit ID (format_mode =%d):\r\n", mode);

  uint8_t* text = dest + DHCP6_OPTION_HEADER_LEN;
  // ODD: for CTC and CNC the head alone, also when there is no old Circuit-ID to join.
  int32_t text_len = line_id_print_circuit_id(oltid, text, 1, info);
  if (text_len < 0 || static_cast<uint32_t>(text_len) > LINE_ID_IDENTIFIER_LEN) return refuse_len(text_len);
  if (old != nullptr && old_len > 0 && mode != MODE_CUSTOM) {
    text_len = join_old(text, static_cast<uint32_t>(text_len), mode, old, old_len, info);
    if (text_len < 0) return text_len;
  }
  write_option_header(dest, DHCP6_OPT_INTERFACE_ID, static_cast<uint32_t>(text_len));
  *len = DHCP6_OPTION_HEADER_LEN + static_cast<uint32_t>(text_len);
  return LINE_ID_OK;
}

template <uint8_t log>
int32_t line_id_dhcpv6_option37_proc(uint8_t oltid, uint8_t* dest, uint32_t* len, const line_id_inf_info* info) {
  *len = 0;
  if (line_id_get_switch(oltid, &line_id_common_cfg::option37_enable) == 0) return LINE_ID_OK;
  LINE_ID_INFO(log, "\r\n option37 is enable.\r\n");

  uint8_t* enterprise = dest + DHCP6_OPTION_HEADER_LEN;
  uint8_t* text = enterprise + sizeof(ENTERPRISE_NUMBER);
  const auto kind0 = static_cast<uint8_t>(info->pkt_info_ptr->packet_type - 1);
  const int32_t text_len = line_id_print_remote_id(oltid, text, kind0);
  if (text_len < 0) {
    LINE_ID_WARN(log, "line_id_dhcpv6_option37_proc failed(%d).\r\n", text_len);
    return LINE_ID_ERR_OPTION37;
  }
  line_id_set_u32(enterprise, ENTERPRISE_NUMBER);
  const uint32_t value_len = static_cast<uint32_t>(sizeof(ENTERPRISE_NUMBER)) + static_cast<uint32_t>(text_len);
  write_option_header(dest, DHCP6_OPT_REMOTE_ID, value_len);
  *len = DHCP6_OPTION_HEADER_LEN + value_len;
  return LINE_ID_OK;
}

} // namespace

int32_t line_id_dhcpv6_option18_proc(uint8_t oltid, uint8_t* dest, uint32_t* len, const line_id_inf_info* info,
                                     const uint8_t* old, uint32_t old_len) {
  return line_id_traces_on()
             ? line_id_traced<line_id_dhcpv6_option18_proc<LOG_DHCPV6>>(oltid, dest, len, info, old, old_len)
             : line_id_dhcpv6_option18_proc<LOG_NONE>(oltid, dest, len, info, old, old_len);
}

int32_t line_id_dhcpv6_option37_proc(uint8_t oltid, uint8_t* dest, uint32_t* len, const line_id_inf_info* info) {
  return line_id_traces_on() ? line_id_traced<line_id_dhcpv6_option37_proc<LOG_DHCPV6>>(oltid, dest, len, info)
                             : line_id_dhcpv6_option37_proc<LOG_NONE>(oltid, dest, len, info);
}
