// The protocol registration table and the calls through its slots.
#include "packet/protocol_table.h"

#include "core/log.h"

line_id_ptl_reg_func g_line_id_ptl_reg_func;

namespace {

int32_t report_empty_slot(const char* function) {
  if (line_id_log_enabled(LOG_GENERAL, 1)) {
    line_id_log_trace("[LNID_WARN]", function, __LINE__, "reg_if is NULL, failed(%d).\r\n", LINE_ID_ERR_NO_HANDLER);
  }
  return LINE_ID_ERR_NO_HANDLER;
}

template <typename Slot, typename... Arguments>
int32_t call_slot(const char* function, Slot slot, Arguments... arguments) {
  return slot != nullptr ? slot(arguments...) : report_empty_slot(function);
}

} // namespace

int32_t line_id_int_protocol_func_data() {
  const line_id_ptl_reg_func& table = g_line_id_ptl_reg_func;
  if (table.dhcp_table_init != nullptr) table.dhcp_table_init();
  // ODD: the PPPoE table is made when the PPPoE entry operation is registered, whose slot is tested, not the table's.
  if (table.pppoe_spoof_oper != nullptr && table.pppoe_table_init != nullptr) table.pppoe_table_init();
  return LINE_ID_OK;
}

int32_t line_id_dhcp4_pkt_proc_if(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  return call_slot(__func__, g_line_id_ptl_reg_func.dhcp4_agent, unit, new_pkt, info);
}

int32_t line_id_dhcp6_pkt_proc_if(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  return call_slot(__func__, g_line_id_ptl_reg_func.dhcp6_agent, unit, new_pkt, info);
}

int32_t line_id_pppoe_pkt_proc_if(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  return call_slot(__func__, g_line_id_ptl_reg_func.pppoe_agent, unit, new_pkt, info);
}

int32_t line_id_dhcp_spoof_proc_if(int32_t, int32_t, line_id_inf_info* info) {
  return call_slot(__func__, g_line_id_ptl_reg_func.dhcp_spoof_proc, 0, 0, info);
}

int32_t line_id_pppoe_spoof_proc_if(int32_t, int32_t, line_id_inf_info* info) {
  return call_slot(__func__, g_line_id_ptl_reg_func.pppoe_spoof_proc, 0, 0, info);
}

int32_t line_id_dhcp_spoof_oper_if(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac) {
  return call_slot(__func__, g_line_id_ptl_reg_func.dhcp_spoof_oper, oltid, op, pon, onu, mac);
}

int32_t line_id_pppoe_spoof_oper_if(uint8_t oltid, uint8_t op, uint16_t pon, uint16_t onu, const uint8_t* mac) {
  return call_slot(__func__, g_line_id_ptl_reg_func.pppoe_spoof_oper, oltid, op, pon, onu, mac);
}
