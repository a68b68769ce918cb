// What every agent does first with a frame.
#pragma once

#include "core/records.h"

#include <cstring>

// Put a copy of the received frame into the output frame (LINE_ID_SCRATCH_LEN octets), so that an agent that changes
// nothing leaves a frame that can be sent. The worker's entry has filled the rest of the record.
inline void line_id_agent_begin(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  info->new_pkt = new_pkt;
  info->new_pkt_len = info->origin_pkt_len;
  std::memcpy(new_pkt, unit->data, unit->length);
}
