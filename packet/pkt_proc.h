// The worker's events: one frame through its agent and egress.
#pragma once

#include "platform/lib_comm.h"

#include <cstdint>

// The task's argument is the unit, in work; it is given back in every case. 0, or -9 without a task or a unit.
int32_t line_id_dhcp4_pkt_proc(lib_comm_task* task);
int32_t line_id_dhcp6_pkt_proc(lib_comm_task* task);
int32_t line_id_pppoe_pkt_proc(lib_comm_task* task);

// The scratch frame of LINE_ID_SCRATCH_LEN octets, zeroed. The worker.
uint8_t* line_id_get_l2_init_pkt_ptr();
