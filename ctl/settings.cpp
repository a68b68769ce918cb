// The table of the settings.
#include "ctl/settings.h"

#include "ctl/block.h"
#include "ctl/failure.h"
#include "ctl/session.h"
#include "include/line_id.h"

#include <algorithm>
#include <cstring>

namespace {

// Setters and getters of the rows, from the calls that they stand for.
template <auto call> int32_t write_octet(uint8_t oltid, const setting_value& value) {
  return call(oltid, static_cast<uint8_t>(std::get<uint32_t>(value)));
}

template <auto call> int32_t write_word(uint8_t oltid, const setting_value& value) {
  return call(oltid, static_cast<uint16_t>(std::get<uint32_t>(value)));
}

template <auto call> int32_t write_number(uint8_t oltid, const setting_value& value) {
  return call(oltid, std::get<uint32_t>(value));
}

template <auto call> int32_t write_text(uint8_t oltid, const setting_value& value) {
  const auto& text = std::get<std::string>(value);
  return call(oltid, text.data(), static_cast<uint32_t>(text.size()));
}

int32_t write_mac(uint8_t oltid, const setting_value& value) {
  const auto& mac = std::get<mac_address>(value);
  return line_id_set_remoteid_core_cardinnermac(oltid, mac.data(), uint32_t{sizeof(mac_address)});
}

int32_t write_white_list(uint8_t oltid, const setting_value& value) {
  const auto& types = std::get<onu_types>(value);
  line_id_white_list list = {};
  list.num = static_cast<uint8_t>(types.size());
  std::memcpy(list.onu_type, types.data(), std::min(types.size() * sizeof(uint16_t), sizeof(list.onu_type)));
  return line_id_set_trans_white_list(oltid, &list);
}

int32_t write_host_name(uint8_t oltid, const setting_value& value) {
  return block_change(oltid, {{"host-name", value}});
}

// `bits` are the significant ones: the calls return their numbers sign-extended.
template <auto call, uint32_t bits> int32_t read_number(uint8_t oltid, setting_value& value) {
  int32_t number = 0;
  const int32_t ret = session_number([oltid] { return static_cast<int32_t>(call(oltid)); }, oltid, number);
  if (ret >= 0) value = static_cast<uint32_t>(number) & bits;
  return ret;
}

template <auto call, size_t size> int32_t read_text(uint8_t oltid, setting_value& value) {
  char text[size + 1] = {}; // the text may fill its field
  const int32_t ret = call(oltid, text);
  if (ret >= 0) value = std::string(text);
  return ret;
}

int32_t read_address(uint8_t oltid, setting_value& value) {
  uint32_t address = 0;
  const int32_t ret = line_id_get_manage_ip(oltid, &address);
  if (ret >= 0) value = address;
  return ret;
}

int32_t read_slot(uint8_t oltid, setting_value& value) {
  line_id_circuit_id_config block = {};
  const int32_t ret = line_id_get_circuit_id_config(oltid, &block);
  if (ret >= 0) value = uint32_t{block.slot};
  return ret;
}

constexpr value_rule ON_OFF = {VALUE_SWITCH, 0, 1};
constexpr value_rule FORMAT = {VALUE_FORMAT, 0, 2};
constexpr value_rule WORD = {VALUE_NUMBER, 0, UINT16_MAX};
constexpr value_rule COUNT = {VALUE_NUMBER, 0, UINT32_MAX};
constexpr value_rule TEMPLATE = {VALUE_TEMPLATE, 0, LINE_ID_FORMAT_LEN};
constexpr uint32_t OCTET_BITS = 0xFF;
constexpr uint32_t WORD_BITS = 0xFFFF;
constexpr uint32_t ALL_BITS = 0xFFFFFFFF;

// clang-format off
#define SWITCH(name, call, help)                                                                                       \
  {name, SCOPE_INSTANCE, ON_OFF, read_number<line_id_get_##call, OCTET_BITS>, write_octet<line_id_set_##call>, help}
#define SWITCH_SET(name, scope, call, help) {name, scope, ON_OFF, nullptr, write_octet<line_id_set_##call>, help}
#define TEMPLATE_TEXT(name, call, help)                                                                                \
  {name, SCOPE_INSTANCE, TEMPLATE, read_text<line_id_get_##call, LINE_ID_FORMAT_LEN>, write_text<line_id_set_##call>, help}

constexpr setting_row SETTINGS[] = {
    SWITCH_SET("dhcpv6", SCOPE_INSTANCE, dhcpv6_enable, "option18 and option37 together"),
    SWITCH("option82", option82_enable, "DHCPv4: write Option 82"),
    SWITCH("option82-transparent", option82_transparent, "DHCPv4 passes as it is"),
    SWITCH("option18", option18_enable, "DHCPv6: write the Interface-ID"),
    SWITCH("option37", option37_enable, "DHCPv6: write the Remote-ID"),
    SWITCH("pppoe-plus", pppoe_plus_enable, "PPPoE: write the vendor tag"),
    SWITCH("pppoe-plus-transparent", pppoe_plus_transparent, "PPPoE passes as it is"),
    SWITCH("remote-id", remote_id_enable, "Remote-ID in Option 82"),
    SWITCH_SET("remote-id-transparent", SCOPE_INSTANCE, remoteid_trans_enable, "stored, without effect"),
    SWITCH("dhcp-anti-spoofing", dhcp_anti_spoofing_enable, "check the sources of DHCP"),
    SWITCH("dhcp-anti-spoofing-drop", dhcp_anti_spoofing_active, "drop what is spoofed; off: alarm only"),
    {"dhcp-binding-count", SCOPE_INSTANCE, COUNT, read_number<line_id_get_dhcp_valid_binding_count, ALL_BITS>,
     write_number<line_id_set_dhcp_valid_binding_count>, "sightings that bind a MAC; that of instance 0 applies"},
    SWITCH("pppoe-anti-spoofing", pppoe_anti_spoofing_enable, "check the sources of PPPoE"),
    {"pppoe-binding-count", SCOPE_INSTANCE, COUNT, read_number<line_id_get_pppoe_valid_binding_count, ALL_BITS>,
     write_number<line_id_set_pppoe_valid_binding_count>, "sightings that bind a MAC; that of instance 0 applies"},
    {"circuit-id-format", SCOPE_INSTANCE, FORMAT, read_number<line_id_get_line_id_format_type, OCTET_BITS>,
     write_octet<line_id_set_line_id_format_type>, "Circuit-ID: the own template, or a built-in one"},
    TEMPLATE_TEXT("circuit-id-template", circuit_id_custom_format, "Circuit-ID where circuit-id-format is custom"),
    TEMPLATE_TEXT("remote-id-template", remote_id_format, "Remote-ID of DHCPv4 and PPPoE"),
    TEMPLATE_TEXT("option37-template", option37_format, "Remote-ID of DHCPv6"),
    {"access-node", SCOPE_INSTANCE, {VALUE_TEXT, 0, LINE_ID_ANI_LEN}, read_text<line_id_get_ani_str, LINE_ID_ANI_LEN>,
     write_text<line_id_set_ani_str>, "access node identifier, letter a"},
    {"rack", SCOPE_INSTANCE, WORD, read_number<line_id_get_rack_no, WORD_BITS>, write_word<line_id_set_rack_no>,
     "letter r; above 32767 it reads negative in identifiers"},
    {"frame", SCOPE_INSTANCE, WORD, read_number<line_id_get_frame_no, WORD_BITS>, write_word<line_id_set_frame_no>,
     "letter f; above 32767 it reads negative in identifiers"},
    {"slot", SCOPE_INSTANCE, {VALUE_NUMBER, 0, UINT8_MAX}, read_slot, nullptr, "set with the circuit-ID block"},
    {"uplink-type", SCOPE_INSTANCE, {VALUE_TEXT, 0, LINE_ID_UPLINK_LEN},
     read_text<line_id_get_uplink_type, LINE_ID_UPLINK_LEN>, write_text<line_id_set_uplink_type>, "letter u"},
    {"management-ip", SCOPE_INSTANCE, {VALUE_ADDRESS, 0, 0}, read_address, write_number<line_id_set_manage_ip>,
     "IPv4 address, letter O"},
    {"host-name", SCOPE_INSTANCE, {VALUE_TEXT, 0, LINE_ID_HOSTNAME_LEN}, nullptr, write_host_name,
     "letter H; travels with the circuit-ID block"},
    {"core-card-mac", SCOPE_INSTANCE, {VALUE_MAC, 0, 0}, nullptr, write_mac, "letter z"},
    SWITCH_SET("gemport", SCOPE_AGENT, gemport_enable, "traced only"),
    {"option18-level", SCOPE_AGENT, ON_OFF, nullptr, write_octet<line_id_set_dhcpv6_option18>,
     "on: flatten a received Relay-Forward, unwrap once; off: wrap it again, unwrap twice"},
    {"option18-relay-strip", SCOPE_AGENT, {VALUE_NUMBER, 1, 2}, nullptr,
     write_octet<line_id_set_dhcpv6_option18_relay_strip>, "unwrap a Relay-Reply once or twice"},
    {"whitelist", SCOPE_AGENT, {VALUE_ONU_TYPES, 0, 0}, nullptr, write_white_list, "ONU types left alone: 1,2,7"},
    SWITCH_SET("debug-all", SCOPE_AGENT, all_debug, "all categories of traces"),
    SWITCH_SET("debug-general", SCOPE_AGENT, lineid_debug, "general traces"),
    SWITCH_SET("debug-config", SCOPE_AGENT, cfg_debug, "traces of configuration commands"),
    SWITCH_SET("debug-dhcpv4", SCOPE_AGENT, dhcpv4_debug, "traces of DHCPv4 frames"),
    SWITCH_SET("debug-dhcpv6", SCOPE_AGENT, dhcpv6_debug, "traces of DHCPv6 frames"),
    SWITCH_SET("debug-pppoe", SCOPE_AGENT, pppoe_plus_debug, "traces of PPPoE frames"),
    SWITCH_SET("debug-device", SCOPE_AGENT, device_debug, "traces of the host's callbacks"),
    SWITCH_SET("debug-tx", SCOPE_AGENT, comm_tx_debug, "reserved"),
    SWITCH_SET("debug-rx", SCOPE_AGENT, comm_rx_debug, "reserved"),
    {"debug-level", SCOPE_AGENT, {VALUE_NUMBER, 0, 2}, nullptr, write_octet<line_id_set_level_debug>,
     "0 errors only, 1 also warnings, 2 also information"},
};
// clang-format on
#undef SWITCH
#undef SWITCH_SET
#undef TEMPLATE_TEXT

} // namespace

std::span<const setting_row> all_settings() { return SETTINGS; }

const setting_row* setting_try(const std::string& name) {
  const auto* row = std::find_if(std::begin(SETTINGS), std::end(SETTINGS),
                                 [&name](const setting_row& known) { return name == known.name; });
  return row != std::end(SETTINGS) ? row : nullptr;
}

const setting_row& setting_find(const std::string& name) {
  if (const setting_row* row = setting_try(name)) return *row;
  throw ctl_failure(STATUS_USAGE, "no setting is called \"" + name + "\"; lineidctl settings lists them");
}
