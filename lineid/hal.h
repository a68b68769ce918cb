// The host's callbacks, and the parameter provider that asks them for a line's facts.
//
// Registered by start-up before the worker runs; asked by start-up and then by the worker alone. The public
// registration calls line_id_reg_hal_func and line_id_reg_param_custom_if are declared in include/line_id.h.
#pragma once

#include "core/records.h"
#include "lineid/params.h"

#include <atomic>

extern line_id_hal_func_table g_hal_func_obj;

// The host's parameter hook or null; set from any thread.
extern std::atomic<line_id_param_custom_func> g_line_id_hal_param_custom_if;

line_id_hal_func_table* lineid_get_hal_func_ptr();

// Whether a table has been registered; the provider refuses to work without one.
bool line_id_hal_is_registered();

// 0; -9 null, -1 a device kind above 4, or the code of the first missing slot.
int32_t line_id_check_hal_func_table_content(uint8_t device_kind, const line_id_hal_func_table* table);

// The parameter provider. Mode 1: the device's names into all sets, `info` null. Mode 2: the facts of a frame's line
// into its set. Then the host's hook. 0; -9 no table registered, -14 unknown access technology, -1 any other failure.
int32_t line_id_hal_param_func(uint8_t mode, line_id_param_write_func write, line_id_inf_info* info);

// Mode 2 for the parameter table's own callback, and without traces: empty a set and write the facts of a frame's line
// into it, then the hook. For a registered table and a frame; 0, -14 or -1 as above.
int32_t line_id_hal_fill_set(line_id_param_set& letters, line_id_inf_info* info);

// Take a frame's VLAN profiles from its reserved octets: numbers above 64 count as none, DHCPv6 has none.
void line_id_take_vlan_profiles(line_id_inf_info* info);
