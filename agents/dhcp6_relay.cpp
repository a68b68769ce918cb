// Upstream: builds the Relay-Forward of a client's message or of a relay's, with the options 18 and 37.
#include "agents/dhcp6.h"

#include <algorithm>
#include <cstring>

#include "agents/dhcp6_layout.h"
#include "config/store.h"
#include "core/log.h"
#include "lineid/circuit_id.h"
#include "lineid/format.h"
#include "lineid/remote_id.h"
#include "packet/check.h"
#include "packet/closing.h"

namespace {

constexpr int32_t LEVEL_FLATTEN = 1; // option-18 level: a received Relay-Forward is replaced, not wrapped
constexpr uint32_t ENTERPRISE_NUMBER = 3807;
constexpr int32_t MODE_CUSTOM = 0;
constexpr uint32_t TECH_MARKER_LEN = 2;

// Octets that an option may have: code, length, enterprise number, text.
constexpr uint32_t OPTION_ROOM = 8 + LINE_ID_IDENTIFIER_LEN;

// What the new Relay-Forward carries, in place.
struct relayed {
  const uint8_t* message;
  uint32_t message_len;
  const uint8_t* circuit_id; // of the relay nearer to the subscriber; null: none
  uint32_t circuit_id_len;
  uint8_t hop_count;
};

bool is_from_server(uint8_t type) {
  return type == DHCP6_ADVERTISE || type == DHCP6_REPLY || type == DHCP6_RECONFIGURE || type == DHCP6_RELAY_REPL;
}

// The options that flattening looks for: the first Relay Message, the first Interface-ID with content.
struct found_options {
  option_view relay_message;
  option_view interface_id;
  bool has_relay_message;
};

// Walk all options from `offset` of a message; false when they do not end where the message ends.
bool find_options(const packet_reader& message, uint32_t offset, found_options& found) {
  found = {};
  packet_reader options = reader_sub(message, offset);
  if (!options.ok) return false;
  option_view option;
  option_result result;
  while ((result = option_next(options, DHCP6_OPTION_RULE, option)) == OPTION_FOUND) {
    LINE_ID_INFO(LOG_DHCPV6, "optionId = %d, optionLen = %d\r\n", option.code, option.length);
    if (option.code == DHCP6_OPT_RELAY_MSG && !found.has_relay_message) {
      found.relay_message = option;
      found.has_relay_message = true;
    }
    if (option.code == DHCP6_OPT_INTERFACE_ID && found.interface_id.length == 0) found.interface_id = option;
  }
  return result == OPTION_END;
}

// The Circuit-ID inside a relayed message; a malformed message has none.
option_view find_inner_circuit_id(const uint8_t* message, uint32_t len) {
  const packet_reader inner = reader_over(message, len);
  const uint32_t options_at = message[0] == DHCP6_RELAY_FORW ? DHCP6_RELAY_HEADER_LEN : DHCP6_HEADER_LEN;
  found_options found;
  return find_options(inner, options_at, found) ? found.interface_id : option_view{};
}

// Take the message out of a received Relay-Forward; without a Relay Message it stays as it is. 0 or -159.
int32_t flatten(const packet_reader& message, relayed* content) {
  found_options found;
  if (!find_options(message, DHCP6_RELAY_HEADER_LEN, found)) return LINE_ID_ERR_DHCPV6;
  if (!found.has_relay_message) return LINE_ID_OK;
  if (found.relay_message.length == 0) return LINE_ID_ERR_DHCPV6;
  content->message = found.relay_message.value;
  content->message_len = found.relay_message.length;
  LINE_ID_INFO(LOG_DHCPV6, "udpPayloadLen = %d\r\n", content->message_len);

  option_view circuit_id = found.interface_id;
  if (circuit_id.length == 0) circuit_id = find_inner_circuit_id(content->message, content->message_len);
  if (circuit_id.length == 0) return LINE_ID_OK;
  content->circuit_id = circuit_id.value;
  content->circuit_id_len = circuit_id.length;
  LINE_ID_INFO(LOG_DHCPV6, "DHCPv6 old Circuit ID (len=%d): %.*s\r\n", circuit_id.length, circuit_id.length,
               reinterpret_cast<const char*>(circuit_id.value));
  return LINE_ID_OK;
}

// Of a received Relay-Forward. 0 or -159.
__attribute__((noinline)) int32_t choose_relayed(const packet_reader& message, relayed* content) {
  if (message.size < DHCP6_RELAY_HEADER_LEN) return LINE_ID_ERR_DHCPV6;
  const bool level_flatten = line_id_get_dhcpv6_option18_cfg() == LEVEL_FLATTEN;
  content->hop_count = static_cast<uint8_t>(message.data[DHCP6_HOP_COUNT] + (level_flatten ? 0 : 1));
  return level_flatten ? flatten(message, content) : LINE_ID_OK;
}

// ---- the options

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
__attribute__((noinline)) int32_t join_old(uint8_t* text, uint32_t len, int32_t mode, const uint8_t* old,
                                           uint32_t old_len, const line_id_inf_info* info) {
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

// Write option 18 to `dest`: its length, 0 when it is switched off, or negative. Its text is joined with the tail of
// the Circuit-ID of a relay nearer to the subscriber.
template <uint8_t log>
int32_t line_id_dhcpv6_option18_proc(uint8_t oltid, uint8_t* dest, const line_id_inf_info* info,
                                     const relayed& content) {
  if (line_id_get_switch(oltid, &line_id_common_cfg::option18_enable) == 0) return 0;
  const int32_t mode = line_id_get_switch(oltid, &line_id_common_cfg::line_id_format_type);
  LINE_ID_INFO(log, "Circuit ID (format_mode =%d):\r\n", mode);

  uint8_t* text = dest + DHCP6_OPTION_HEADER_LEN;
  // ODD: for CTC and CNC the head alone, also when there is no old Circuit-ID to join.
  const line_id_text_source from = line_id_text_source_of(oltid, info);
  const bool is_plain = log == LOG_NONE && info->cid == 0 && from.letters != nullptr;
  int32_t text_len = is_plain ? line_id_print_circuit_id_untraced(from, text, 1, info)
                              : line_id_print_circuit_id(oltid, text, 1, info);
  if (text_len < 0 || static_cast<uint32_t>(text_len) > LINE_ID_IDENTIFIER_LEN) return refuse_len(text_len);
  if (content.circuit_id != nullptr && mode != MODE_CUSTOM) {
    text_len = join_old(text, static_cast<uint32_t>(text_len), mode, content.circuit_id, content.circuit_id_len, info);
    if (text_len < 0) return text_len;
  }
  write_option_header(dest, DHCP6_OPT_INTERFACE_ID, static_cast<uint32_t>(text_len));
  return static_cast<int32_t>(DHCP6_OPTION_HEADER_LEN) + text_len;
}

// The same for option 37.
template <uint8_t log>
int32_t line_id_dhcpv6_option37_proc(uint8_t oltid, uint8_t* dest, const line_id_inf_info* info, const relayed&) {
  if (line_id_get_switch(oltid, &line_id_common_cfg::option37_enable) == 0) return 0;
  LINE_ID_INFO(log, "\r\n option37 is enable.\r\n");

  uint8_t* enterprise = dest + DHCP6_OPTION_HEADER_LEN;
  uint8_t* text = enterprise + sizeof(ENTERPRISE_NUMBER);
  const line_id_text_source from = line_id_text_source_of(oltid, info);
  const int32_t text_len =
      log == LOG_NONE && from.letters != nullptr
          ? line_id_print_remote_id_untraced(from, text, info)
          : line_id_print_remote_id(oltid, text, static_cast<uint8_t>(info->pkt_info_ptr->packet_type - 1));
  if (text_len < 0) {
    LINE_ID_WARN(log, "line_id_dhcpv6_option37_proc failed(%d).\r\n", text_len);
    return LINE_ID_ERR_OPTION37;
  }
  line_id_set_u32(enterprise, ENTERPRISE_NUMBER);
  const uint32_t value_len = static_cast<uint32_t>(sizeof(ENTERPRISE_NUMBER)) + static_cast<uint32_t>(text_len);
  write_option_header(dest, DHCP6_OPT_REMOTE_ID, value_len);
  return static_cast<int32_t>(DHCP6_OPTION_HEADER_LEN + value_len);
}

using option_builder = int32_t (*)(uint8_t oltid, uint8_t* dest, const line_id_inf_info* info, const relayed& content);

// An option in its place if the longest has room there, else by way of a spare buffer. 0, or the builder's code.
template <option_builder build>
int32_t add_option(packet_writer& frame, uint8_t oltid, const relayed& content, const line_id_inf_info* info) {
  uint8_t spare[OPTION_ROOM];
  const bool has_room = frame.size - frame.pos >= OPTION_ROOM;
  uint8_t* option = has_room ? frame.data + frame.pos : spare;
  const int32_t len = build(oltid, option, info, content);
  if (len < 0) return len;
  uint8_t* place = writer_room(frame, static_cast<uint32_t>(len));
  if (!has_room && place != nullptr) std::memcpy(place, option, static_cast<uint32_t>(len));
  return LINE_ID_OK;
}

// Options 18 and 37. 0, -114 or -115.
template <uint8_t log>
int32_t write_options(packet_writer& frame, uint8_t oltid, const relayed& content, const line_id_inf_info* info) {
  int32_t ret = add_option<line_id_dhcpv6_option18_proc<log>>(frame, oltid, content, info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(log, "dhcp_option18_insert return %d, failed!\r\n", ret);
    return LINE_ID_ERR_OPTION18;
  }
  ret = add_option<line_id_dhcpv6_option37_proc<log>>(frame, oltid, content, info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(log, "dhcp_option37_insert return %d, failed!\r\n", ret);
    return LINE_ID_ERR_OPTION37;
  }
  return LINE_ID_OK;
}

// ---- the message

// `has_headers`: those of the received frame are in their places.
void write_headers(packet_writer& frame, const uint8_t* origin, const dhcp6_layout& at, const relayed& content,
                   bool has_headers) {
  if (has_headers) {
    writer_room(frame, at.udp);
  } else {
    writer_bytes(frame, origin, at.udp);
  }
  uint8_t* udp = writer_room(frame, UDP_HEADER_LEN + DHCP6_RELAY_HEADER_LEN + DHCP6_OPTION_HEADER_LEN);
  if (udp == nullptr) return;
  line_id_set_u16(udp, DHCP6_SERVER_PORT);
  line_id_set_u16(udp + 2, DHCP6_SERVER_PORT);
  line_id_set_u32(udp + 4, 0); // length and checksum are the closing step's
  uint8_t* relay = udp + UDP_HEADER_LEN;
  relay[0] = DHCP6_RELAY_FORW;
  relay[DHCP6_HOP_COUNT] = content.hop_count;
  std::memset(relay + DHCP6_LINK_ADDRESS, 0, IP6_ADDRESS_LEN);
  std::memcpy(relay + DHCP6_PEER_ADDRESS, origin + at.ip + IP6_SRC_ADDRESS, IP6_ADDRESS_LEN);
  uint8_t* relay_message = relay + DHCP6_RELAY_HEADER_LEN;
  line_id_set_u16(relay_message, DHCP6_OPT_RELAY_MSG);
  line_id_set_u16(relay_message + 2, static_cast<uint16_t>(content.message_len));
  writer_bytes(frame, content.message, content.message_len);
}

template <uint8_t log> int32_t refuse_long() {
  LINE_ID_WARN(log, "Pkt Length is too long ,exceeded!\r\n");
  return LINE_ID_ERR_TOO_LONG;
}

template <uint8_t log>
LINE_ID_FLAT int32_t line_id_dhcpv6_relay_forward_proc(uint8_t oltid, const uint8_t* origin, uint32_t origin_len,
                                                       uint8_t* out, uint16_t* out_len, const line_id_inf_info* info) {
  if (origin == nullptr || out == nullptr || out_len == nullptr || info == nullptr) {
    LINE_ID_WARN(log, "input param pointer is NULL!\r\n");
    return LINE_ID_ERR_NULL;
  }
  dhcp6_layout at;
  if (line_id_dhcp6_locate(origin, origin_len, line_id_vlan_tag_len(info), &at) != LINE_ID_OK) {
    LINE_ID_WARN(log, "Not a valid DHCPv6 packet!\r\n");
    return LINE_ID_ERR_DHCPV6;
  }
  if (at.dhcp + DHCP6_RELAY_HEADER_LEN + at.message.size > LINE_ID_SCRATCH_LEN) return refuse_long<log>();
  const uint8_t type = at.message.data[0];
  if (is_from_server(type)) return LINE_ID_ERR_NOT_RELAY;
  relayed content = {at.message.data, at.message.size, nullptr, 0, 0};
  int32_t ret = type == DHCP6_RELAY_FORW ? choose_relayed(at.message, &content) : LINE_ID_OK;
  if (ret != LINE_ID_OK) return ret;

  packet_writer frame = writer_over(out, LINE_ID_SCRATCH_LEN);
  const bool is_copied = origin == info->origin_pkt_ptr && out == info->new_pkt; // by the agent's entry
  write_headers(frame, origin, at, content, is_copied);
  ret = write_options<log>(frame, oltid, content, info);
  if (ret != LINE_ID_OK) return ret;
  if (!frame.ok) return refuse_long<log>();
  LINE_ID_INFO(log, "relay_fwd_pkt_len=%d\r\n", frame.pos);
  line_id_close_dhcp6(out, frame.pos, line_id_vlan_tag_len(info), at.ext_headers_len);
  *out_len = static_cast<uint16_t>(frame.pos);
  return LINE_ID_OK;
}

} // namespace

int32_t line_id_dhcpv6_relay_forward_proc(uint8_t oltid, const uint8_t* origin, uint32_t origin_len, uint8_t* out,
                                          uint16_t* out_len, const line_id_inf_info* info) {
  return line_id_traces_on()
             ? line_id_traced<line_id_dhcpv6_relay_forward_proc<LOG_DHCPV6>>(oltid, origin, origin_len, out, out_len,
                                                                             info)
             : line_id_dhcpv6_relay_forward_proc<LOG_NONE>(oltid, origin, origin_len, out, out_len, info);
}
