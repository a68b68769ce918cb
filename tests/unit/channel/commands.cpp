// The rows of the set commands that send more than one octet.
#include "tests/unit/channel/commands.h"

#include "core/records.h"
#include "tests/unit/channel/channel_test.h"

namespace {

constexpr uint8_t MAC[] = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
const std::string MAC_TEXT("\0\x11\x22\x33\x44\x55", 6);
const std::string LONGEST(256, 'x');

command_row fixed(int16_t code, int32_t (*call)(), const std::string& payload) {
  const auto len = static_cast<int32_t>(payload.size());
  return {code, call, payload, len, len, -112, -112};
}

command_row text_row(int16_t code, int32_t (*call)(), const std::string& payload, int32_t shortest, int32_t longest) {
  return {code, call, payload, shortest, longest, -157, -157};
}

int32_t set_config_block() {
  const line_id_circuit_id_config block = {9, 5, 1, "node", -2, 3, "up", 0x0A000102, "host"};
  return volt_line_id_set_circuit_id_config(3, &block);
}

int32_t set_mode_block() {
  line_id_circuit_id_format_mode block = {7, "%a", {}};
  block.reserved[35] = 1;
  return volt_line_id_set_circuit_id_format_mode(3, &block);
}

int32_t set_white_list() {
  line_id_white_list list = {2, {258}, {5}, 1, 1, 1};
  list.onu_type[31] = 7;
  return line_id_set_trans_white_list(3, &list);
}

#define CALL(NAME, ...) [] { return line_id_##NAME(3, __VA_ARGS__); }

} // namespace

const std::vector<command_row>& command_rows() {
  static const std::vector<command_row> rows = {
      text_row(6, CALL(set_circuit_id_custom_format, LONGEST.data(), 256), LONGEST, 0, 256),
      text_row(7, CALL(set_remote_id_format, "%m", 2), "%m", 0, 256),
      text_row(8, CALL(set_option37_format, "%h_", 2), "%h", 0, 256),
      fixed(9, set_config_block,
            "\x09\x05\x01"s + padded("node", 50) + "\xFE\xFF\x03\x00"s + padded("up", 32) + "\x02\x01\x00\x0A"s +
                padded("host", 64)),
      fixed(10, set_mode_block, "\x07"s + padded("%a", 291) + "\x01"),
      text_row(11, CALL(set_ani_param, "an9", 3, 258, 4), "an9\x02\x01\x04\x00"s, 4, 54),
      text_row(12, CALL(set_ani_str, "an8", 3), "an8", 0, 50),
      fixed(13, CALL(set_rack_no, 0xFFFE), "\xFE\xFF"),
      fixed(14, CALL(set_frame_no, 258), "\x02\x01"),
      text_row(15, CALL(set_uplink_type, "eth", 3), "eth", 0, 32),
      fixed(16, CALL(set_manage_ip, 0xC0A80001), "\x01\x00\xA8\xC0"s),
      fixed(17, CALL(set_remoteid_core_cardinnermac, MAC, 6), MAC_TEXT),
      fixed(24, CALL(set_dhcp_valid_binding_count, 0x80000001), "\x01\x00\x00\x80"s),
      fixed(25, CALL(set_pppoe_valid_binding_count, 5), "\x05\x00\x00\x00"s),
      fixed(26, CALL(del_dhcp_anti_spoofing_entry_by_mac, MAC, 6), MAC_TEXT),
      fixed(27, CALL(del_pppoe_anti_spoofing_entry_by_mac, MAC, 6), MAC_TEXT),
      fixed(28, CALL(del_dhcp_anti_spoofing_entry_by_onu, 258, 7), "\x02\x01\x07\x00"s),
      fixed(29, CALL(del_pppoe_anti_spoofing_entry_by_onu, 258, 7), "\x02\x01\x07\x00"s),
      fixed(
          31, [] { return line_id_reset_statistics(3); }, ""),
      {32, CALL(override_param, 'z', "pinned", 6), "zpinned", 1, 51, -112, -157},
      fixed(33, CALL(unoverride_param, 'y'), "y"),
      fixed(35, set_white_list, "\x02\x02\x01"s + padded("", 60) + "\x07\x00\x05\x00\x00\x00"s),
      fixed(36, CALL(set_remote_id_enable_and_params, 1, MAC, 6), "\x01"s + MAC_TEXT),
      text_row(
          48, [] { return lineid_vlan_profile_cfg_add(3, 0, 64, 0, "%t", 2); },
          "\x00\x40\x00\x00\x00\x00\x00\x00\x00%t"s, 10, 265),
      fixed(
          49, [] { return lineid_vlan_profile_cfg_del(3, 1, 63); }, "\x01\x3F\x00\x00\x00"s),
  };
  return rows;
}
