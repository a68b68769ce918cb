// Tells the device which protocols it has to trap for an instance. Start-up and the worker.
#pragma once

#include <cstdint>

// 1 when Option 18 or Option 37 is on for the instance, else 0.
int32_t line_id_get_dhcpv6_trap_rule(uint8_t oltid);

// Push the trap rule of a protocol (LINE_ID_DHCPV4, ...); for DHCPv6 `enable` is replaced by
// line_id_get_dhcpv6_trap_rule. The device's result, or 0 without a callback.
int32_t line_id_trap_rule_proc(uint8_t oltid, uint8_t protocol, uint8_t enable);
