// Counting rules, and the reports octet for octet.
#include "config/reports.h"
#include "tests/unit/config/config_test.h"

namespace {

using StatisticsTest = ConfigTest;

using indexes = std::vector<uint32_t>;

// Of the counters that are not 0, each of which must be 1.
indexes counted_once() {
  indexes found;
  for (uint32_t i = 0; i < 65579; ++i) {
    if (g_line_id_statics[i] == 0) continue;
    EXPECT_EQ(g_line_id_statics[i], 1u) << i;
    found.push_back(i);
  }
  line_id_reset_statistics_cfg();
  return found;
}

TEST_F(StatisticsTest, ProcessedAndDroppedFrames) {
  const struct {
    uint8_t direction;
    int8_t protocol;
    indexes processed, passed, dropped;
  } rows[] = {
      {1, 1, {0, 1}, {0, 19}, {9, 10}},
      {2, 1, {0, 2}, {0, 20}, {9, 11}},
      {1, 2, {3, 4}, {3, 22}, {15, 16}},
      {2, 2, {3, 5}, {3, 23}, {12, 14}}, // upstream drops cross over
      {1, 3, {6, 7}, {6, 25}, {12, 13}},
      {2, 3, {6, 8}, {6, 26}, {15, 17}},
      {0, 1, {}, {}, {}},
      {3, 3, {}, {}, {}},
      {1, 0, {}, {}, {}},
      {2, 4, {}, {}, {}},
      {1, -1, {}, {}, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << int{row.direction} << " " << int{row.protocol});
    line_id_inc_processed_pkt_count(row.direction, row.protocol, 0);
    EXPECT_EQ(counted_once(), row.processed);
    line_id_inc_processed_pkt_count(row.direction, row.protocol, 0xFF);
    EXPECT_EQ(counted_once(), row.passed);
    EXPECT_EQ(line_id_inc_drop_pkt_count(row.direction, row.protocol), 0);
    EXPECT_EQ(counted_once(), row.dropped);
  }
}

TEST_F(StatisticsTest, PlainIncrements) {
  void (*const adds[])() = {
      line_id_dhcpv4_pkt_processed_add, line_id_dhcpv4_pkt_processed_up_add, line_id_dhcpv4_pkt_processed_dn_add,
      line_id_dhcpv6_pkt_processed_add, line_id_dhcpv6_pkt_processed_up_add, line_id_dhcpv6_pkt_processed_dn_add,
      line_id_pppoe_pkt_processed_add,  line_id_pppoe_pkt_processed_up_add,  line_id_pppoe_pkt_processed_dn_add,
      line_id_dhcpv4_pkt_dropped_add,   line_id_dhcpv4_pkt_dropped_up_add,   line_id_dhcpv4_pkt_dropped_dn_add,
      line_id_dhcpv6_pkt_dropped_add,   line_id_dhcpv6_pkt_dropped_up_add,   line_id_dhcpv6_pkt_dropped_dn_add,
      line_id_pppoe_pkt_dropped_add,    line_id_pppoe_pkt_dropped_up_add,    line_id_pppoe_pkt_dropped_dn_add,
  };
  for (uint32_t i = 0; i < 18; ++i) {
    adds[i]();
    EXPECT_EQ(counted_once(), indexes{i});
  }
}

TEST_F(StatisticsTest, PppoeCountsStayWithinTheVlans) {
  const auto tables = {line_id_inc_pppoe_recv_pkt_count, line_id_inc_pppoe_forwd_pkt_count,
                       line_id_inc_pppoe_drop_pkt_count};
  EXPECT_EQ(line_id_inc_pppoe_recv_pkt_count(0, 0x09, 100), -1) << "PPPoE+ is off";
  line_id_set_pppoe_plus_cfg(0, 1);
  EXPECT_EQ(line_id_inc_pppoe_recv_pkt_count(1, 0x09, 100), -1) << "of another instance";
  EXPECT_EQ(line_id_inc_pppoe_recv_pkt_count(9, 0x09, 100), -1);
  for (const int vlan : {0, 4097, 65535}) {
    for (const auto count : tables) EXPECT_EQ(count(0, 0x09, static_cast<uint16_t>(vlan)), -1) << vlan;
  }
  EXPECT_EQ(counted_once(), indexes{});
  constexpr uint8_t CODES[] = {0x09, 0x19, 0xA7, 0x07, 0x65};
  uint32_t first = 4124; // of the counters of one table and code
  for (const auto count : tables) {
    for (const uint8_t code : CODES) {
      for (const uint16_t vlan : {uint16_t{1}, uint16_t{4096}}) {
        EXPECT_EQ(count(0, code, vlan), 0);
        EXPECT_EQ(g_line_id_statics[27 + vlan], vlan);
        g_line_id_statics[27 + vlan] = 0;
        EXPECT_EQ(counted_once(), indexes{first + vlan});
      }
      first += 4097;
    }
  }
  EXPECT_EQ(line_id_inc_pppoe_drop_pkt_count(0, 0x55, 1), 0) << "another code marks the VLAN only";
  EXPECT_EQ(counted_once(), indexes{28});
}

constexpr char TOTALS[] = "\r\npacket statistics is:\r\n"
                          "dhcpv4_pkt_processed:0\r\ndhcpv4_pkt_processed__up:1\r\ndhcpv4_pkt_processed_dn:2\r\n"
                          "dhcpv6_pkt_processed:3\r\ndhcpv6_pkt_processed__up:4\r\ndhcpv6_pkt_processed_dn:5\r\n"
                          "pppoe_pkt_processed:6\r\npppoe_pkt_processed__up:7\r\npppoe_pkt_processed_dn:8\r\n"
                          "dhcpv4_pkt_dropped:9\r\ndhcpv4_pkt_dropped__up:10\r\ndhcpv4_pkt_dropped_dn:11\r\n"
                          "dhcpv6_pkt_dropped:12\r\ndhcpv6_pkt_dropped__up:13\r\ndhcpv6_pkt_dropped_dn:14\r\n"
                          "pppoe_pkt_dropped:15\r\npppoe_pkt_dropped__up:16\r\npppoe_pkt_dropped_dn:17\r\n"
                          "dhcpv4_pkt_pass_through:18\r\ndhcpv4_pkt_pass_through_up:19\r\n"
                          "dhcpv4_pkt_pass_through_dn:20\r\n"
                          "dhcpv6_pkt_pass_through:21\r\ndhcpv6_pkt_pass_through_up:22\r\n"
                          "dhcpv6_pkt_pass_through_dn:23\r\n"
                          "pppoe_pkt_pass_through:24\r\npppoe_pkt_pass_through_up:25\r\n"
                          "pppoe_pkt_pass_through_dn:-1\r\n";

TEST_F(StatisticsTest, StatisticsReport) {
  for (uint32_t i = 0; i < 26; ++i) g_line_id_statics[i] = i;
  g_line_id_statics[26] = 0xFFFFFFFF;
  EXPECT_EQ(printed([] { line_id_show_pkt_statistics_cfg(0); }), TOTALS);

  line_id_set_pppoe_plus_cfg(0, 1);
  for (int i = 0; i < 12; ++i) line_id_inc_pppoe_recv_pkt_count(0, 0x09, 4096);
  line_id_inc_pppoe_forwd_pkt_count(0, 0x65, 4096);
  line_id_inc_pppoe_drop_pkt_count(0, 0xA7, 4096);
  EXPECT_EQ(printed([] { line_id_show_pkt_statistics_cfg(9); }),
            std::string(TOTALS) + "\n  vlan : 4096\r\n"
                                  "\tPPPoE Discovery Packet    Received    Forwarded    Dropped\r\n"
                                  "\t----------------------    --------    ---------    -------\r\n"
                                  "\t                  PADI          12            0          0\r\n"
                                  "\t                  PADR           0            0          0\r\n"
                                  "\t                  PADT           0            0          1\r\n"
                                  "\t                  PADO           0            0          0\r\n"
                                  "\t                  PADS           0            1          0\r\n");
  line_id_reset_statistics_cfg();
  EXPECT_EQ(printed([] { line_id_show_pkt_statistics_cfg(0); }).find("vlan"), std::string::npos);
}

TEST_F(StatisticsTest, StatusReport) {
  line_id_set_option82_cfg(2, 1);
  g_line_id_common_cfg[2].pppoe_plus_enable = 2;
  line_id_set_ani_str_cfg(2, "node%d", 6);
  line_id_set_rack_no_cfg(2, 7);
  line_id_write_param(9, 'H', "not of the first set", 1);
  EXPECT_EQ(printed([] { line_id_show_lineid_status_cfg(2); }),
            "\r\nLine ID Configurations\r\n"
            "====================================================\r\n"
            "Option82: Enabled          Option18: Disabled\r\n"
            "Option37: Disabled          PPPoE+  : Enabled\r\n"
            "PARAMETERS LIST ====================================\r\n"
            "a: node%d\r\nr: 7\r\nf: \r\nu: \r\nO: \r\nB: \r\nL: \r\nH: \r\n"
            "FORMAT =============================================\r\n");
  EXPECT_NE(printed([] { line_id_show_lineid_status_cfg(255); }).find("a: \r\n"), std::string::npos);
}

TEST_F(StatisticsTest, WhiteListReport) {
  g_trans_white_list_obj.num = 2;
  g_trans_white_list_obj.onu_type[0] = 300;
  g_trans_white_list_obj.onu_type[5] = 65535;
  g_trans_white_list_obj.trans_policy = 1;
  g_trans_white_list_obj.pppoe_enable = 1;
  EXPECT_EQ(printed([] { line_id_show_pppoe_whitelist_cfg(0); }),
            "\r\nPppoe white list trans_policy is:1\r\n"
            "\r\nPppoe white list dhcp_white_list_enbale is:0\r\n"
            "\r\nPppoe white list pppoe_white_list_enbale is:1\r\n"
            "onu_type[0] = 300\r\nonu_type[5] = 65535\r\n"
            "\r\nPppoe white list num is:2\r\n\n");
}

TEST_F(StatisticsTest, BindingReportsAskTheirTable) {
  EXPECT_EQ(line_id_show_dhcp_binding_table_cfg(3), -2) << "no table registered";
  g_line_id_ptl_reg_func.dhcp_spoof_oper = [](uint8_t oltid, uint8_t op, uint16_t, uint16_t, const uint8_t*) {
    return oltid * 10 + op;
  };
  g_line_id_ptl_reg_func.pppoe_spoof_oper = [](uint8_t oltid, uint8_t op, uint16_t, uint16_t, const uint8_t*) {
    return oltid * 100 + op;
  };
  EXPECT_EQ(line_id_show_dhcp_binding_table_cfg(3), 31);
  EXPECT_EQ(line_id_show_pppoe_binding_table_cfg(3), 301);
}

} // namespace
