// The console reports of the show commands. Worker only; each returns 0 (the binding tables: the report's own result).
#pragma once

#include <cstdint>

int32_t line_id_show_pkt_statistics_cfg(uint8_t oltid); // of the whole agent; `oltid` is not used
int32_t line_id_show_lineid_status_cfg(uint8_t oltid);
int32_t line_id_show_pppoe_whitelist_cfg(uint8_t oltid); // of the whole agent
int32_t line_id_show_dhcp_binding_table_cfg(uint8_t oltid);
int32_t line_id_show_pppoe_binding_table_cfg(uint8_t oltid);
