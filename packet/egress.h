// What becomes of a frame after its agent: sent rebuilt, as received, the other way, or dropped; and counted.
//
// The host's registration calls line_id_reg_custom_pkt_proc_if and line_id_init_def_white_list_func are here too.
#pragma once

#include "core/records.h"

// What an agent says of its frame. Any other value counts as LINE_ID_PKT_PASS.
enum line_id_pkt_result : int8_t {
  LINE_ID_PKT_SEND = 0,
  LINE_ID_PKT_PASS = -1,
  LINE_ID_PKT_DROP = -2,
  LINE_ID_PKT_ANSWER = -3, // the rebuilt frame, in the reverse direction
};

// Show the frame to the host's packet hook, apply the exception policy, send or drop, count. 0, or -9 for a missing
// record. The worker.
int32_t line_id_send_pkt_by_policy(int8_t result, line_id_inf_info* info);
