// Built-in customer profiles, and the steps that apply a start-up table to the store. Start-up only.
#pragma once

#include "include/line_id.h"

#include <cstdint>

// Fill `table` and the format list it points at with a device kind's profile for an access technology (0 to 4).
// 0, -14 technology, -9 no table or no format list.
int32_t line_id_obtain_olt_cfg_table_content(uint8_t tech_norms, line_id_ex_cfg_table* table);
int32_t line_id_obtain_sfu_cfg_table_content(uint8_t tech_norms, line_id_ex_cfg_table* table);
int32_t line_id_obtain_mdu_cfg_table_content(uint8_t tech_norms, line_id_ex_cfg_table* table);
int32_t line_id_obtain_dsl_cfg_table_content(uint8_t tech_norms, line_id_ex_cfg_table* table);

// Apply the host's table, or the built-in profile of `cust_mode` without one, then register the protocols. 0, -91
// memory, -81 no such profile, or the result of line_id_register_common_cfg_func. What was applied before a failure
// stays.
int32_t line_id_cfg_data_init(uint8_t oltid, uint8_t cust_mode, const line_id_ex_cfg_table* ex_cfg_table);

// Apply a table: 0, -9 null, -79 policies, -80 enables and formats, -78 parameter table.
int32_t line_id_register_common_cfg_func(uint8_t oltid, const line_id_ex_cfg_table* ex_cfg_table);

// Its stages. The first two return 0 or the code of the step that was refused: -63 to -77, -46 to -61.
int32_t line_id_init_policy_cfg_func(const line_id_ex_cfg_table* table);
int32_t line_id_init_until_cfg_func(uint8_t oltid, const line_id_ex_cfg_table* table);
int32_t line_id_init_statics_cfg_func();
