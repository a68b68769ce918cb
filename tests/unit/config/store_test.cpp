// Setters and getters: what they accept, what they refuse, what follows from them.
#include "config/trap_rule.h"
#include "tests/unit/config/config_test.h"

namespace {

struct switch_row {
  const char* name;
  int32_t (*set)(uint8_t, uint8_t);
  int32_t (*get)(uint8_t);
  int highest;
  int protocol; // whose trap rule follows, or 0
};

const switch_row SWITCHES[] = {
    {"option82", line_id_set_option82_cfg, line_id_get_option82_enable_cfg, 1, 1},
    {"option18", line_id_set_option18_cfg, line_id_get_option18_enable_cfg, 1, 2},
    {"option37", line_id_set_option37_cfg, line_id_get_option37_enable_cfg, 1, 0},
    {"pppoe_plus", line_id_set_pppoe_plus_cfg, line_id_get_pppoe_plus_enable_cfg, 1, 3},
    {"remoteid", line_id_set_remoteid_cfg, line_id_get_remote_id_enable_cfg, 1, 0},
    {"format type", line_id_set_line_id_format_type_cfg, line_id_get_line_id_format_type_cfg, 2, 0},
    {"pppoe spoofing", line_id_set_pppoe_anti_spoofing_enable_cfg, line_id_get_pppoe_anti_spoofing_enable_cfg, 1, 0},
    {"dhcp spoofing", line_id_set_dhcp_anti_spoofing_enable_cfg, line_id_get_dhcp_anti_spoofing_enable_cfg, 1, 0},
    {"dhcp active", line_id_set_dhcp_anti_spoofing_active_cfg, line_id_get_dhcp_anti_spoofing_active_cfg, 1, 0},
    {"option82 trans", line_id_set_option82_transparent_cfg, line_id_get_option82_transparent_cfg, 1, 0},
    {"pppoe trans", line_id_set_pppoe_plus_transparent_cfg, line_id_get_pppoe_plus_transparent_cfg, 1, 0},
    {"circuitid", line_id_set_circuitid_cfg, line_id_get_circuitid_cfg, 1, 0},
};

using StoreTest = ConfigTest;

TEST_F(StoreTest, SwitchesKeepTheirRangeAndPushTheirTrapRule) {
  for (const switch_row& row : SWITCHES) {
    SCOPED_TRACE(row.name);
    trap_rules.clear();
    EXPECT_EQ(row.set(8, static_cast<uint8_t>(row.highest)), 0);
    for (const switch_row& other : SWITCHES) EXPECT_EQ(other.get(8), &other == &row ? row.highest : 0) << other.name;
    for (uint8_t other = 0; other < 8; ++other) EXPECT_EQ(row.get(other), 0);
    for (const int refused : {row.highest + 1, 255}) {
      EXPECT_EQ(row.set(8, static_cast<uint8_t>(refused)), -147);
      EXPECT_EQ(log_lines.back(), "param is error failed(param = " + std::to_string(refused) + ").\r\n");
    }
    EXPECT_EQ(row.get(8), row.highest);
    for (const uint8_t absent : {uint8_t{9}, uint8_t{255}}) {
      EXPECT_EQ(row.set(absent, 1), -147);
      EXPECT_EQ(row.get(absent), 0);
    }
    EXPECT_EQ(trap_rules, row.protocol == 0 ? trap_list{} : trap_list({{8, row.protocol, 1}}));
    EXPECT_EQ(row.set(8, 0), 0);
    EXPECT_EQ(row.get(8), 0);
  }
}

TEST_F(StoreTest, SingleSwitchTurnsTheTrapRuleOffWhileOthersNeedIt) {
  line_id_set_option82_cfg(0, 1);
  line_id_set_option82_cfg(1, 1);
  trap_rules.clear();
  line_id_set_option82_cfg(1, 0);
  EXPECT_EQ(trap_rules, (trap_list{{1, 1, 0}}));
}

TEST_F(StoreTest, Dhcp6TrapRuleStaysWhileEitherOptionIsOn) {
  line_id_set_option37_cfg(2, 1);
  line_id_set_option18_cfg(2, 0);
  EXPECT_EQ(trap_rules, (trap_list{{2, 2, 1}}));
  EXPECT_EQ(line_id_set_dhcp6_enable_cfg(2, 0), 0);
  EXPECT_EQ(line_id_get_dhcpv6_trap_rule(2), 0);
  EXPECT_EQ(line_id_set_dhcp6_enable_cfg(2, 1), 0);
  EXPECT_EQ(line_id_get_option37_enable_cfg(2), 1);
  EXPECT_EQ(trap_rules, (trap_list{{2, 2, 1}, {2, 2, 0}, {2, 2, 1}}));
  EXPECT_EQ(line_id_set_dhcp6_enable_cfg(2, 2), -147);
  EXPECT_EQ(line_id_get_dhcpv6_trap_rule(9), 0);

  g_device_if.trap_rule = nullptr;
  EXPECT_EQ(line_id_trap_rule_proc(2, 1, 1), 0);
  g_device_if.trap_rule = [](uint8_t, uint8_t, uint8_t) { return -7; };
  EXPECT_EQ(line_id_trap_rule_proc(2, 1, 1), -7);
  EXPECT_EQ(line_id_set_option82_cfg(2, 1), 0);
}

TEST_F(StoreTest, SettingsOfTheWholeAgent) {
  EXPECT_EQ(line_id_set_gemport_cfg(255, 1), 0);
  EXPECT_EQ(line_id_set_gemport_cfg(0, 2), -147);
  EXPECT_EQ(line_id_get_gemport_cfg(), 1);
  line_id_set_gemport_cfg(0, 0);

  EXPECT_EQ(line_id_set_remoteid_trans_enable_cfg(0, 1), 0);
  EXPECT_EQ(line_id_set_remoteid_trans_enable_cfg(0, 2), -147);
  EXPECT_EQ(log_lines.back(), "param is error failed(param = -147).\r\n");
  EXPECT_EQ(g_line_id_common_cfg[0].remoteid_trans_enable, 1);

  EXPECT_EQ(line_id_set_cfg_debug_cfg(2), -147);
  EXPECT_EQ(line_id_set_level_debug_cfg(3), -147);
  EXPECT_EQ(line_id_set_slot(4, 200), 0);
  EXPECT_EQ(line_id_get_slot(4), -56); // the octet, sign-extended
  EXPECT_EQ(line_id_set_slot(9, 1), -147);
  EXPECT_EQ(line_id_set_cust_mode_cfg(8, 4), 0);
  EXPECT_EQ(line_id_get_cust_mode_cfg(8), 4);
  EXPECT_EQ(line_id_set_cust_mode_cfg(9, 4), -147);
  EXPECT_EQ(line_id_get_cust_mode_cfg(9), 0);
}

TEST_F(StoreTest, Option18LevelChoosesTheStrip) {
  EXPECT_EQ(line_id_get_dhcpv6_option18_cfg(), 1) << "as the agent starts";
  EXPECT_EQ(line_id_set_dhcpv6_option18_cfg(0), 0);
  EXPECT_EQ(line_id_get_dhcpv6_tag_dn_strip_cfg(), 2);
  EXPECT_EQ(line_id_set_dhcpv6_option18_cfg(1), 0);
  EXPECT_EQ(line_id_get_dhcpv6_tag_dn_strip_cfg(), 1);
  EXPECT_EQ(line_id_set_dhcpv6_option18_cfg(2), -147);
  EXPECT_EQ(line_id_set_dhcpv6_option18_relay_strip_cfg(2), 0);
  EXPECT_EQ(line_id_get_dhcpv6_tag_dn_strip_cfg(), 2);
  EXPECT_EQ(line_id_set_dhcpv6_option18_relay_strip_cfg(0), -147);
  EXPECT_EQ(line_id_set_dhcpv6_option18_relay_strip_cfg(3), -147);
  for (const uint8_t strip : {uint8_t{1}, uint8_t{2}}) {
    line_id_set_dhcpv6_option18_relay_strip_cfg(strip);
    EXPECT_EQ(line_id_set_dhcpv6_option18_level(7), 0);
    EXPECT_EQ(line_id_get_dhcpv6_option18_cfg(), 7);
    EXPECT_EQ(line_id_get_dhcpv6_tag_dn_strip_cfg(), strip);
  }
  line_id_set_dhcpv6_option18_level(1);
}

TEST_F(StoreTest, TextsAreBoundedAndPadded) {
  const struct {
    const char* name;
    int32_t (*set)(uint8_t, const char*, uint32_t);
    int32_t (*get)(uint8_t, char*);
    uint32_t size;
    int null_result;
  } rows[] = {
      {ROW(circuit_id_custom_format), 256, -147},
      {ROW(remote_id_format), 256, -147},
      {ROW(option37_format), 256, -147},
      {ROW(ani_str), 50, -9},
      {ROW(uplink_type), 32, -147},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<char> full(row.size, 'x'); // exactly as long as the text: reading on is caught
    std::vector<char> read(row.size);
    EXPECT_EQ(row.set(5, full.data(), row.size), 0);
    EXPECT_EQ(row.get(5, read.data()), 0);
    EXPECT_EQ(read, full);

    EXPECT_EQ(row.set(5, full.data(), row.size + 1), -157);
    EXPECT_EQ(log_lines.back(), "failed(len = " + std::to_string(row.size + 1) + ").\r\n");
    EXPECT_EQ(row.set(5, nullptr, 1), row.null_result);
    EXPECT_EQ(row.set(9, full.data(), 1), -147);
    row.get(5, read.data());
    EXPECT_EQ(read, full) << "refused texts change nothing";

    EXPECT_EQ(row.set(5, "ab", 2), 0);
    std::vector<char> shorter = {'a', 'b'};
    shorter.resize(row.size);
    row.get(5, read.data());
    EXPECT_EQ(read, shorter);

    EXPECT_EQ(row.get(5, nullptr), -9);
    const bool is_option37 = row.get == line_id_get_option37_format_cfg; // speaks like a setter
    const std::string words = "line_id_get_" + std::string(row.name) + "_cfg failed(-9).\r\n";
    EXPECT_EQ(log_lines.back(), is_option37 ? "param is error failed(param = -9).\r\n" : words);
    EXPECT_EQ(row.get(9, read.data()), -9);
  }
  for (const int set : {20, 23}) EXPECT_EQ(texts(set, "au"), "|ab|ab|") << set;
  EXPECT_EQ(texts(19, "a"), "||");
}

TEST_F(StoreTest, NumbersReachTheParameters) {
  EXPECT_EQ(line_id_set_rack_no_cfg(1, 40000), 0);
  EXPECT_EQ(line_id_get_rack_no_cfg(1), -25536);
  EXPECT_EQ(line_id_set_frame_no_cfg(1, 65535), 0);
  EXPECT_EQ(line_id_get_frame_no_cfg(1), -1);
  EXPECT_EQ(line_id_set_manage_ip_cfg(1, 0xC0A80001), 0);
  uint32_t address = 0;
  EXPECT_EQ(line_id_get_manage_ip_cfg(1, &address), 0);
  EXPECT_EQ(address, 0xC0A80001);
  EXPECT_EQ(texts(4, "rfO"), "|-25536|-1|192.168.0.1|");
  EXPECT_EQ(line_id_get_manage_ip_cfg(1, nullptr), -9);
  EXPECT_EQ(line_id_set_dhcp_valid_binding_count_cfg(1, 0xFFFFFFFF), 0);
  EXPECT_EQ(line_id_set_pppoe_valid_binding_count_cfg(1, 7), 0);
  EXPECT_EQ(line_id_get_dhcp_valid_binding_count_cfg(1), 0xFFFFFFFF);
  EXPECT_EQ(line_id_get_pppoe_valid_binding_count_cfg(1), 7u);

  EXPECT_EQ(line_id_set_rack_no_cfg(9, 1), -147);
  EXPECT_EQ(line_id_set_manage_ip_cfg(255, 1), -147);
  EXPECT_EQ(line_id_get_manage_ip_cfg(255, &address), -9);
  EXPECT_EQ(line_id_get_frame_no_cfg(9), 0);
  EXPECT_EQ(line_id_get_dhcp_valid_binding_count_cfg(9), 0u);
}

TEST_F(StoreTest, AniParam) {
  const std::vector<char> full(51, 'y');
  EXPECT_EQ(line_id_set_ani_param_cfg(0, full.data(), 50, 3, 4), 0);
  EXPECT_EQ(texts(3, "arf"), "|" + std::string(50, 'y') + "|3|4|");
  EXPECT_EQ(line_id_get_frame_no_cfg(0), 4);
  EXPECT_EQ(line_id_set_ani_param_cfg(0, nullptr, 0, 9, 9), -157);
  EXPECT_EQ(line_id_set_ani_param_cfg(0, full.data(), 51, 9, 9), -157);
  EXPECT_EQ(log_lines.back(), "ani_str is NULL or len exceeded,failed(len = 51).\r\n");
  EXPECT_EQ(line_id_set_ani_param_cfg(9, "a", 1, 9, 9), -147);
  EXPECT_EQ(line_id_get_rack_no_cfg(0), 3);
}

TEST_F(StoreTest, CoreCardMac) {
  const std::vector<uint8_t> mac = {0x00, 0x1A, 0xFF, 0x02, 0x03, 0x04};
  EXPECT_EQ(line_id_set_remoteid_core_cardinnermac_cfg(0, mac.data(), 6), 0);
  EXPECT_EQ(texts(0, "z"), "|001aff020304|");
  EXPECT_EQ(line_id_set_remoteid_core_cardinnermac_cfg(0, nullptr, 6), -147);
  EXPECT_EQ(line_id_set_remoteid_core_cardinnermac_cfg(0, mac.data(), 5), -112);
  EXPECT_EQ(line_id_set_remoteid_core_cardinnermac_cfg(9, mac.data(), 6), -147);

  EXPECT_EQ(line_id_set_remote_id_enable_and_params_cfg(1, 1, mac.data(), 6), 0);
  EXPECT_EQ(line_id_get_remote_id_enable_cfg(1), 1);
  EXPECT_EQ(texts(5, "z"), "|001aff020304|");
  EXPECT_EQ(line_id_set_remote_id_enable_and_params_cfg(1, 0, nullptr, 6), -9);
  EXPECT_EQ(line_id_set_remote_id_enable_and_params_cfg(1, 0, mac.data(), 7), -112);
  EXPECT_EQ(line_id_set_remote_id_enable_and_params_cfg(1, 2, nullptr, 7), -147);
  EXPECT_EQ(log_lines.back(), "param is error failed(param = -147).\r\n");
  EXPECT_EQ(line_id_set_remote_id_enable_and_params_cfg(9, 1, mac.data(), 6), -147);
  EXPECT_EQ(line_id_get_remote_id_enable_cfg(1), 1);
}

TEST_F(StoreTest, OverridePinsAndReleaseIsGlobal) {
  const std::string full(51, 'p');
  EXPECT_EQ(line_id_override_param_cfg(0, 'Y', full.c_str(), 50), 0);
  EXPECT_EQ(texts(3, "Y"), "|" + std::string(50, 'p') + "|");
  EXPECT_EQ(line_id_override_param_cfg(0, 'Y', full.c_str(), 51), -157);
  EXPECT_EQ(line_id_override_param_cfg(0, 'Y', nullptr, 0), -9);
  EXPECT_EQ(line_id_override_param_cfg(9, 'Y', "z", 1), -147);
  EXPECT_EQ(line_id_override_param_cfg(0, '[', "z", 1), 0) << "no such letter: nothing is written";
  EXPECT_EQ(line_id_override_param_cfg(8, 'Y', "q", 1), 0);
  EXPECT_EQ(line_id_write_param(0, 'Y', "new", 1), -113);
  EXPECT_EQ(line_id_write_param(35, 'Y', "new", 1), -113);
  EXPECT_EQ(line_id_write_param(4, 'Y', "new", 1), 0);
  EXPECT_EQ(line_id_unoverride_param_cfg('Y'), 0);
  EXPECT_EQ(line_id_write_param(0, 'Y', "new", 1), 0);
  EXPECT_EQ(line_id_write_param(35, 'Y', "new", 1), 0);
  EXPECT_EQ(line_id_unoverride_param_cfg(255), 0);
}

TEST_F(StoreTest, BindingDeletionsNeedAWholeMac) {
  const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(line_id_del_dhcp_anti_spoofing_entry_by_mac_cfg(2, nullptr, 6), -9);
  EXPECT_EQ(line_id_del_pppoe_anti_spoofing_entry_by_mac_cfg(2, nullptr, 6), -147);
  EXPECT_EQ(line_id_del_dhcp_anti_spoofing_entry_by_mac_cfg(2, mac, 5), -112);
  EXPECT_EQ(line_id_del_pppoe_anti_spoofing_entry_by_mac_cfg(2, mac, 7), -112);
  EXPECT_EQ(log_lines[0], "line_id_del_dhcp_anti_spoofing_entry_by_mac_cfg failed(-9).\r\n");
  EXPECT_EQ(log_lines[3], "failed(len = 7).\r\n");
}

} // namespace
