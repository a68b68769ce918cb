// Policies and the white list: ranges, codes, and what a refusal leaves.
#include "tests/unit/config/config_test.h"

namespace {

using PolicyTest = ConfigTest;

struct policy_row {
  const char* name;
  int32_t (*set)(uint8_t);
  int32_t (*get)();
  int index, lo, hi, code;
};

const policy_row POLICIES[] = {
    {ROW(dhcp_reg), 0, 1, 2, -33},
    {ROW(dhcpv6_reg), 1, 1, 2, -33},
    {ROW(pppoe_reg), 2, 1, 2, -33},
    {ROW(dhcp_spoof_reg), 3, 1, 2, -33},
    {ROW(pppoe_spoof_reg), 4, 1, 2, -33},
    {ROW(def_std_fmt_type), 5, 0, 2, -34},
    {ROW(dhcp_circuitid_up_policy), 6, 0, 2, -35},
    {ROW(dhcp_remoteid_up_policy), 7, 0, 2, -35},
    {ROW(pppoe_circuitid_up_policy), 8, 0, 2, -35},
    {ROW(pppoe_remoteid_up_policy), 9, 0, 2, -35},
    {ROW(dhcp_tag_dn_strip), 10, 0, 1, -36},
    {ROW(pppoe_tag_dn_strip), 11, 0, 1, -36},
    {ROW(dhcpv6_tag_dn_strip), 12, 1, 2, -36},
    {ROW(pkt_exception_policy), 13, 0, 2, -37},
    {ROW(cross_process_shared_mem), 14, 0, 1, -38},
};

TEST_F(PolicyTest, EveryValueOfEveryPolicy) {
  for (const policy_row& row : POLICIES) {
    SCOPED_TRACE(row.name);
    int kept = 0;
    for (int value = 0; value <= 255; ++value) {
      const bool valid = value >= row.lo && value <= row.hi;
      ASSERT_EQ(row.set(static_cast<uint8_t>(value)), valid ? 0 : row.code) << value;
      if (valid) kept = value;
      ASSERT_EQ(row.get(), kept) << value;
    }
    EXPECT_EQ(g_policy_cfg_table[row.index], row.hi);
  }
}

line_id_white_list list_of(uint8_t num, uint8_t policy, uint8_t dhcp, uint8_t pppoe) {
  line_id_white_list list = {};
  list.num = num;
  for (uint32_t i = 0; i < 32; ++i) list.onu_type[i] = static_cast<uint16_t>(1000 + i);
  list.trans_policy = policy;
  list.dhcp_enable = dhcp;
  list.pppoe_enable = pppoe;
  return list;
}

TEST_F(PolicyTest, WhiteListIsTakenWholeOrNotAtAll) {
  const line_id_white_list good = list_of(32, 1, 1, 0);
  EXPECT_EQ(line_id_set_trans_white_list_obj(&good), 0);
  const std::pair<line_id_white_list, int> refused[] = {{list_of(1, 2, 2, 2), -32},
                                                        {list_of(1, 0, 2, 0), -147},
                                                        {list_of(1, 0, 0, 2), -147},
                                                        {list_of(33, 0, 0, 0), -31}};
  for (const auto& [list, code] : refused) EXPECT_EQ(line_id_set_trans_white_list_obj(&list), code);
  EXPECT_EQ(line_id_set_trans_white_list_obj(nullptr), -9);

  line_id_white_list read = {};
  EXPECT_EQ(line_id_get_trans_white_list_obj(&read), 0);
  EXPECT_EQ(std::memcmp(&read, &good, sizeof(read)), 0);
  EXPECT_EQ(line_id_get_trans_white_list_obj(nullptr), -9);
  EXPECT_EQ(line_id_get_trans_white_list_policy(), 1);
  EXPECT_EQ(line_id_get_trans_white_list_dhcp_enable(), 1);
  EXPECT_EQ(line_id_get_trans_white_list_pppoe_enable(), 0);
}

TEST_F(PolicyTest, WhiteListBodyKeepsPolicyAndEnables) {
  const line_id_white_list first = list_of(1, 1, 0, 1);
  line_id_set_trans_white_list_obj(&first);
  const line_id_white_list other = list_of(3, 0, 0, 0);
  std::vector<uint8_t> body(69);
  std::memcpy(body.data(), &other, 69);
  EXPECT_EQ(line_id_set_trans_white_list_cfg(body.data()), 0);
  EXPECT_EQ(g_trans_white_list_obj.num, 3);
  EXPECT_EQ(line_id_get_trans_white_list_policy(), 1);
  EXPECT_EQ(line_id_get_trans_white_list_pppoe_enable(), 1);
  std::vector<uint8_t> read(69);
  EXPECT_EQ(line_id_get_trans_white_list_cfg(read.data()), 0);
  EXPECT_EQ(read, body);
  EXPECT_EQ(line_id_set_trans_white_list_cfg(nullptr), -9);
  EXPECT_EQ(line_id_get_trans_white_list_cfg(nullptr), -9);
}

TEST_F(PolicyTest, OnuTypeMatchesWithinTheCount) {
  g_trans_white_list_obj = list_of(2, 0, 1, 1);
  EXPECT_EQ(line_id_is_onutype_match(1001), 0);
  EXPECT_EQ(line_id_is_onutype_match(1002), -1);
  g_trans_white_list_obj.num = 0;
  EXPECT_EQ(line_id_is_onutype_match(1000), -1);
  g_trans_white_list_obj.num = 255; // came unchecked from another process
  EXPECT_EQ(line_id_is_onutype_match(1031), 0);
  EXPECT_EQ(line_id_is_onutype_match(1), -1);
}

} // namespace
