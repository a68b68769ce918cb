// What becomes of a frame after its agent.
#include "packet/egress.h"

#include "config/policy.h"
#include "config/statistics.h"
#include "config/white_list.h"
#include "core/device_if.h"
#include "core/log.h"

#include <atomic>

namespace {

// Installed by the host from any thread, called on the worker.
std::atomic<line_id_custom_pkt_func> g_line_id_custom_pkt_proc_if{nullptr};

constexpr int32_t POLICY_ALWAYS_PASS = 1;
constexpr int32_t POLICY_ALWAYS_DROP = 2;

void show_to_hook(uint8_t direct, const line_id_inf_info* info) {
  const line_id_custom_pkt_func hook = g_line_id_custom_pkt_proc_if.load(std::memory_order_acquire);
  if (hook == nullptr) return;
  line_id_pkt_property property = {};
  line_id_get_pkt_propety_by_inf_info(&property, info);
  hook(direct, 0, 0, 0, &property);
}

int8_t apply_exception_policy(int8_t result) {
  switch (line_id_get_pkt_exception_policy_cfg()) {
  case POLICY_ALWAYS_PASS: return LINE_ID_PKT_PASS;
  case POLICY_ALWAYS_DROP: return LINE_ID_PKT_DROP;
  default: return result;
  }
}

uint8_t reverse(uint8_t direct) { return direct == LINE_ID_UPSTREAM ? LINE_ID_DOWNSTREAM : LINE_ID_UPSTREAM; }

template <uint8_t log> int32_t line_id_send_pkt_by_policy(int8_t result, line_id_inf_info* info) {
  if (info == nullptr) {
    LINE_ID_WARN(log, "info is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  const line_id_pkt_info* pkt = info->pkt_info_ptr;
  if (pkt == nullptr) {
    LINE_ID_WARN(log, "info->pkt_info_ptr is NULL, failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  const int8_t packet_type = static_cast<int8_t>(pkt->packet_type);
  show_to_hook(pkt->direct, info);
  result = apply_exception_policy(result);
  if (result == LINE_ID_PKT_DROP) {
    line_id_inc_drop_pkt_count(pkt->direct, packet_type);
    return LINE_ID_OK;
  }

  const bool rebuilt = result == LINE_ID_PKT_SEND || result == LINE_ID_PKT_ANSWER;
  const uint8_t direct = result == LINE_ID_PKT_ANSWER ? reverse(pkt->direct) : pkt->direct;
  const uint8_t* frame = rebuilt ? info->new_pkt : info->origin_pkt_ptr;
  const uint32_t len = rebuilt ? info->new_pkt_len : info->origin_pkt_len;
  const uint8_t oltid = line_id_info_oltid(info);
  LINE_ID_INFO(log, "debug info->pkt_info_ptr->reserved[3] = %d.\r\n", oltid);
  if (line_id_send_eth_pkt(oltid, direct, static_cast<uint16_t>(pkt->src_port), frame, len) == 0) [[likely]] {
    LINE_ID_INFO(log, "send eth pkt OK:\r");
    line_id_inc_processed_pkt_count(direct, packet_type, static_cast<uint8_t>(result));
  } else {
    line_id_inc_drop_pkt_count(direct, packet_type);
  }
  return LINE_ID_OK;
}

} // namespace

int32_t line_id_send_pkt_by_policy(int8_t result, line_id_inf_info* info) {
  return line_id_traces_on() ? line_id_traced<line_id_send_pkt_by_policy<LOG_GENERAL>>(result, info)
                             : line_id_send_pkt_by_policy<LOG_NONE>(result, info);
}

int32_t line_id_reg_custom_pkt_proc_if(line_id_custom_pkt_func hook) {
  if (hook == nullptr) {
    LINE_ID_ERROR("line_id_reg_custom_pkt_proc_if failed(%d).\r\n", LINE_ID_ERR_NULL);
    return LINE_ID_ERR_NULL;
  }
  g_line_id_custom_pkt_proc_if.store(hook, std::memory_order_release);
  return LINE_ID_OK;
}

int32_t line_id_init_def_white_list_func(const line_id_white_list* list) {
  return line_id_set_trans_white_list_obj(list);
}
