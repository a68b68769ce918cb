// The fifteen policies of the whole agent: which agents and checks run, and how identifiers and tags are treated.
//
// Set at start-up (the DHCPv6 strip also by the Option 18 settings, on the worker), read by the worker. A setter
// returns 0, or its own code with the old value kept; getters return the value.
#pragma once

#include <cstdint>

constexpr uint32_t LINE_ID_POLICY_SLOTS = 19; // the last four are spare

extern uint8_t g_policy_cfg_table[LINE_ID_POLICY_SLOTS];

// 1 register, 2 do not; else -33.
int32_t line_id_set_dhcp_reg_cfg(uint8_t value);
int32_t line_id_set_dhcpv6_reg_cfg(uint8_t value);
int32_t line_id_set_pppoe_reg_cfg(uint8_t value);
int32_t line_id_set_dhcp_spoof_reg_cfg(uint8_t value);
int32_t line_id_set_pppoe_spoof_reg_cfg(uint8_t value);
// 0 to 2: which template of the CTC and CNC families; else -34.
int32_t line_id_set_def_std_fmt_type_cfg(uint8_t value);
// 0 by operation, 1 always build anew, 2 keep; else -35.
int32_t line_id_set_dhcp_circuitid_up_policy_cfg(uint8_t value);
int32_t line_id_set_dhcp_remoteid_up_policy_cfg(uint8_t value);
int32_t line_id_set_pppoe_circuitid_up_policy_cfg(uint8_t value);
int32_t line_id_set_pppoe_remoteid_up_policy_cfg(uint8_t value);
// DHCP and PPPoE 0 or 1, DHCPv6 1 or 2; else -36.
int32_t line_id_set_dhcp_tag_dn_strip_cfg(uint8_t value);
int32_t line_id_set_pppoe_tag_dn_strip_cfg(uint8_t value);
int32_t line_id_set_dhcpv6_tag_dn_strip_cfg(uint8_t value);
// 0 by result, 1 always pass unchanged, 2 always drop; else -37.
int32_t line_id_set_pkt_exception_policy_cfg(uint8_t value);
// 0 or 1: other processes configure this agent; else -38.
int32_t line_id_set_cross_process_shared_mem_cfg(uint8_t value);

int32_t line_id_get_dhcp_reg_cfg();
int32_t line_id_get_dhcpv6_reg_cfg();
int32_t line_id_get_pppoe_reg_cfg();
int32_t line_id_get_dhcp_spoof_reg_cfg();
int32_t line_id_get_pppoe_spoof_reg_cfg();
int32_t line_id_get_def_std_fmt_type_cfg();
int32_t line_id_get_dhcp_circuitid_up_policy_cfg();
int32_t line_id_get_dhcp_remoteid_up_policy_cfg();
int32_t line_id_get_pppoe_circuitid_up_policy_cfg();
int32_t line_id_get_pppoe_remoteid_up_policy_cfg();
int32_t line_id_get_dhcp_tag_dn_strip_cfg();
int32_t line_id_get_pppoe_tag_dn_strip_cfg();
int32_t line_id_get_dhcpv6_tag_dn_strip_cfg();
int32_t line_id_get_pkt_exception_policy_cfg();
int32_t line_id_get_cross_process_shared_mem_cfg();

#define LINE_ID_POLICY(name, index, lo, hi, refusal, step)                                                             \
  inline int32_t line_id_get_##name##_cfg() { return g_policy_cfg_table[index]; }

#include "config/settings.def"
