// The protocol registration table: what the packet path and the configuration side reach of agents and anti-spoofing.
//
// Written by line_id_protocol_reg_func before frames flow; read by the worker. A wrapper answers -2 for an empty slot.
#pragma once

#include "core/records.h"

using line_id_table_init_func = int32_t (*)();
// 0 send the rebuilt frame, -1 pass the received one, -2 drop, -3 send the rebuilt one back.
using line_id_agent_func = int32_t (*)(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info);
// 0 lets the frame on. The first two arguments are 0.
using line_id_spoof_proc_func = int32_t (*)(int32_t, int32_t, line_id_inf_info* info);
// `op`: 1 show, 2 delete `mac`, 3 delete by PON and ONU.
using line_id_spoof_oper_func = int32_t (*)(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac);

struct line_id_ptl_reg_func {
  line_id_table_init_func dhcp_table_init;
  line_id_table_init_func pppoe_table_init;
  line_id_agent_func dhcp4_agent;
  line_id_agent_func dhcp6_agent;
  line_id_agent_func pppoe_agent;
  line_id_spoof_proc_func dhcp_spoof_proc;
  line_id_spoof_proc_func pppoe_spoof_proc;
  line_id_spoof_oper_func dhcp_spoof_oper;
  line_id_spoof_oper_func pppoe_spoof_oper;
};

extern line_id_ptl_reg_func g_line_id_ptl_reg_func;

// Initialise the registered binding tables. Always 0.
int32_t line_id_int_protocol_func_data();

int32_t line_id_dhcp4_pkt_proc_if(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info);
int32_t line_id_dhcp6_pkt_proc_if(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info);
int32_t line_id_pppoe_pkt_proc_if(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info);
int32_t line_id_dhcp_spoof_proc_if(int32_t a, int32_t b, line_id_inf_info* info);
int32_t line_id_pppoe_spoof_proc_if(int32_t a, int32_t b, line_id_inf_info* info);
int32_t line_id_dhcp_spoof_oper_if(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac);
int32_t line_id_pppoe_spoof_oper_if(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac);
