// The rows of all set commands.
#include "tests/unit/channel/commands.h"

#include "config/policy.h"
#include "config/statistics.h"
#include "config/store.h"
#include "config/white_list.h"
#include "core/log.h"
#include "lineid/params.h"
#include "packet/protocol_table.h"
#include "tests/unit/channel/channel_test.h"

#include <cstring>

std::string g_spoof_operations;

namespace {

constexpr uint8_t MAC[] = {0, 0x11, 0x22, 0x33, 0x44, 0x55};
const std::string MAC_TEXT("\0\x11\x22\x33\x44\x55", 6);
const std::string LONGEST(256, 'x');

std::string num(int64_t value) { return std::to_string(value); }
std::string level() { return num(g_line_id_dbg_level); }
std::string bits() { return num(g_line_id_debug_bits); }
std::string spoof() { return g_spoof_operations; }
std::string letter(char which) { return line_id_get_param_text(12, which); }
std::string text(const char* field, size_t size) { return {field, strnlen(field, size)}; }
const line_id_common_cfg& cfg() { return g_line_id_common_cfg[3]; }

std::string operation(const char* table, uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac) {
  std::string line = table + num(oltid) + "/" + num(op) + "/" + num(pon) + "/" + num(onu);
  if (mac != nullptr) line += "/" + num(mac[1]) + "-" + num(mac[5]);
  return line;
}

line_id_circuit_id_config config_block() {
  line_id_circuit_id_config block = {};
  block.slot = 9;
  block.enable = LINE_ID_ENABLE_OPTION82 | LINE_ID_ENABLE_OPTION37;
  block.pppoe_plus_enable = 1;
  std::strcpy(block.ani_str, "node");
  block.rack_no = -2;
  block.frame_no = 3;
  std::strcpy(block.uplink_type, "up");
  block.manage_ip = 0x0A000102;
  std::strcpy(block.hostname, "host");
  return block;
}

std::string config_octets() {
  return "\x09\x05\x01"s + padded("node", 50) + "\xFE\xFF\x03\x00"s + padded("up", 32) + "\x02\x01\x00\x0A"s +
         padded("host", 64);
}

line_id_circuit_id_format_mode mode_block() {
  line_id_circuit_id_format_mode block = {};
  block.line_id_format_type = 7;
  std::strcpy(block.custom_format, "%a");
  block.reserved[35] = 1;
  return block;
}

line_id_white_list white_list() {
  line_id_white_list list = {};
  list.num = 2;
  list.onu_type[0] = 258;
  list.onu_type[31] = 7;
  list.reserved[0] = 5;
  list.trans_policy = list.dhcp_enable = list.pppoe_enable = 1;
  return list;
}

// One octet, exactly; CALL is the client call's stem.
#define ENABLE(code, CALL, VALUE, GET, BEFORE, AFTER)                                                                  \
  {                                                                                                                    \
    code, [] { return line_id_set_##CALL(3, VALUE); }, std::string(1, VALUE), 1, 1, -112, -112, [] { return GET; },    \
        BEFORE, AFTER                                                                                                  \
  }
#define SWITCH(code, CALL) ENABLE(code, CALL, 1, num(line_id_get_##CALL##_cfg(3)), "0", "1")

} // namespace

void record_spoof_operations() {
  g_spoof_operations.clear();
  g_line_id_ptl_reg_func.dhcp_spoof_oper = [](uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu,
                                              const uint8_t* mac) {
    g_spoof_operations = operation("dhcp ", oltid, op, pon, onu, mac);
    return 0;
  };
  g_line_id_ptl_reg_func.pppoe_spoof_oper = [](uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu,
                                               const uint8_t* mac) {
    g_spoof_operations = operation("pppoe ", oltid, op, pon, onu, mac);
    return 0;
  };
}

const std::vector<command_row>& command_rows() {
  static const std::vector<command_row> rows = {
      SWITCH(0, option82_enable),
      SWITCH(1, option18_enable),
      SWITCH(2, option37_enable),
      SWITCH(3, pppoe_plus_enable),
      SWITCH(4, remote_id_enable),
      ENABLE(5, line_id_format_type, 2, num(line_id_get_line_id_format_type_cfg(3)), "0", "2"),
      {6, [] { return line_id_set_circuit_id_custom_format(3, LONGEST.data(), 256); }, LONGEST, 0, 256, -157, -157,
       [] { return text(cfg().circuit_id_custom_format, 256); }, "", LONGEST},
      {7, [] { return line_id_set_remote_id_format(3, "%m", 2); }, "%m", 0, 256, -157, -157,
       [] { return text(cfg().remote_id_format, 256); }, "", "%m"},
      {8, [] { return line_id_set_option37_format(3, "%h_", 2); }, "%h", 0, 256, -157, -157,
       [] { return text(cfg().option37_format, 256); }, "", "%h"},
      {9,
       [] {
         const line_id_circuit_id_config block = config_block();
         return volt_line_id_set_circuit_id_config(3, &block);
       },
       config_octets(), 157, 157, -112, -112,
       [] {
         return num(cfg().slot) + num(cfg().option82_enable) + num(cfg().option18_enable) + num(cfg().option37_enable) +
                num(cfg().pppoe_plus_enable) + " " + text(cfg().ani_str, 50) + " " + num(cfg().rack_no) + " " +
                num(cfg().frame_no) + " " + text(cfg().uplink_type, 32) + " " + letter('O') + " " +
                text(cfg().hostname, 64);
       },
       "00000  0 0   ", "91011 node -2 3 up 10.0.1.2 host"},
      {10,
       [] {
         const line_id_circuit_id_format_mode block = mode_block();
         return volt_line_id_set_circuit_id_format_mode(3, &block);
       },
       "\x07"s + padded("%a", 291) + "\x01", 293, 293, -112, -112,
       [] { return num(cfg().line_id_format_type) + text(cfg().circuit_id_custom_format, 256); }, "0", "7%a"},
      {11, [] { return line_id_set_ani_param(3, "an9", 3, 258, 4); }, "an9\x02\x01\x04\x00"s, 4, 54, -157, -157,
       [] { return letter('a') + " " + letter('r') + " " + letter('f'); }, "  ", "an9 258 4"},
      {12, [] { return line_id_set_ani_str(3, "an8", 3); }, "an8", 0, 50, -157, -157,
       [] { return text(cfg().ani_str, 50); }, "", "an8"},
      {13, [] { return line_id_set_rack_no(3, 0xFFFE); }, "\xFE\xFF", 2, 2, -112, -112,
       [] { return num(line_id_get_rack_no_cfg(3)); }, "0", "-2"},
      {14, [] { return line_id_set_frame_no(3, 258); }, "\x02\x01", 2, 2, -112, -112,
       [] { return num(line_id_get_frame_no_cfg(3)); }, "0", "258"},
      {15, [] { return line_id_set_uplink_type(3, "eth", 3); }, "eth", 0, 32, -157, -157, [] { return letter('u'); },
       "", "eth"},
      {16, [] { return line_id_set_manage_ip(3, 0xC0A80001); }, "\x01\x00\xA8\xC0"s, 4, 4, -112, -112,
       [] { return letter('O'); }, "", "192.168.0.1"},
      {17, [] { return line_id_set_remoteid_core_cardinnermac(3, MAC, 6); }, MAC_TEXT, 6, 6, -112, -112,
       [] { return num(cfg().corecard_inner_mac[5]); }, "0", "85"},
      ENABLE(18, dhcpv4_debug, 1, bits(), "0", "32"),
      ENABLE(19, dhcpv6_debug, 1, bits(), "0", "64"),
      ENABLE(20, pppoe_plus_debug, 1, bits(), "0", "128"),
      SWITCH(21, pppoe_anti_spoofing_enable),
      SWITCH(22, dhcp_anti_spoofing_enable),
      SWITCH(23, dhcp_anti_spoofing_active),
      {24, [] { return line_id_set_dhcp_valid_binding_count(3, 0x80000001); }, "\x01\x00\x00\x80"s, 4, 4, -112, -112,
       [] { return num(line_id_get_dhcp_valid_binding_count_cfg(3)); }, "0", "2147483649"},
      {25, [] { return line_id_set_pppoe_valid_binding_count(3, 5); }, "\x05\x00\x00\x00"s, 4, 4, -112, -112,
       [] { return num(line_id_get_pppoe_valid_binding_count_cfg(3)); }, "0", "5"},
      {26, [] { return line_id_del_dhcp_anti_spoofing_entry_by_mac(3, MAC, 6); }, MAC_TEXT, 6, 6, -112, -112, spoof, "",
       "dhcp 3/2/0/0/17-85"},
      {27, [] { return line_id_del_pppoe_anti_spoofing_entry_by_mac(3, MAC, 6); }, MAC_TEXT, 6, 6, -112, -112, spoof,
       "", "pppoe 3/2/0/0/17-85"},
      {28, [] { return line_id_del_dhcp_anti_spoofing_entry_by_onu(3, 258, 7); }, "\x02\x01\x07\x00"s, 4, 4, -112, -112,
       spoof, "", "dhcp 3/3/258/7"},
      {29, [] { return line_id_del_pppoe_anti_spoofing_entry_by_onu(3, 258, 7); }, "\x02\x01\x07\x00"s, 4, 4, -112,
       -112, spoof, "", "pppoe 3/3/258/7"},
      SWITCH(30, option82_transparent),
      {31, [] { return line_id_reset_statistics(3); }, "", 0, 0, -112, -112,
       [] { return num(line_id_statics_value(10)); }, "1", "0"},
      {32, [] { return line_id_override_param(3, 'z', "pinned", 6); }, "zpinned", 1, 51, -112, -157,
       [] { return letter('z') + num(g_params[15].flag[line_id_param_slot('z')]); }, "0", "pinned2"},
      {33, [] { return line_id_unoverride_param(3, 'y'); }, "y", 1, 1, -112, -112,
       [] { return num(g_params[15].flag[line_id_param_slot('y')]) + num(g_params[0].flag[line_id_param_slot('y')]); },
       "22", "00"},
      ENABLE(34, remoteid_trans_enable, 1, num(cfg().remoteid_trans_enable), "0", "1"),
      {35,
       [] {
         const line_id_white_list list = white_list();
         return line_id_set_trans_white_list(3, &list);
       },
       "\x02\x02\x01"s + padded("", 60) + "\x07\x00\x05\x00\x00\x00"s, 69, 69, -112, -112,
       [] {
         const line_id_white_list& list = g_trans_white_list_obj;
         return num(list.num) + " " + num(list.onu_type[0]) + " " + num(list.onu_type[31]) + " " +
                num(list.trans_policy) + num(list.dhcp_enable) + num(list.pppoe_enable);
       },
       "0 0 0 000", "2 258 7 000"},
      {36, [] { return line_id_set_remote_id_enable_and_params(3, 1, MAC, 6); }, "\x01"s + MAC_TEXT, 7, 7, -112, -112,
       [] { return num(cfg().remoteid_enable) + num(cfg().corecard_inner_mac[5]); }, "00", "185"},
      SWITCH(37, pppoe_plus_transparent),
      ENABLE(38, lineid_debug, 1, bits(), "0", "2"),
      ENABLE(39, comm_tx_debug, 1, bits(), "0", "4"),
      ENABLE(40, comm_rx_debug, 1, bits(), "0", "8"),
      ENABLE(41, cfg_debug, 1, bits(), "0", "16"),
      ENABLE(42, all_debug, 1, bits(), "0", "510"),
      ENABLE(43, level_debug, 2, level(), "0", "2"),
      ENABLE(44, dhcpv6_enable, 1, num(cfg().option37_enable) + num(cfg().option18_enable), "00", "11"),
      ENABLE(45, device_debug, 1, bits(), "0", "256"),
      ENABLE(46, dhcpv6_option18, 0, num(line_id_get_dhcpv6_option18_cfg()), "1", "0"),
      ENABLE(47, dhcpv6_option18_relay_strip, 2, num(line_id_get_dhcpv6_tag_dn_strip_cfg()), "1", "2"),
      {48, [] { return lineid_vlan_profile_cfg_add(3, 0, 64, 0, "%t", 2); }, "\x00\x40\x00\x00\x00\x00\x00\x00\x00%t"s,
       10, 265, -157, -157, [] { return text(cfg().vlan_circuit_format[64], 256); }, "", "%t"},
      {49, [] { return lineid_vlan_profile_cfg_del(3, 1, 63); }, "\x01\x3F\x00\x00\x00"s, 5, 5, -112, -112,
       [] { return text(cfg().vlan_remote_format[63], 256); }, "gone", ""},
      ENABLE(50, gemport_enable, 1, num(line_id_get_gemport_cfg()), "0", "1"),
  };
  return rows;
}
