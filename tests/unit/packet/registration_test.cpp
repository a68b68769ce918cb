// Which settings fill which slots of the registration table.
#include "agents/registration.h"

#include "config/policy.h"
#include "packet/protocol_table.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// The table as a text, one character for each slot in order.
std::string filled_slots() {
  const line_id_ptl_reg_func& table = g_line_id_ptl_reg_func;
  const bool filled[] = {
      table.dhcp_table_init != nullptr,  table.pppoe_table_init != nullptr, table.dhcp4_agent != nullptr,
      table.dhcp6_agent != nullptr,      table.pppoe_agent != nullptr,      table.dhcp_spoof_proc != nullptr,
      table.pppoe_spoof_proc != nullptr, table.dhcp_spoof_oper != nullptr,  table.pppoe_spoof_oper != nullptr};
  std::string text;
  for (const bool slot : filled) text += slot ? 'x' : '.';
  return text;
}

} // namespace

TEST(registration, each_setting_fills_and_clears_its_own_slots) {
  const char* const slots[] = {"..x......", "...x.....", "....x....", "x....x.x.", ".x....x.x"};
  for (uint8_t& policy : g_policy_cfg_table) policy = 0;
  for (uint32_t setting = 0; setting < 5; ++setting) {
    g_policy_cfg_table[setting] = 1;
    EXPECT_EQ(line_id_protocol_reg_func(), 0);
    EXPECT_EQ(filled_slots(), slots[setting]) << setting;
    g_policy_cfg_table[setting] = 2;
    line_id_protocol_reg_func();
    EXPECT_EQ(filled_slots(), ".........") << setting;
  }
}
