// Fills the protocol registration table from the registration settings.
#include "agents/registration.h"

#include "agents/dhcp4.h"
#include "agents/dhcp6.h"
#include "agents/pppoe.h"
#include "antispoof/binding_table.h"
#include "config/policy.h"
#include "packet/protocol_table.h"

namespace {

template <typename Slot> void set_slot(Slot& slot, int32_t setting, Slot function) {
  constexpr int32_t REGISTERED = 1;
  slot = setting == REGISTERED ? function : nullptr;
}

} // namespace

int32_t line_id_protocol_reg_func() {
  line_id_ptl_reg_func& table = g_line_id_ptl_reg_func;
  set_slot(table.dhcp4_agent, line_id_get_dhcp_reg_cfg(), &line_id_dhcp_event_proc);
  set_slot(table.dhcp6_agent, line_id_get_dhcpv6_reg_cfg(), &line_id_dhcpv6_event_proc);
  set_slot(table.pppoe_agent, line_id_get_pppoe_reg_cfg(), &line_id_pppoe_event_proc);

  const int32_t dhcp_spoof = line_id_get_dhcp_spoof_reg_cfg();
  set_slot(table.dhcp_table_init, dhcp_spoof, &line_id_dhcp_binding_table_init);
  set_slot(table.dhcp_spoof_proc, dhcp_spoof, &line_id_process_dhcp_anti_mac_spoofing);
  set_slot(table.dhcp_spoof_oper, dhcp_spoof, &line_id_op_dhcp_anti_spoofing_entry);

  const int32_t pppoe_spoof = line_id_get_pppoe_spoof_reg_cfg();
  set_slot(table.pppoe_table_init, pppoe_spoof, &line_id_pppoe_binding_table_init);
  set_slot(table.pppoe_spoof_proc, pppoe_spoof, &line_id_process_pppoe_anti_mac_spoofing);
  set_slot(table.pppoe_spoof_oper, pppoe_spoof, &line_id_op_pppoe_anti_spoofing_entry);
  return 0;
}
