// What every agent does first with a frame.
#include "agents/agent_frame.h"

#include <cstring>

void line_id_agent_begin(line_id_unit* unit, uint8_t* new_pkt, line_id_inf_info* info) {
  info->new_pkt = new_pkt;
  info->new_pkt_len = info->origin_pkt_len;
  std::memcpy(new_pkt, unit->data, unit->length);
}
