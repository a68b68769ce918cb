// Upstream: builds the Relay-Forward of a client's message or of a relay's.
#include "agents/dhcp6.h"

#include <cstring>

#include "agents/dhcp6_layout.h"
#include "config/store.h"
#include "core/log.h"
#include "packet/check.h"
#include "packet/closing.h"

namespace {

constexpr int32_t LEVEL_FLATTEN = 1; // option-18 level: a received Relay-Forward is replaced, not wrapped

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

// What of the received message goes into the new one. 0, -117 or -159.
int32_t choose_content(const packet_reader& message, relayed* content) {
  *content = {message.data, message.size, nullptr, 0, 0};
  const uint8_t type = message.data[0];
  if (is_from_server(type)) return LINE_ID_ERR_NOT_RELAY;
  if (type != DHCP6_RELAY_FORW) return LINE_ID_OK;
  if (message.size < DHCP6_RELAY_HEADER_LEN) return LINE_ID_ERR_DHCPV6;
  const bool level_flatten = line_id_get_dhcpv6_option18_cfg() == LEVEL_FLATTEN;
  content->hop_count = static_cast<uint8_t>(message.data[DHCP6_HOP_COUNT] + (level_flatten ? 0 : 1));
  return level_flatten ? flatten(message, content) : LINE_ID_OK;
}

// Where the next option is built: in its place if the longest has room there.
uint8_t* option_place(const packet_writer& frame, uint8_t (&spare)[DHCP6_OPTION_ROOM]) {
  return frame.size - frame.pos >= DHCP6_OPTION_ROOM ? frame.data + frame.pos : spare;
}

void add_option(packet_writer& frame, const uint8_t* option, uint32_t len) {
  uint8_t* place = writer_room(frame, len);
  if (place != nullptr && place != option) std::memcpy(place, option, len);
}

// Options 18 and 37. 0, -114 or -115.
int32_t write_options(packet_writer& frame, uint8_t oltid, const relayed& content, const line_id_inf_info* info) {
  uint8_t spare[DHCP6_OPTION_ROOM];
  uint8_t* option = option_place(frame, spare);
  uint32_t len = 0;
  int32_t ret = line_id_dhcpv6_option18_proc(oltid, option, &len, info, content.circuit_id, content.circuit_id_len);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DHCPV6, "dhcp_option18_insert return %d, failed!\r\n", ret);
    return LINE_ID_ERR_OPTION18;
  }
  add_option(frame, option, len);
  option = option_place(frame, spare);
  ret = line_id_dhcpv6_option37_proc(oltid, option, &len, info);
  if (ret != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DHCPV6, "dhcp_option37_insert return %d, failed!\r\n", ret);
    return LINE_ID_ERR_OPTION37;
  }
  add_option(frame, option, len);
  return LINE_ID_OK;
}

void write_headers(packet_writer& frame, const uint8_t* origin, const dhcp6_layout& at, const relayed& content) {
  writer_bytes(frame, origin, at.udp);
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

int32_t refuse_long() {
  LINE_ID_WARN(LOG_DHCPV6, "Pkt Length is too long ,exceeded!\r\n");
  return LINE_ID_ERR_TOO_LONG;
}

} // namespace

int32_t line_id_dhcpv6_relay_forward_proc(uint8_t oltid, const uint8_t* origin, uint32_t origin_len, uint8_t* out,
                                          uint16_t* out_len, const line_id_inf_info* info) {
  if (origin == nullptr || out == nullptr || out_len == nullptr || info == nullptr) {
    LINE_ID_WARN(LOG_DHCPV6, "input param pointer is NULL!\r\n");
    return LINE_ID_ERR_NULL;
  }
  dhcp6_layout at;
  if (line_id_dhcp6_locate(origin, origin_len, line_id_vlan_tag_len(info), &at) != LINE_ID_OK) {
    LINE_ID_WARN(LOG_DHCPV6, "Not a valid DHCPv6 packet!\r\n");
    return LINE_ID_ERR_DHCPV6;
  }
  if (at.dhcp + DHCP6_RELAY_HEADER_LEN + at.message.size > LINE_ID_SCRATCH_LEN) return refuse_long();
  relayed content;
  int32_t ret = choose_content(at.message, &content);
  if (ret != LINE_ID_OK) return ret;

  packet_writer frame = writer_over(out, LINE_ID_SCRATCH_LEN);
  write_headers(frame, origin, at, content);
  ret = write_options(frame, oltid, content, info);
  if (ret != LINE_ID_OK) return ret;
  if (!frame.ok) return refuse_long();
  LINE_ID_INFO(LOG_DHCPV6, "relay_fwd_pkt_len=%d\r\n", frame.pos);
  line_id_close_dhcp6(out, frame.pos, line_id_vlan_tag_len(info), at.ext_headers_len);
  *out_len = static_cast<uint16_t>(frame.pos);
  return LINE_ID_OK;
}
