// Tells the device which protocols it has to trap for an instance.
#include "config/trap_rule.h"

#include "config/store.h"
#include "core/device_if.h"
#include "core/log.h"

int32_t line_id_get_dhcpv6_trap_rule(uint8_t oltid) {
  const int32_t option18 = line_id_get_option18_enable_cfg(oltid);
  const int32_t option37 = line_id_get_option37_enable_cfg(oltid);
  LINE_ID_INFO(LOG_GENERAL, "option18 = %d, option37 = %d\r\n", option18, option37);
  return option18 != 0 || option37 != 0 ? 1 : 0;
}

int32_t line_id_trap_rule_proc(uint8_t oltid, uint8_t protocol, uint8_t enable) {
  if (protocol == LINE_ID_DHCPV6) enable = static_cast<uint8_t>(line_id_get_dhcpv6_trap_rule(oltid));
  return g_device_if.trap_rule != nullptr ? g_device_if.trap_rule(oltid, protocol, enable) : 0;
}
