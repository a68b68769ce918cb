// Built-in profiles, and what applying a table does and refuses.
#include "config/customer_profile.h"

#include "tests/unit/config/config_test.h"

namespace {

class ProfileTest : public ConfigTest {
protected:
  void SetUp() override {
    ConfigTest::SetUp();
    table.fmt_list = &formats;
    ASSERT_EQ(line_id_obtain_cust_cfg_table_content(1, 0, &table), 0);
  }
  line_id_fmt_list formats = {};
  line_id_ex_cfg_table table = {};
};

// Where an entry stands, counted without the format list.
size_t octet_of(size_t entry) { return entry < 17 ? entry : entry + sizeof(void*); }

// A table's entries as text: registrations, enables and traces, then what lies behind the format list.
std::string entries(const line_id_ex_cfg_table& table) {
  uint8_t octets[sizeof(table)];
  std::memcpy(octets, &table, sizeof(table));
  std::string text;
  for (size_t entry = 0; octet_of(entry) < sizeof(table); ++entry) {
    if (entry == 5 || entry == 17) text += ' ';
    text += static_cast<char>('0' + octets[octet_of(entry)]);
  }
  return text;
}

TEST_F(ProfileTest, EveryModeAndTechnology) {
  const struct {
    uint8_t mode;
    std::vector<uint8_t> techs;
    const char *entries, *remote_id, *option37;
  } rows[] = {
      {1, {0, 1, 4}, "11111 000010000000 100000111000000", "%h", "%h"},
      {1, {2, 3}, "11122 000010000000 100202111000000", "", "%m"},
      {2, {0, 1, 2, 3, 4}, "11122 000010000000 101212001010000", "", ""},
      {3, {0, 1, 4}, "11122 000010000000 111111110000000", "%m", "%m"},
      {3, {2, 3}, "11122 000010000000 111111111000000", "%m", "%m"},
      {4, {0, 1, 2, 3, 4}, "11122 000010000000 121111111000000", "%m", "%m"},
  };
  for (const auto& row : rows) {
    for (const uint8_t tech : row.techs) {
      SCOPED_TRACE(testing::Message() << "mode " << int{row.mode} << " tech " << int{tech});
      std::memset(&formats, 'x', sizeof(formats));
      EXPECT_EQ(line_id_obtain_cust_cfg_table_content(row.mode, tech, &table), 0);
      EXPECT_EQ(entries(table), row.entries);
      EXPECT_EQ(table.fmt_list, &formats);
      line_id_fmt_list expected = {};
      std::strcpy(expected.remote_id, row.remote_id);
      std::strcpy(expected.option37, row.option37);
      EXPECT_EQ(std::memcmp(&formats, &expected, 768), 0);
    }
  }
}

TEST_F(ProfileTest, RefusedFetchLeavesTheTable) {
  std::memset(&formats, 'x', sizeof(formats));
  const std::string before = entries(table);
  EXPECT_EQ(line_id_obtain_cust_cfg_table_content(0, 0, &table), -13);
  EXPECT_EQ(line_id_obtain_cust_cfg_table_content(5, 0, &table), -13);
  EXPECT_EQ(line_id_obtain_cust_cfg_table_content(2, 5, &table), -14);
  EXPECT_EQ(entries(table), before);
  EXPECT_EQ(formats.circuit_id[0], 'x');
  line_id_ex_cfg_table no_formats = {};
  EXPECT_EQ(line_id_obtain_cust_cfg_table_content(2, 0, nullptr), -9);
  EXPECT_EQ(line_id_obtain_cust_cfg_table_content(2, 0, &no_formats), -9);

  int32_t (*const builders[])(uint8_t, line_id_ex_cfg_table*) = {
      line_id_obtain_olt_cfg_table_content, line_id_obtain_sfu_cfg_table_content, line_id_obtain_mdu_cfg_table_content,
      line_id_obtain_dsl_cfg_table_content};
  log_lines.clear();
  for (const auto build : builders) {
    EXPECT_EQ(build(5, nullptr), -14);
    EXPECT_EQ(build(4, nullptr), -9);
    EXPECT_EQ(build(4, &no_formats), -9);
  }
  EXPECT_EQ(log_lines[1], "ex_cfg_table  is NULL, failed(-9).\r\n");
  EXPECT_EQ(log_lines[2], "fmt_list  is NULL, failed(-9).\r\n");
}

TEST_F(ProfileTest, ApplyingATableSetsEverything) {
  std::memset(&formats, 'c', 256); // no terminator
  std::strcpy(formats.remote_id, "remote");
  std::strcpy(formats.option37, "thirty-seven");
  table.option82_enable = table.option37_enable = table.dhcp_anti_spoofing_active = 1;
  table.dhcpv6_debug = 1;
  table.line_id_format_type = 2;
  table.pkt_exception_policy = 1;
  g_line_id_statics[5] = 5;
  EXPECT_EQ(line_id_register_common_cfg_func(6, &table), 0);
  EXPECT_EQ(trap_rules, (trap_list{{6, 1, 1}, {6, 2, 0}, {6, 3, 0}})); // Option 37 comes after Option 18
  EXPECT_EQ(line_id_get_option82_enable_cfg(6), 1);
  EXPECT_EQ(line_id_get_circuitid_cfg(6), 1);
  EXPECT_EQ(line_id_get_dhcp_anti_spoofing_active_cfg(6), 1);
  EXPECT_EQ(line_id_get_line_id_format_type_cfg(6), 2);
  EXPECT_EQ(line_id_get_pkt_exception_policy_cfg(), 1);
  EXPECT_EQ(g_line_id_debug_bits, 0x40u);
  EXPECT_EQ(std::memcmp(g_line_id_common_cfg[6].circuit_id_custom_format, formats.circuit_id, 256), 0);
  EXPECT_STREQ(g_line_id_common_cfg[6].remote_id_format, "remote");
  EXPECT_STREQ(g_line_id_common_cfg[6].option37_format, "thirty-seven");
  EXPECT_EQ(g_line_id_statics[5], 0u);
}

TEST_F(ProfileTest, EachStepHasItsCode) {
  const int codes[] = {-63, -64, -65, -66, -67, // in the order of the entries
                       -46, -48, -49, -50, -51, -52, -53, -54, -55, -56, -57, -58,
                       -52, -68, -69, -70, -71, -72, -73, -74, -75, -76, -77};
  for (size_t entry = 0; entry < std::size(codes); ++entry) {
    SCOPED_TRACE(entry);
    const int code = codes[entry];
    const bool is_policy = code <= -63;
    line_id_ex_cfg_table bad = table;
    reinterpret_cast<uint8_t*>(&bad)[octet_of(entry)] = 77;
    EXPECT_EQ(line_id_init_policy_cfg_func(&bad), is_policy ? code : 0);
    EXPECT_EQ(line_id_init_until_cfg_func(0, &bad), is_policy ? 0 : code);
    const std::string words = entry == 17 ? "line_id_set_line_id_format_type_cfg failed(" : "_cfg failed(";
    EXPECT_NE(log_lines.back().find(words + std::to_string(code) + ").\r\n"), std::string::npos) << log_lines.back();
    EXPECT_EQ(line_id_register_common_cfg_func(0, &bad), is_policy ? -79 : -80);
  }
  EXPECT_EQ(line_id_init_until_cfg_func(9, &table), -46);
  EXPECT_EQ(log_lines.back(), "line_id_set_option82_cfg failed(-46).\r\n");
  EXPECT_EQ(line_id_register_common_cfg_func(0, nullptr), -9);
  g_device_if.param_provider = [](uint8_t, line_id_param_write_func, line_id_inf_info*) { return -1; };
  EXPECT_EQ(line_id_register_common_cfg_func(0, &table), -78);
}

TEST_F(ProfileTest, StartUpWithAndWithoutATable) {
  EXPECT_EQ(line_id_cfg_data_init(0, 1, nullptr), 0);
  EXPECT_EQ(line_id_get_cust_mode_cfg(0), 1);
  EXPECT_STREQ(g_line_id_common_cfg[0].remote_id_format, "%h");
  EXPECT_NE(g_line_id_ptl_reg_func.dhcp4_agent, nullptr);
  EXPECT_NE(g_line_id_ptl_reg_func.dhcp_spoof_oper, nullptr);

  EXPECT_EQ(line_id_cfg_data_init(0, 0, nullptr), -81);
  EXPECT_EQ(line_id_get_cust_mode_cfg(0), 1);
  table.dhcp_reg = 2;
  EXPECT_EQ(line_id_cfg_data_init(0, 0, &table), 0);
  EXPECT_EQ(line_id_get_cust_mode_cfg(0), 0);
  EXPECT_EQ(g_line_id_ptl_reg_func.dhcp4_agent, nullptr);
  EXPECT_EQ(line_id_cfg_data_init(9, 1, &table), -80);
}

TEST_F(ProfileTest, BuiltInMduProfileNeedsAdjusting) {
  log_lines.clear();
  EXPECT_EQ(line_id_cfg_data_init(0, 3, nullptr), -79);
  EXPECT_EQ(log_lines, (std::vector<std::string>{"line_id_set_dhcpv6_tag_dn_strip_cfg failed(-75).\r\n",
                                                 "line_id_init_policy_cfg_func failed(-79).\r\n",
                                                 "line_id_register_common_cfg_func failed(-79).\r\n"}));
  EXPECT_EQ(line_id_get_dhcp_tag_dn_strip_cfg(), 1) << "what came before the refusal stays";
  line_id_obtain_cust_cfg_table_content(3, 0, &table);
  table.dhcpv6_tag_dn_strip = 1;
  EXPECT_EQ(line_id_cfg_data_init(0, 3, &table), 0);
}

} // namespace
