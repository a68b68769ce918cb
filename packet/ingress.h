// Frames from the host's traps: checked, passed through when the agent has no business with them, else copied into a
// pool unit and announced to the worker. The public calls, with their contract, are in include/line_id.h.
#pragma once

#include "core/records.h"

// Behind line_id_dhcp_receive and line_id_pppoe_receive. Host threads.
int32_t line_id_dhcp_receive_if(const uint8_t* frame, uint32_t len, uint32_t src_port, uint8_t direct,
                                const line_id_append_info* append_info);
int32_t line_id_pppoe_receive_if(const uint8_t* frame, uint32_t len, uint32_t src_port, uint8_t direct,
                                 const line_id_append_info* append_info);

// Announce a filled unit to the worker: 0, and the unit is the worker's; or -21, and it is still the caller's. The
// length is not sent.
int32_t line_id_send_pkt_msg(uint32_t kind, line_id_unit* unit, uint32_t len);
