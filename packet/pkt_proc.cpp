// The worker's events: one frame through its agent and egress.
#include "packet/pkt_proc.h"

#include "core/log.h"
#include "lineid/hal.h"
#include "packet/egress.h"
#include "packet/pool.h"
#include "packet/protocol_table.h"

#include <cstring>

namespace {

// The rebuilt frame of the frame in work. The worker only, which handles one frame at a time.
alignas(LINE_ID_SCRATCH_ALIGN) uint8_t g_lineid_pkt[LINE_ID_SCRATCH_LEN];
static_assert(LINE_ID_SCRATCH_LEN <= LINE_ID_SCRATCH_ALIGN && 4096 % LINE_ID_SCRATCH_ALIGN == 0);

constexpr uint32_t SOURCE_MAC_OFFSET = 6;

void fill_info(line_id_inf_info& info, line_id_unit* unit, uint8_t* new_pkt) {
  info.pkt_info_ptr = unit->pkt_info_ptr;
  info.origin_pkt_ptr = unit->data;
  info.origin_pkt_len = static_cast<uint16_t>(unit->length);
  info.new_pkt = new_pkt;
  // A frame too short for a source MAC has none: what follows it in the unit is another subscriber's.
  if (unit->length >= SOURCE_MAC_OFFSET + sizeof(info.client_mac)) [[likely]] {
    std::memcpy(info.client_mac, unit->data + SOURCE_MAC_OFFSET, sizeof(info.client_mac));
  }
  line_id_take_vlan_profiles(&info);
}

// `call` is the wrapper of `agent`'s slot. A missing agent passes its frames; an agent's own -2 drops them.
LINE_ID_FLAT int32_t process(lib_comm_task* task, line_id_agent_func agent, line_id_agent_func call) {
  if (task == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "thread is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  line_id_unit* unit = static_cast<line_id_unit*>(task->argument);
  if (unit == nullptr) {
    LINE_ID_WARN(LOG_GENERAL, "mbuf is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  line_id_inf_info info = {};
  uint8_t* new_pkt = line_id_get_l2_init_pkt_ptr();
  fill_info(info, unit, new_pkt);
  const int8_t result = static_cast<int8_t>(call(unit, new_pkt, &info));
  line_id_send_pkt_by_policy(agent != nullptr ? result : int8_t{LINE_ID_PKT_PASS}, &info);
  line_id_buf_pool_give_back(unit);
  return LINE_ID_OK;
}

} // namespace

uint8_t* line_id_get_l2_init_pkt_ptr() {
  std::memset(g_lineid_pkt, 0, sizeof(g_lineid_pkt));
  return g_lineid_pkt;
}

int32_t line_id_dhcp4_pkt_proc(lib_comm_task* task) {
  return process(task, g_line_id_ptl_reg_func.dhcp4_agent, line_id_dhcp4_pkt_proc_if);
}

int32_t line_id_dhcp6_pkt_proc(lib_comm_task* task) {
  return process(task, g_line_id_ptl_reg_func.dhcp6_agent, line_id_dhcp6_pkt_proc_if);
}

int32_t line_id_pppoe_pkt_proc(lib_comm_task* task) {
  return process(task, g_line_id_ptl_reg_func.pppoe_agent, line_id_pppoe_pkt_proc_if);
}
